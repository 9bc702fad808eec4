#pragma once

#include <chrono>

namespace vocle {

// Seconds between 1970-01-01 and 2001-01-01 UTC; stored dates count from the latter.
inline constexpr double kReferenceDateOffset = 978307200.0;

inline double toReferenceDate(double unixSeconds) { return unixSeconds - kReferenceDateOffset; }
inline double fromReferenceDate(double referenceSeconds) { return referenceSeconds + kReferenceDateOffset; }

// Delays, intervals and budgets, with fraction.
using Seconds = std::chrono::duration<double>;
// A reading of a clock that only moves forward: what delays, timeouts and retry budgets are measured on,
// so that setting the wall clock neither fires nor holds back anything.
using MonotonicTime = std::chrono::time_point<std::chrono::steady_clock, Seconds>;

// Injected everywhere so tests run on virtual time. now() is wall time (timestamps, dates, file names);
// monotonicNow() is for measuring how long something takes or waits.
class Clock {
public:
    virtual ~Clock() = default;
    // Wall-clock time in seconds since 1970, with fraction.
    virtual double now() const = 0;
    // The machine's steady clock unless a clock keeps its own (the virtual one does).
    virtual MonotonicTime monotonicNow() const {
        return std::chrono::time_point_cast<Seconds>(std::chrono::steady_clock::now());
    }
};

class SystemClock final : public Clock {
public:
    double now() const override;
    MonotonicTime monotonicNow() const override;
};

}  // namespace vocle
