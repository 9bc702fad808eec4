#include "platform/linux/XdgUrlOpener.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "foundation/Log.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using testing::TempDir;

// Stands in for xdg-open: records its arguments, fails for one address.
std::string writeOpener(const TempDir& dir) {
    const auto script = dir / "fake-xdg-open";
    testing::writeText(script, "#!/bin/sh\nprintf '%s|' \"$@\" >> \"" + (dir / "opened").string() +
                                   "\"\necho >> \"" + (dir / "opened").string() +
                                   "\"\n[ \"$1\" = \"https://fails.example\" ] && exit 4\nexit 0\n");
    chmod(script.c_str(), 0755);
    return script.string();
}

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

TEST(XdgUrlOpenerTest, PassesTheAddressAsOneArgumentAndLogsFailures) {
    TempDir dir;
    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    XdgUrlOpener opener(writeOpener(dir));

    opener.openURL("https://example.org/a b?x=1&y=$HOME;true");
    ASSERT_TRUE(eventually([&] { return testing::readText(dir / "opened").find('\n') != std::string::npos; }));
    EXPECT_EQ(testing::readText(dir / "opened"), "https://example.org/a b?x=1&y=$HOME;true|\n");

    opener.openURL("https://fails.example");
    EXPECT_TRUE(eventually([&] {
        return logs->contains("❌ XdgUrlOpener: " + dir.path().string() +
                              "/fake-xdg-open could not open https://fails.example (exit status 4)");
    }));
}

TEST(XdgUrlOpenerTest, RefusesWhatXdgOpenWouldMisreadAndReportsAMissingProgram) {
    TempDir dir;
    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    XdgUrlOpener opener(writeOpener(dir));
    opener.openURL("--help");
    opener.openURL("");
    EXPECT_TRUE(logs->contains("❌ XdgUrlOpener: Refusing to open \"--help\""));
    EXPECT_TRUE(logs->contains("❌ XdgUrlOpener: Refusing to open \"\""));

    XdgUrlOpener missing((dir / "no-such-program").string());
    missing.openURL("https://example.org");
    EXPECT_TRUE(eventually([&] { return logs->contains("no-such-program"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(std::filesystem::exists(dir / "opened"));
}

}  // namespace
}  // namespace vocle
