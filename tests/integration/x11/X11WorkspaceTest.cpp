#include "platform/x11/X11Workspace.h"

#include <gtest/gtest.h>

#include "X11TestSession.h"
#include "foundation/Clock.h"
#include "foundation/RunLoopMainQueue.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using namespace std::chrono_literals;
using testing::Spawned;
using testing::TempDir;
using testing::TestDisplay;

class X11WorkspaceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        VOCLE_REQUIRE_PROGRAMS("Xvfb", "openbox", "xterm");
        display = std::make_unique<TestDisplay>(dir.path());
        // One of the two windows has an installed desktop file, the other none.
        testing::writeText(dir / "applications/vocle-probe-one.desktop",
                           "[Desktop Entry]\nType=Application\nName=Probe One\nExec=xterm\n"
                           "StartupWMClass=VocleProbeOne\n");
        index = std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{dir / "applications"});
    }

    std::unique_ptr<Spawned> startClient(const std::string& className) {
        auto client = std::make_unique<Spawned>(
            std::vector<std::string>{"xterm", "-class", className, "-e", "sleep", "600"},
            std::map<std::string, std::string>{{"DISPLAY", display->name()}}, dir / (className + ".log"));
        EXPECT_TRUE(testing::pollUntil([&] { return display->clientWindowOfClass(className) != None; }, 20s))
            << className << " never mapped a window";
        return client;
    }

    // Runs the main queue until `done` or the deadline.
    bool runUntil(const std::function<bool()>& done, double seconds = 10) {
        return queue.runUntil(done, Seconds(seconds));
    }

    TempDir dir;
    std::unique_ptr<TestDisplay> display;
    std::shared_ptr<DesktopEntryIndex> index;
    SystemClock clock;
    RunLoopMainQueue queue{clock};
};

TEST_F(X11WorkspaceTest, FollowsTheActiveWindowAcrossApplications) {
    auto one = startClient("VocleProbeOne");
    auto two = startClient("VocleProbeTwo");
    const Window oneWindow = display->clientWindowOfClass("VocleProbeOne");
    const Window twoWindow = display->clientWindowOfClass("VocleProbeTwo");

    auto workspace = X11Workspace::open(queue, index, display->name());
    ASSERT_NE(workspace, nullptr);
    std::vector<std::optional<RunningApplication>> activations;
    auto subscription = workspace->observeActivations(
        [&](const std::optional<RunningApplication>& app) { activations.push_back(app); });

    display->activate(oneWindow);
    ASSERT_TRUE(runUntil([&] { return !activations.empty() && activations.back() &&
                                      activations.back()->bundleIdentifier == "vocle-probe-one"; }))
        << "no activation of the first window";
    const RunningApplication first = *activations.back();
    EXPECT_EQ(first.localizedName, "Probe One");
    EXPECT_EQ(first.processIdentifier, one->pid());
    EXPECT_EQ(workspace->frontmostApplication(), first);

    const size_t before = activations.size();
    display->activate(twoWindow);
    ASSERT_TRUE(runUntil([&] { return activations.size() > before; })) << "no activation of the second window";
    ASSERT_TRUE(activations.back().has_value());
    // No desktop file: the class, lowercased, is the id and the name.
    EXPECT_EQ(activations.back()->bundleIdentifier, "vocleprobetwo");
    EXPECT_EQ(activations.back()->localizedName, "vocleprobetwo");
    EXPECT_EQ(activations.back()->processIdentifier, two->pid());
    EXPECT_EQ(workspace->frontmostApplication(), activations.back());

    display->activate(oneWindow);
    ASSERT_TRUE(runUntil([&] { return activations.size() > before + 1; }));
    EXPECT_EQ(activations.back(), first);
    // Each change of application is told once.
    EXPECT_EQ(activations.size(), before + 2);

    const auto running = workspace->runningApplications();
    auto has = [&](const std::string& id, int pid) {
        return std::any_of(running.begin(), running.end(), [&](const RunningApplication& a) {
            return a.bundleIdentifier == id && a.processIdentifier == pid;
        });
    };
    EXPECT_TRUE(has("vocle-probe-one", one->pid()));
    EXPECT_TRUE(has("vocleprobetwo", two->pid()));
    EXPECT_EQ(running.size(), 2u);

    // A window that goes away takes its application out of the list.
    two.reset();
    EXPECT_TRUE(testing::pollUntil([&] { return workspace->runningApplications().size() == 1; }, 10s));
}

TEST_F(X11WorkspaceTest, StopsTellingOnceUnsubscribedOrDestroyed) {
    auto one = startClient("VocleProbeOne");
    auto two = startClient("VocleProbeTwo");
    auto workspace = X11Workspace::open(queue, index, display->name());
    ASSERT_NE(workspace, nullptr);
    int kept = 0, dropped = 0;
    auto keep = workspace->observeActivations([&](const auto&) { ++kept; });
    auto drop = workspace->observeActivations([&](const auto&) { ++dropped; });
    drop.reset();

    display->activate(display->clientWindowOfClass("VocleProbeOne"));
    ASSERT_TRUE(testing::pollUntil([&] { return display->activeWindow() == display->clientWindowOfClass("VocleProbeOne"); }, 10s));
    display->activate(display->clientWindowOfClass("VocleProbeTwo"));
    ASSERT_TRUE(runUntil([&] { return kept >= 1 && workspace->frontmostApplication() &&
                                      workspace->frontmostApplication()->bundleIdentifier == "vocleprobetwo"; }));
    runUntil([] { return false; }, 0.3);
    EXPECT_EQ(dropped, 0);

    // Destroying the workspace joins its watcher; activations queued before are dropped.
    workspace.reset();
    display->activate(display->clientWindowOfClass("VocleProbeOne"));
    const int before = kept;
    runUntil([] { return false; }, 0.3);
    EXPECT_EQ(kept, before);
}

TEST(X11WorkspaceOpen, ReportsADisplayThatCannotBeOpened) {
    SystemClock clock;
    RunLoopMainQueue queue(clock);
    auto index = std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{});
    EXPECT_EQ(X11Workspace::open(queue, index, ":99.7"), nullptr);
}

}  // namespace
}  // namespace vocle
