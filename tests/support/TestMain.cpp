#include <gtest/gtest.h>

#include "foundation/Log.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Keep test output readable: log lines go nowhere unless a test captures them.
    class Silent final : public vocle::LogSink {
        void write(std::string_view) override {}
    };
    vocle::setLogSink(std::make_shared<Silent>());
    return RUN_ALL_TESTS();
}
