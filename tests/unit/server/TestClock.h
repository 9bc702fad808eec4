#pragma once

#include <atomic>

#include "foundation/Clock.h"

namespace vocle::testing {

// Settable wall clock for expiry and rate-limit tests; safe to read from server threads.
class TestClock final : public vocle::Clock {
  public:
    explicit TestClock(double start = 1'800'000'000.0) : now_(start) {}
    double now() const override { return now_.load(); }
    void advance(double seconds) { now_.store(now_.load() + seconds); }

  private:
    std::atomic<double> now_;
};

}  // namespace vocle::testing
