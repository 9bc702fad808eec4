#include <gtest/gtest.h>

#include "foundation/Log.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Keep test output readable: log lines go nowhere unless a test captures them.
    vocle::setLogSink(std::make_shared<vocle::DiscardLogSink>());
    return RUN_ALL_TESTS();
}
