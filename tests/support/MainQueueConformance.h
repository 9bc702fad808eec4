#pragma once

// The behaviour every MainQueue must show, as a typed test suite. A folder instantiates it with a
// harness type that provides:
//   MainQueue& queue();
//   double now();                                       // the queue clock's monotonic reading
//   bool runUntil(std::function<bool()> done, double seconds);  // drives the queue, bounded
// Virtual harnesses move time inside runUntil; real ones wait for it.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/BindToMain.h"
#include "foundation/MainQueue.h"
#include "foundation/MainQueueCheck.h"
#include "foundation/Timer.h"

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
    q.postAfter(Seconds(0.120), record("late", 0.120));
    q.postAfter(Seconds(0.030), record("early", 0.030));
    auto cancelled = q.postAfter(Seconds(0.060), [&] { order.push_back("cancelled"); });
    q.postAfter(Seconds(0.060), record("middle", 0.060));
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
    for (int i = 0; i < 5; ++i) q.postAfter(Seconds(0.02), [&order, i] { order.push_back(i); });
    ASSERT_TRUE(this->h.runUntil([&] { return order.size() == 5; }, 5));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TYPED_TEST_P(MainQueueConformance, RepeatingTimerKeepsItsIntervalAndCanCancelItself) {
    auto& q = this->h.queue();
    std::vector<double> at;
    TimerHandle handle;
    const double start = this->h.now();
    handle = q.scheduleRepeating(Seconds(0.02), [&] {
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
    auto handle = q.postAfter(Seconds(0.01), [&] { ran = true; });
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
            q.postAfter(Seconds(0.01), [&] { ++ran; });
        });
    }
    for (auto& t : posters) t.join();
    EXPECT_TRUE(this->h.runUntil([&] { return ran == 204; }, 10));
    EXPECT_FALSE(offThread);
}

TYPED_TEST_P(MainQueueConformance, OwnedTimerIsCancelledWhenDestroyedOrRestarted) {
    auto& q = this->h.queue();
    std::vector<std::string> fired;
    {
        Timer dropped;
        dropped.start(q, Seconds(0.01), [&] { fired.push_back("dropped"); });
        EXPECT_TRUE(dropped.isActive());
    }
    Timer restarted;
    restarted.start(q, Seconds(0.01), [&] { fired.push_back("first"); });
    restarted.start(q, Seconds(0.03), [&] { fired.push_back("second"); });
    // A repeating timer whose owner goes away from inside a tick.
    int ticks = 0;
    auto repeating = std::make_unique<Timer>();
    repeating->startRepeating(q, Seconds(0.01), [&] {
        if (++ticks == 3) repeating.reset();
    });
    ASSERT_TRUE(this->h.runUntil([&] { return !fired.empty() && ticks >= 3; }, 5));
    this->h.runUntil([] { return false; }, 0.1);
    EXPECT_EQ(fired, (std::vector<std::string>{"second"}));
    EXPECT_EQ(ticks, 3);
    EXPECT_FALSE(restarted.isActive());
}

TYPED_TEST_P(MainQueueConformance, BoundCallbackRunsOnTheQueueAndIsDroppedOnceItsOwnerIsGone) {
    auto& q = this->h.queue();
    auto owner = std::make_unique<OwnerToken>();
    std::vector<std::string> got;
    std::atomic<bool> offThread{false};
    const auto queueThread = std::this_thread::get_id();
    auto callback = bindToMain(q, *owner, [&](int n, const std::string& text) {
        if (std::this_thread::get_id() != queueThread) offThread = true;
        got.push_back(std::to_string(n) + text);
    });
    std::thread([&] {
        callback(1, std::string("a"));
        callback(2, std::string("b"));
    }).join();
    ASSERT_TRUE(this->h.runUntil([&] { return got.size() == 2; }, 5));
    // One call queued while the owner lived, one made after it went: neither may run.
    std::thread([&] { callback(3, std::string("c")); }).join();
    owner.reset();
    std::thread([&] { callback(4, std::string("d")); }).join();
    this->h.runUntil([] { return false; }, 0.05);
    EXPECT_EQ(got, (std::vector<std::string>{"1a", "2b"}));
    EXPECT_FALSE(offThread);
}

TYPED_TEST_P(MainQueueConformance, OnlyTheQueueThreadIsCurrentAndOtherThreadsAreCaught) {
    auto& q = this->h.queue();
    std::mutex mutex;
    std::vector<std::string> violations;
    ScopedMainQueueViolationHandler handler([&](const char* where) {
        std::lock_guard lock(mutex);
        violations.emplace_back(where);
    });
    EXPECT_TRUE(q.isCurrent());
    std::atomic<bool> currentOnWorker{true};
    std::thread([&] {
        currentOnWorker = q.isCurrent();
        checkOnMainQueue(q, "worker");
    }).join();
    checkOnMainQueue(q, "queue thread");
    bool currentInTask = false;
    q.post([&] { currentInTask = q.isCurrent(); });
    ASSERT_TRUE(this->h.runUntil([&] { return currentInTask; }, 5));
    EXPECT_FALSE(currentOnWorker);
    std::lock_guard lock(mutex);
    EXPECT_EQ(violations, (std::vector<std::string>{"worker"}));
}

REGISTER_TYPED_TEST_SUITE_P(MainQueueConformance, PostsRunInOrderAndNestedPostsAreHonoured,
                            DelayedCallsRunByDueTimeNotBeforeItAndCancelledOnesNever,
                            SameDueTimeRunsInPostOrder, RepeatingTimerKeepsItsIntervalAndCanCancelItself,
                            OneShotHandleIsInactiveOnceFired, PostsFromOtherThreadsAllRunOnTheQueue,
                            OwnedTimerIsCancelledWhenDestroyedOrRestarted,
                            BoundCallbackRunsOnTheQueueAndIsDroppedOnceItsOwnerIsGone,
                            OnlyTheQueueThreadIsCurrentAndOtherThreadsAreCaught);

}  // namespace vocle::testing
