#include "foundation/Clock.h"

namespace vocle {

double SystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

MonotonicTime SystemClock::monotonicNow() const {
    return std::chrono::time_point_cast<Seconds>(std::chrono::steady_clock::now());
}

}  // namespace vocle
