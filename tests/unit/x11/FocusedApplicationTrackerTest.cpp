#include "platform/linux/FocusedApplicationTracker.h"

#include <gtest/gtest.h>

#include <set>

namespace vocle {
namespace {

constexpr int kOwn = 100;

// Processes 1..: "app<pid>"; a process in `gone` cannot be named any more.
class FocusedApplicationTrackerTest : public ::testing::Test {
  protected:
    FocusedApplicationTracker tracker{
        kOwn,
        [this](int pid, const std::string& accessibleName) -> std::optional<RunningApplication> {
            ++resolutions;
            if (gone.count(pid)) return std::nullopt;
            return RunningApplication{"app" + std::to_string(pid), accessibleName, 0};
        },
        [this](const RunningApplication& app) { activations.push_back(app); }};
    std::vector<RunningApplication> activations;
    std::set<int> gone;
    int resolutions = 0;

    std::vector<std::string> activatedIds() const {
        std::vector<std::string> ids;
        for (const auto& app : activations) ids.push_back(app.bundleIdentifier.value_or("?"));
        return ids;
    }
};

TEST_F(FocusedApplicationTrackerTest, ReportsEachChangeOfApplicationOnce) {
    tracker.activated(1, "One");
    // Window activation, then focus inside it, then focus moving between its widgets.
    tracker.activated(1, "One");
    tracker.activated(1, "One");
    tracker.activated(2, "Two");
    tracker.activated(1, "One");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app1", "app2", "app1"}));
    EXPECT_EQ(activations[0], (RunningApplication{"app1", "One", 1})) << "named with its process";
    EXPECT_EQ(tracker.frontmost(), activations.back());
    EXPECT_EQ(resolutions, 2) << "a process is named once";
}

TEST_F(FocusedApplicationTrackerTest, IgnoresOurOwnProcessAndUnknownProcesses) {
    tracker.activated(1, "One");
    tracker.activated(kOwn, "Vocle");
    tracker.activated(0, "no process");
    tracker.activated(-1, "no process");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app1"}));
    EXPECT_EQ(tracker.frontmost()->processIdentifier, 1) << "our windows never take the front";
    // Back from our own window to the same application: nothing new.
    tracker.activated(1, "One");
    EXPECT_EQ(activations.size(), 1u);
    tracker.appeared(kOwn, "Vocle");
    EXPECT_EQ(tracker.running().size(), 1u);
}

TEST_F(FocusedApplicationTrackerTest, AProcessThatCannotBeNamedIsNoActivation) {
    gone.insert(3);
    tracker.activated(1, "One");
    tracker.activated(3, "Gone");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app1"}));
    EXPECT_EQ(tracker.frontmost()->processIdentifier, 1);
    // Asked again next time: it may simply have been too early.
    gone.clear();
    tracker.activated(3, "Late");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app1", "app3"}));
}

TEST_F(FocusedApplicationTrackerTest, DeactivationClearsTheFrontOnlyForTheApplicationInFront) {
    tracker.activated(1, "One");
    tracker.activated(2, "Two");
    // One's deactivation arrives late, from its own connection.
    tracker.deactivated(1);
    EXPECT_EQ(tracker.frontmost()->processIdentifier, 2);
    // Two loses the focus to a window the bus does not see.
    tracker.deactivated(2);
    EXPECT_FALSE(tracker.frontmost());
    // Coming back to Two is no news: it was the last one reported.
    tracker.activated(2, "Two");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app1", "app2"}));
    EXPECT_EQ(tracker.frontmost()->processIdentifier, 2);
}

TEST_F(FocusedApplicationTrackerTest, AnApplicationThatQuitsLeavesFrontAndList) {
    tracker.appeared(5, "Five");
    tracker.appeared(1, "One");
    tracker.activated(2, "Two");
    tracker.activated(1, "One");
    auto running = tracker.running();
    ASSERT_EQ(running.size(), 3u);
    EXPECT_EQ(running[0].processIdentifier, 5) << "in the order they appeared";
    EXPECT_EQ(running[1].processIdentifier, 1);
    EXPECT_EQ(running[2].processIdentifier, 2);
    EXPECT_EQ(tracker.processes(), (std::vector<int>{1, 2, 5}));

    tracker.left(1);
    EXPECT_FALSE(tracker.frontmost());
    EXPECT_EQ(tracker.running().size(), 2u);
    // A new process under the same number is another application, named afresh and reported.
    tracker.activated(1, "Renamed");
    EXPECT_EQ(activatedIds(), (std::vector<std::string>{"app2", "app1", "app1"}));
    EXPECT_EQ(activations.back().localizedName, "Renamed");
    // An application that quits while another is in front changes nothing in front.
    tracker.left(2);
    EXPECT_EQ(tracker.frontmost()->processIdentifier, 1);
    tracker.activated(5, "Five");
    EXPECT_EQ(activations.back().processIdentifier, 5);
}

}  // namespace
}  // namespace vocle
