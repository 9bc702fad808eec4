#pragma once

namespace vocle {

// Seconds between 1970-01-01 and 2001-01-01 UTC; stored dates count from the latter.
inline constexpr double kReferenceDateOffset = 978307200.0;

inline double toReferenceDate(double unixSeconds) { return unixSeconds - kReferenceDateOffset; }
inline double fromReferenceDate(double referenceSeconds) { return referenceSeconds + kReferenceDateOffset; }

// Wall-clock time in seconds since 1970, with fraction. Injected everywhere so tests run on virtual time.
class Clock {
public:
    virtual ~Clock() = default;
    virtual double now() const = 0;
};

class SystemClock final : public Clock {
public:
    double now() const override;
};

}  // namespace vocle
