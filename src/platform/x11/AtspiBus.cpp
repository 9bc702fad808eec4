#include "platform/x11/AtspiBus.h"

#include <atspi/atspi.h>

#include "foundation/Log.h"

namespace vocle::atspi {

namespace {
GMainContext* gContext = nullptr;
bool gConnected = false;
bool gAttempted = false;
}  // namespace

std::recursive_mutex& lock() {
    static std::recursive_mutex mutex;
    return mutex;
}

bool connect() {
    if (gConnected) return true;
    if (gAttempted) return false;
    gAttempted = true;
    // 0: connected; 1: already initialized elsewhere in this process; anything else: an error.
    if (atspi_init() > 1) {
        log("❌ AtspiAccessibility: Cannot connect to the accessibility bus");
        return false;
    }
    atspi_set_timeout(kCallTimeoutMs, kCallTimeoutMs * 4);
    gContext = g_main_context_new();
    // libatspi keeps its caches current from the applications' change events, which it handles while it
    // waits for replies and in drainEvents(). (Switching the cache off is no option: the event handlers
    // then call back into the bus from inside its dispatch, and libdbus deadlocks.)
    atspi_set_main_context(gContext);
    gConnected = true;
    return true;
}

GMainContext* context() {
    return gContext;
}

void drainEvents() {
    if (!gContext) return;
    for (int i = 0; i < 64 && g_main_context_iteration(gContext, FALSE); ++i) {
    }
}

}  // namespace vocle::atspi
