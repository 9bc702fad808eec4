#include "foundation/ProcessExit.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace vocle {

namespace {
std::atomic<bool> ending{false};
std::atomic<bool> orderly{false};

void onExit() {
    if (!orderly.load()) endProcessNow(1);
}
}  // namespace

void endProcessNow(int status) {
    if (ending.exchange(true)) {
        for (;;) ::pause();
    }
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(status);
}

void guardUnplannedExit() {
    static std::atomic<bool> registered{false};
    if (!registered.exchange(true)) std::atexit(onExit);
}

void markOrderlyExit() {
    orderly.store(true);
}

}  // namespace vocle
