#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "core/AppConstants.h"
#include "foundation/DispatchQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/VirtualMainQueue.h"
#include "modes/AutoModeManager.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeWorkspace.h"
#include "platform/wayland/ToplevelTracker.h"
#include "platform/wayland/WaylandWorkspace.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::wayland;
using namespace vocle::testing;

namespace {

class FixedRandom final : public RandomSource {
  public:
    int next(int) override { return 1; }
};

// The compositor's side is played by calling the tracker as the foreign-toplevel events would arrive.
class ToplevelTrackerTest : public ::testing::Test {
  protected:
    ToplevelTrackerTest() {
        std::filesystem::create_directories(apps.path());
        writeEntry("org.codeberg.dnkl.foot.desktop", "Foot", "foot");
        writeEntry("org.gnome.TextEditor.desktop", "Text Editor", "");
        index = std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{apps.path()});
    }
    void writeEntry(const std::string& file, const std::string& name, const std::string& wmClass) {
        std::ofstream(apps.path() / file)
            << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=true\n"
            << (wmClass.empty() ? "" : "StartupWMClass=" + wmClass + "\n");
    }
    // A new window with its first batch of state, as the compositor announces it.
    void open(uint64_t handle, const std::string& appId, bool activated) {
        tracker.added(handle);
        tracker.appId(handle, appId);
        tracker.activated(handle, activated);
        tracker.done(handle);
    }
    void focus(uint64_t from, uint64_t to) {
        tracker.activated(from, false);
        tracker.done(from);
        tracker.activated(to, true);
        tracker.done(to);
    }
    std::vector<std::string> ids() const {
        std::vector<std::string> out;
        for (const auto& app : activations) out.push_back(app.bundleIdentifier.value_or("<none>"));
        return out;
    }

    TempDir apps;
    std::shared_ptr<DesktopEntryIndex> index;
    std::vector<RunningApplication> activations;
    ToplevelTracker tracker{
        [this](const std::string& appId) { return WaylandWorkspace::resolve(*index, appId); },
        [this](const RunningApplication& app) { activations.push_back(app); }};
};

TEST_F(ToplevelTrackerTest, ActivationsNameTheDesktopEntryAndRepeatOnlyForAnotherApplication) {
    open(1, "foot", true);
    EXPECT_EQ(ids(), std::vector<std::string>{"org.codeberg.dnkl.foot"}) << "matched through StartupWMClass";
    EXPECT_EQ(activations[0].localizedName, "Foot");
    open(2, "foot", false);
    focus(1, 2);
    EXPECT_EQ(ids().size(), 1u) << "a second window of the same application is no activation";
    open(3, "org.gnome.TextEditor", false);
    focus(2, 3);
    open(4, "com.example.Unknown", false);
    focus(3, 4);
    EXPECT_EQ(ids(), (std::vector<std::string>{"org.codeberg.dnkl.foot", "org.gnome.TextEditor",
                                               "com.example.Unknown"}));
    EXPECT_EQ(tracker.focusedAppId(), "com.example.Unknown");
}

TEST_F(ToplevelTrackerTest, StateAppliesOnlyAtDoneAndClosingTheFocusedWindowClearsTheFocus) {
    open(1, "foot", true);
    tracker.added(2);
    tracker.appId(2, "org.gnome.TextEditor");
    tracker.activated(2, true);
    EXPECT_EQ(ids().size(), 1u) << "nothing applies before done";
    tracker.done(2);
    EXPECT_EQ(ids().size(), 2u);
    tracker.closed(2);
    EXPECT_FALSE(tracker.focusedAppId());
    // Running applications: one entry each, in order of appearance.
    ASSERT_EQ(tracker.running().size(), 1u);
    EXPECT_EQ(tracker.running()[0].bundleIdentifier, "org.codeberg.dnkl.foot");
    tracker.appId(1, "late");
    tracker.closed(1);
    tracker.done(1);  // events for a closed window are ignored
    EXPECT_TRUE(tracker.running().empty());
}

TEST_F(ToplevelTrackerTest, FocusingAWindowOfABoundApplicationSwitchesTheMode) {
    // The workspace's activations feed the automatic mode switching as on X11.
    FakeWorkspace workspace;
    VirtualMainQueue queue;
    InlineDispatchQueue background;
    NotificationCenter center;
    FakeBrowserScripting scripts;
    FakeAccessibility ax;
    FixedRandom random;
    AutoModeManager autoModes(queue, background, center, workspace, scripts, ax, random);
    std::vector<std::string> switched;
    auto observer = center.addObserver(
        Notifications::autoSwitchModeForApplication,
        [&](const Notification& n) { switched.push_back(std::get<std::string>(n.userInfo.at("bundleId"))); });
    ToplevelTracker feeding{
        [this](const std::string& appId) { return WaylandWorkspace::resolve(*index, appId); },
        [&](const RunningApplication& app) { workspace.activate(app); }};
    feeding.added(7);
    feeding.appId(7, "foot");
    feeding.activated(7, true);
    feeding.done(7);
    queue.runUntilIdle();
    EXPECT_EQ(switched, std::vector<std::string>{"org.codeberg.dnkl.foot"});
}

}  // namespace
