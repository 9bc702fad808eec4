#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

#include "backend/HttpTransport.h"

namespace vocle {
namespace {

size_t threadCount() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                             std::filesystem::directory_iterator()));
}

// Every backend client owns a transport; tests that build one but never send must not run a network thread.
TEST(HttpTransportTest, RunsNoThreadUntilTheFirstTransfer) {
    const size_t before = threadCount();
    {
        HttpTransport transport;
        EXPECT_EQ(threadCount(), before);
        transport.cancel(42);  // an unknown transfer: nothing to wake
        EXPECT_EQ(threadCount(), before);
    }
    EXPECT_EQ(threadCount(), before);
}

}  // namespace
}  // namespace vocle
