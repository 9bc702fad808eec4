#include "foundation/Clock.h"

#include <chrono>

namespace vocle {

double SystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

}  // namespace vocle
