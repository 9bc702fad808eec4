#include <gtest/gtest.h>

#include <thread>

#include "foundation/MainQueueCheck.h"
#include "foundation/VirtualMainQueue.h"

using namespace vocle;

TEST(MainQueueCheckDeathTest, WithoutAHandlerACallFromAnotherThreadAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    VirtualMainQueue q;
    checkOnMainQueue(q, "on the queue thread");  // passes: the test would die here otherwise
    EXPECT_DEATH(
        {
            std::thread worker([&] { checkOnMainQueue(q, "worker"); });
            worker.join();
        },
        "");
}

TEST(MainQueueCheck, AScopedHandlerIsRemovedWithItsScope) {
    VirtualMainQueue q;
    int outer = 0, inner = 0;
    ScopedMainQueueViolationHandler first([&](const char*) { ++outer; });
    {
        ScopedMainQueueViolationHandler second([&](const char*) { ++inner; });
        std::thread([&] { checkOnMainQueue(q, "inner"); }).join();
    }
    std::thread([&] { checkOnMainQueue(q, "outer"); }).join();
    EXPECT_EQ(inner, 1);
    EXPECT_EQ(outer, 1);
}
