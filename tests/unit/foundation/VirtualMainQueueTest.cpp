#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/VirtualMainQueue.h"

using vocle::VirtualMainQueue;

TEST(VirtualMainQueue, SameDueTimeRunsInPostOrderAndNestedPostsAreHonoured) {
    VirtualMainQueue q;
    std::vector<std::string> order;
    q.postAfter(1.0, [&] { order.push_back("a"); });
    q.postAfter(1.0, [&] {
        order.push_back("b");
        q.post([&] { order.push_back("nested"); });
    });
    q.postAfter(0.5, [&] { order.push_back("early"); });
    q.post([&] { order.push_back("now"); });
    q.runUntilIdle();
    EXPECT_EQ(order, (std::vector<std::string>{"now"}));
    q.advance(1.0);
    EXPECT_EQ(order, (std::vector<std::string>{"now", "early", "a", "b", "nested"}));
}

TEST(VirtualMainQueue, ClockMovesToEachTimersDueTimeWhileAdvancing) {
    VirtualMainQueue q(100.0);
    std::vector<double> seen;
    q.postAfter(0.2, [&] {
        seen.push_back(q.now());
        q.postAfter(0.1, [&] { seen.push_back(q.now()); });
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
    auto handle = q.postAfter(1.0, [&] { ++fired; });
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
    handle = q.scheduleRepeating(0.05, [&] {
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
    auto handle = q.postAfter(0.1, [] {});
    q.advance(0.1);
    EXPECT_FALSE(handle.isActive());
    EXPECT_FALSE(handle.isNull());
}
