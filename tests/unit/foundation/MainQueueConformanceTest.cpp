#include "support/MainQueueConformance.h"

#include "foundation/RunLoopMainQueue.h"
#include "foundation/VirtualMainQueue.h"

namespace vocle::testing {
namespace {

struct VirtualHarness {
    VirtualMainQueue q;
    MainQueue& queue() { return q; }
    double now() { return q.monotonicNow().time_since_epoch().count(); }
    // Virtual time: runs due work, then jumps to each next timer until done or the budget is spent.
    bool runUntil(const std::function<bool()>& done, double seconds) {
        const double deadline = now() + seconds;
        q.runUntilIdle();
        while (!done()) {
            const double before = now();
            if (!q.runNext() || now() > deadline) {
                q.advance(std::max(0.0, deadline - before));
                return done();
            }
        }
        return true;
    }
};

struct RunLoopHarness {
    SystemClock clock;
    RunLoopMainQueue q{clock};
    MainQueue& queue() { return q; }
    double now() { return clock.monotonicNow().time_since_epoch().count(); }
    bool runUntil(const std::function<bool()>& done, double seconds) {
        return q.runUntil(done, Seconds(seconds));
    }
};

using Harnesses = ::testing::Types<VirtualHarness, RunLoopHarness>;
INSTANTIATE_TYPED_TEST_SUITE_P(Foundation, MainQueueConformance, Harnesses);

}  // namespace
}  // namespace vocle::testing
