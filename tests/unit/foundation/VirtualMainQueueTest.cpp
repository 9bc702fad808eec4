#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "foundation/VirtualMainQueue.h"

using vocle::Seconds;
using vocle::VirtualMainQueue;

TEST(VirtualMainQueue, SameDueTimeRunsInPostOrderAndNestedPostsAreHonoured) {
    VirtualMainQueue q;
    std::vector<std::string> order;
    q.postAfter(Seconds(1.0), [&] { order.push_back("a"); });
    q.postAfter(Seconds(1.0), [&] {
        order.push_back("b");
        q.post([&] { order.push_back("nested"); });
    });
    q.postAfter(Seconds(0.5), [&] { order.push_back("early"); });
    q.post([&] { order.push_back("now"); });
    q.runUntilIdle();
    EXPECT_EQ(order, (std::vector<std::string>{"now"}));
    q.advance(1.0);
    EXPECT_EQ(order, (std::vector<std::string>{"now", "early", "a", "b", "nested"}));
}

TEST(VirtualMainQueue, ClockMovesToEachTimersDueTimeWhileAdvancing) {
    VirtualMainQueue q(100.0);
    std::vector<double> seen;
    q.postAfter(Seconds(0.2), [&] {
        seen.push_back(q.now());
        q.postAfter(Seconds(0.1), [&] { seen.push_back(q.now()); });
    });
    q.advance(1.0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_DOUBLE_EQ(seen[0], 100.2);
    EXPECT_NEAR(seen[1], 100.3, 1e-9);
    EXPECT_DOUBLE_EQ(q.now(), 101.0);
}

TEST(VirtualMainQueue, CancelledTimersNeverFire) {
    VirtualMainQueue q;
    int fired = 0;
    auto handle = q.postAfter(Seconds(1.0), [&] { ++fired; });
    EXPECT_TRUE(handle.isActive());
    handle.cancel();
    EXPECT_FALSE(handle.isActive());
    q.advance(5.0);
    EXPECT_EQ(fired, 0);
    EXPECT_EQ(q.pendingCount(), 0u);
}

TEST(VirtualMainQueue, RepeatingTimerFiresEachIntervalAndCanCancelItself) {
    VirtualMainQueue q;
    int ticks = 0;
    vocle::TimerHandle handle;
    handle = q.scheduleRepeating(Seconds(0.05), [&] {
        if (++ticks == 30) handle.cancel();
    });
    q.advance(0.049);
    EXPECT_EQ(ticks, 0);
    q.advance(10.0);
    EXPECT_EQ(ticks, 30);
    EXPECT_FALSE(handle.isActive());
}

TEST(VirtualMainQueue, OneShotHandleIsInactiveOnceFired) {
    VirtualMainQueue q;
    auto handle = q.postAfter(Seconds(0.1), [] {});
    q.advance(0.1);
    EXPECT_FALSE(handle.isActive());
    EXPECT_FALSE(handle.isNull());
}

TEST(VirtualMainQueue, SettingTheWallClockNeitherFiresNorHoldsBackATimer) {
    VirtualMainQueue q(1000.0);
    std::vector<double> firedAtWall;
    q.postAfter(Seconds(10), [&] { firedAtWall.push_back(q.now()); });
    q.shiftWallClock(Seconds(86400));
    q.runUntilIdle();
    EXPECT_DOUBLE_EQ(q.now(), 87400.0);
    q.advance(9.9);
    EXPECT_TRUE(firedAtWall.empty()) << "a wall clock set a day ahead fired the timer";
    q.shiftWallClock(Seconds(-2 * 86400.0));
    q.advance(0.1);
    ASSERT_EQ(firedAtWall.size(), 1u) << "a wall clock set back held the timer";
    EXPECT_NEAR(firedAtWall[0], 1010.0 - 86400.0, 1e-6);
    EXPECT_NEAR(q.monotonicNow().time_since_epoch().count(), 1010.0, 1e-9);
}

TEST(VirtualMainQueue, TheThreadThatRunsTheQueueIsItsCurrentThread) {
    VirtualMainQueue q;
    bool currentInTask = false;
    q.post([&] { currentInTask = q.isCurrent(); });
    std::thread runner([&] { q.runUntilIdle(); });
    runner.join();
    EXPECT_TRUE(currentInTask);
    EXPECT_FALSE(q.isCurrent()) << "the creating thread stopped being current once another thread ran it";
    q.runUntilIdle();
    EXPECT_TRUE(q.isCurrent());
}
