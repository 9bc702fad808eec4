#pragma once

// The behaviour every MainQueue must show, as a typed test suite. A folder instantiates it with a
// harness type that provides:
//   MainQueue& queue();
//   double now();                                       // the queue's clock
//   bool runUntil(std::function<bool()> done, double seconds);  // drives the queue, bounded
// Virtual harnesses move time inside runUntil; real ones wait for it.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/MainQueue.h"

namespace vocle::testing {

template <class Harness>
class MainQueueConformance : public ::testing::Test {
protected:
    Harness h;
};

TYPED_TEST_SUITE_P(MainQueueConformance);

TYPED_TEST_P(MainQueueConformance, PostsRunInOrderAndNestedPostsAreHonoured) {
    auto& q = this->h.queue();
    std::vector<std::string> order;
    q.post([&] {
        order.push_back("a");
        q.post([&] { order.push_back("nested"); });
    });
    q.post([&] { order.push_back("b"); });
    ASSERT_TRUE(this->h.runUntil([&] { return order.size() == 3; }, 5));
    EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "nested"}));
}

TYPED_TEST_P(MainQueueConformance, DelayedCallsRunByDueTimeNotBeforeItAndCancelledOnesNever) {
    auto& q = this->h.queue();
    std::vector<std::string> order;
    std::vector<double> lateness;
    const double start = this->h.now();
    auto record = [&](std::string name, double delay) {
        return [&, name, delay] {
            order.push_back(name);
            lateness.push_back(this->h.now() - (start + delay));
        };
    };
    q.postAfter(0.120, record("late", 0.120));
    q.postAfter(0.030, record("early", 0.030));
    auto cancelled = q.postAfter(0.060, [&] { order.push_back("cancelled"); });
    q.postAfter(0.060, record("middle", 0.060));
    cancelled.cancel();
    EXPECT_FALSE(cancelled.isActive());
    ASSERT_TRUE(this->h.runUntil([&] { return order.size() == 3; }, 5));
    // Give a wrongly kept cancelled timer its chance to show up.
    this->h.runUntil([] { return false; }, 0.1);
    EXPECT_EQ(order, (std::vector<std::string>{"early", "middle", "late"}));
    for (double late : lateness) {
        EXPECT_GE(late, -1e-6);   // never early
        EXPECT_LT(late, 0.25);    // millisecond timers, with room for a loaded machine
    }
}

TYPED_TEST_P(MainQueueConformance, SameDueTimeRunsInPostOrder) {
    auto& q = this->h.queue();
    std::vector<int> order;
    // Equal delays posted back to back: the clock may or may not move between them, order must hold.
    for (int i = 0; i < 5; ++i) q.postAfter(0.02, [&order, i] { order.push_back(i); });
    ASSERT_TRUE(this->h.runUntil([&] { return order.size() == 5; }, 5));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TYPED_TEST_P(MainQueueConformance, RepeatingTimerKeepsItsIntervalAndCanCancelItself) {
    auto& q = this->h.queue();
    std::vector<double> at;
    TimerHandle handle;
    const double start = this->h.now();
    handle = q.scheduleRepeating(0.02, [&] {
        at.push_back(this->h.now() - start);
        if (at.size() == 10) handle.cancel();
    });
    ASSERT_TRUE(this->h.runUntil([&] { return at.size() == 10; }, 5));
    this->h.runUntil([] { return false; }, 0.08);
    EXPECT_EQ(at.size(), 10u);
    EXPECT_FALSE(handle.isActive());
    // The schedule does not drift: the n-th tick is due at n intervals, whenever the earlier ones ran.
    EXPECT_GE(at.front(), 0.02 - 1e-6);
    EXPECT_GE(at.back(), 0.20 - 1e-6);
    EXPECT_LT(at.back(), 0.20 + 0.25);
}

TYPED_TEST_P(MainQueueConformance, OneShotHandleIsInactiveOnceFired) {
    auto& q = this->h.queue();
    bool ran = false;
    auto handle = q.postAfter(0.01, [&] { ran = true; });
    EXPECT_TRUE(handle.isActive());
    ASSERT_TRUE(this->h.runUntil([&] { return ran; }, 5));
    EXPECT_FALSE(handle.isActive());
    EXPECT_FALSE(handle.isNull());
}

TYPED_TEST_P(MainQueueConformance, PostsFromOtherThreadsAllRunOnTheQueue) {
    auto& q = this->h.queue();
    std::atomic<int> ran{0};
    std::atomic<bool> offThread{false};
    const auto queueThread = std::this_thread::get_id();
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i) {
        posters.emplace_back([&] {
            for (int k = 0; k < 50; ++k) {
                q.post([&] {
                    if (std::this_thread::get_id() != queueThread) offThread = true;
                    ++ran;
                });
            }
            q.postAfter(0.01, [&] { ++ran; });
        });
    }
    for (auto& t : posters) t.join();
    EXPECT_TRUE(this->h.runUntil([&] { return ran == 204; }, 10));
    EXPECT_FALSE(offThread);
}

REGISTER_TYPED_TEST_SUITE_P(MainQueueConformance, PostsRunInOrderAndNestedPostsAreHonoured,
                            DelayedCallsRunByDueTimeNotBeforeItAndCancelledOnesNever,
                            SameDueTimeRunsInPostOrder, RepeatingTimerKeepsItsIntervalAndCanCancelItself,
                            OneShotHandleIsInactiveOnceFired, PostsFromOtherThreadsAllRunOnTheQueue);

}  // namespace vocle::testing
