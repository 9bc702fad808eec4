#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "foundation/RunLoopMainQueue.h"

using namespace vocle;

namespace {
// `t` is the monotonic reading; the wall clock reads `t + wallOffset`.
class SettableClock final : public Clock {
public:
  double now() const override { return t.load() + wallOffset.load(); }
  MonotonicTime monotonicNow() const override { return MonotonicTime(Seconds(t.load())); }
  std::atomic<double> t{1000.0};
  std::atomic<double> wallOffset{0.0};
};
}  // namespace

TEST(RunLoopMainQueue, RunsDueWorkInOrderSkippingCancelledTimers) {
    SettableClock clock;
    RunLoopMainQueue loop(clock);
    std::vector<std::string> order;
    loop.postAfter(Seconds(2), [&] { order.push_back("b"); });
    loop.postAfter(Seconds(1), [&] { order.push_back("a"); });
    auto cancelled = loop.postAfter(Seconds(1.5), [&] { order.push_back("cancelled"); });
    cancelled.cancel();
    loop.post([&] { order.push_back("now"); });
    clock.t = 1002.0;  // everything above is due
    EXPECT_TRUE(loop.runUntil([&] { return order.size() == 3; }, Seconds(5)));
    EXPECT_EQ(order, (std::vector<std::string>{"now", "a", "b"}));
}

TEST(RunLoopMainQueue, WorkPostedFromOtherThreadsWakesTheLoop) {
    SettableClock clock;
    RunLoopMainQueue loop(clock);
    std::atomic<int> ran{0};
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i) {
        posters.emplace_back([&] {
            for (int k = 0; k < 50; ++k) loop.post([&] { ++ran; });
        });
    }
    EXPECT_TRUE(loop.runUntil([&] { return ran == 200; }, Seconds(30)));
    for (auto& t : posters) t.join();
}

TEST(RunLoopMainQueue, QuitAndDeadlineEndTheLoop) {
    SettableClock clock;
    RunLoopMainQueue loop(clock);
    loop.post([&] { loop.quit(); });
    EXPECT_FALSE(loop.runUntil([] { return false; }, Seconds(30)));

    int ticks = 0;
    auto timer = loop.scheduleRepeating(Seconds(1), [&] {
        ++ticks;
        clock.t = clock.t + 1;  // each tick makes the next one due; the fifth passes the deadline
    });
    clock.t = 1001.0;
    EXPECT_FALSE(loop.runUntil([] { return false; }, Seconds(4)));
    EXPECT_EQ(ticks, 4);
    timer.cancel();
}

TEST(RunLoopMainQueue, SettingTheWallClockMovesNoTimer) {
    SettableClock clock;
    RunLoopMainQueue loop(clock);
    bool fired = false;
    loop.postAfter(Seconds(10), [&] { fired = true; });
    // A day ahead on the wall: the timer still waits for its ten monotonic seconds.
    clock.wallOffset = 86400.0;
    loop.post([&] { clock.t = clock.t + 9.5; });
    EXPECT_FALSE(loop.runUntil([&] { return fired; }, Seconds(0.2)));
    // A day back: nothing is held up either.
    clock.wallOffset = -86400.0;
    clock.t = clock.t + 0.5;
    EXPECT_TRUE(loop.runUntil([&] { return fired; }, Seconds(5)));
}
