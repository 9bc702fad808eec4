// The end of a desktop session: the session bus and the X server go away under a running app, in either
// order, while its background threads (X watchers, the sound server loop, the HTTP worker) are busy.
// The app must end with status 0 or 1 each time, never by a signal.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "integration/app/VocleProcess.h"

namespace vocle::testing {
namespace {

int rounds() {
    if (const char* text = std::getenv("VOCLE_TEARDOWN_ROUNDS")) return std::max(1, std::atoi(text));
    return 100;  // 50 in each order
}

TEST(VocleTeardown, LosingTheBusAndTheXServerInEitherOrderNeverCrashes) {
    TempDir home;
    std::filesystem::create_directories(home.path() / "data");
    std::filesystem::create_directories(home.path() / "config");
    std::vector<std::string> env{
        "XDG_DATA_HOME=" + (home.path() / "data").string(),
        "XDG_CONFIG_HOME=" + (home.path() / "config").string(),
        // Nothing listens there: the sign-in check fails on the HTTP worker meanwhile.
        "VOCLE_BACKEND_URL=http://127.0.0.1:9", "QT_QPA_PLATFORM=xcb"};
    if (const auto pulse = testPulseServer(); !pulse.empty()) env.push_back(pulse);
    const std::string binary = (std::filesystem::path(VOCLE_BINARY_DIR) / "app" / "vocle").string();

    int busFirst = 0, xFirst = 0, exitedOne = 0;
    for (int round = 0; round < rounds(); ++round) {
        DesktopSession::Options options;
        options.windowManager = false;
        DesktopSession session(options);
        const pid_t app = session.spawn({binary}, env);
        const auto logFile = session.workDir() / "vocle.log";
        ASSERT_TRUE(pollUntil(
            [&] { return readFile(logFile).find("Application did finish launching") != std::string::npos; },
            20, {}, 0.01))
            << "round " << round << ":\n"
            << readFile(logFile);

        const bool busGoesFirst = round % 2 == 0;
        if (busGoesFirst) {
            session.endSessionBus();
            session.endXServer();
            ++busFirst;
        } else {
            session.endXServer();
            session.endSessionBus();
            ++xFirst;
        }
        const auto status = session.waitForExit(app, 15);
        ASSERT_TRUE(status) << "round " << round << ": still running after the session ended";
        ASSERT_FALSE(WIFSIGNALED(*status)) << "round " << round << " (" << (busGoesFirst ? "bus" : "X server")
                                           << " first): killed by signal " << WTERMSIG(*status) << "\n"
                                           << readFile(logFile);
        ASSERT_TRUE(WIFEXITED(*status));
        EXPECT_LE(WEXITSTATUS(*status), 1) << "round " << round;
        if (WEXITSTATUS(*status) == 1) ++exitedOne;
    }
    EXPECT_EQ(busFirst + xFirst, rounds());
    // Losing the session is not a normal quit.
    EXPECT_EQ(exitedOne, rounds());
}

// The session bus alone goes (the X server stays): the app notices and leaves with status 1.
TEST(VocleTeardown, LosingOnlyTheSessionBusEndsWithStatusOne) {
    TempDir home;
    std::filesystem::create_directories(home.path() / "data");
    std::vector<std::string> env{"XDG_DATA_HOME=" + (home.path() / "data").string(),
                                 "XDG_CONFIG_HOME=" + (home.path() / "config").string(),
                                 "VOCLE_BACKEND_URL=http://127.0.0.1:9", "QT_QPA_PLATFORM=xcb"};
    DesktopSession::Options options;
    options.windowManager = false;
    DesktopSession session(options);
    const pid_t app =
        session.spawn({(std::filesystem::path(VOCLE_BINARY_DIR) / "app" / "vocle").string()}, env);
    const auto logFile = session.workDir() / "vocle.log";
    ASSERT_TRUE(pollUntil(
        [&] { return readFile(logFile).find("Application did finish launching") != std::string::npos; }, 20,
        {}, 0.01));
    session.endSessionBus();
    const auto status = session.waitForExit(app, 10);
    ASSERT_TRUE(status) << readFile(logFile);
    ASSERT_TRUE(WIFEXITED(*status)) << readFile(logFile);
    EXPECT_EQ(WEXITSTATUS(*status), 1);
    EXPECT_NE(readFile(logFile).find("❌ Lost the session bus"), std::string::npos);
}

}  // namespace
}  // namespace vocle::testing
