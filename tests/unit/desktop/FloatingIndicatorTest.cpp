#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "core/AppConstants.h"
#include "desktop/FloatingIndicatorManager.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeIndicatorPanels.h"

using namespace vocle;
using vocle::testing::FakeIndicatorPanels;

namespace {

struct IndicatorRig {
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    VirtualMainQueue queue;
    NotificationCenter center;
    double nextRandom = 0.5;
    FloatingRecordingView view{queue, center, [this] { return nextRandom; }};
    FakeIndicatorPanels panels;
    FloatingIndicatorManager manager{queue, panels, view};
    Observable<bool> isRecording{false};
    Observable<bool> isProcessing{false};

    IndicatorRig() {
        manager.setup(isRecording, isProcessing);
        queue.runUntilIdle();
    }
    vocle::testing::FakeIndicatorPanel& panel() { return *panels.created.at(0); }
    void level(float db) {
        center.post(Notifications::audioLevelUpdate, nullptr, {{"level", db}, {"normalizedLevel", 0.5f}});
        queue.runUntilIdle();
    }
};

TEST(FloatingIndicatorManager, SetupLogsAndHidesNothingWhenIdle) {
    IndicatorRig rig;
    EXPECT_TRUE(rig.logs->contains("💡 FloatingIndicatorManager: Setting up with AppState"));
    EXPECT_TRUE(rig.logs->contains("💡 FloatingIndicatorManager setup complete"));
    // The first combined value (false, false) arrives on the queue and schedules a hide check.
    EXPECT_TRUE(rig.logs->contains("💡 FloatingIndicatorManager: isRecording=false isProcessing=false"));
    rig.queue.advance(0.2);
    EXPECT_TRUE(rig.panels.created.empty());
}

TEST(FloatingIndicatorManager, RecordingShowsOnePanelAtTheRightEdgeAndReusesIt) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    ASSERT_EQ(rig.panels.created.size(), 1u);
    auto& panel = rig.panel();
    // 1440 x 900 screen: 1440 - 40 - 30 = 1370, 450 - 20 = 430.
    EXPECT_EQ(panel.frame, (ScreenRect{1370, 430, 40, 40}));
    EXPECT_TRUE(panel.visible);
    EXPECT_EQ(panel.level(), 101);
    EXPECT_DOUBLE_EQ(panel.alpha, 1.0);
    EXPECT_TRUE(rig.logs->contains("💡 Creating panel at right edge: (1370.0, 430.0, 40.0, 40.0)"));
    EXPECT_TRUE(rig.logs->contains("💡 Main screen: (0.0, 0.0, 1440.0, 900.0)"));
    EXPECT_TRUE(rig.logs->contains("💡 Window level set to: 101"));

    rig.manager.showIndicator();
    rig.queue.runUntilIdle();
    EXPECT_EQ(rig.panels.created.size(), 1u);
    EXPECT_EQ(rig.logs->count("💡 Reusing existing panel (no recreation)"), 1u);
}

TEST(FloatingIndicatorManager, FallsBackToTheFirstScreenAndFailsWithNone) {
    IndicatorRig rig;
    rig.panels.mainScreen.reset();
    rig.panels.screens = {ScreenRect{1920, 0, 1280, 1024}};
    rig.manager.showIndicator();
    ASSERT_EQ(rig.panels.created.size(), 1u);
    EXPECT_EQ(rig.panel().frame, (ScreenRect{3130, 492, 40, 40}));

    IndicatorRig none;
    none.panels.mainScreen.reset();
    none.panels.screens.clear();
    EXPECT_THROW(none.manager.showIndicator(), std::runtime_error);
}

TEST(FloatingIndicatorManager, StopThenProcessingWithinTheHideDelayKeepsThePanel) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    rig.isRecording.set(false);
    rig.queue.runUntilIdle();
    EXPECT_TRUE(rig.logs->contains("💡 RECORDING STOPPED - Hiding indicator"));
    EXPECT_TRUE(rig.manager.hasPendingHide());
    rig.queue.advance(0.1);
    rig.isProcessing.set(true);
    rig.queue.advance(1.0);
    EXPECT_EQ(rig.panel().fadeCount, 0);
    EXPECT_TRUE(rig.panel().visible);

    // Both flags down: hidden 0.15 s later with a 0.12 s fade, not before.
    rig.isProcessing.set(false);
    rig.queue.advance(0.149);
    EXPECT_EQ(rig.panel().fadeCount, 0);
    rig.queue.advance(0.002);
    EXPECT_EQ(rig.panel().fadeCount, 1);
    EXPECT_DOUBLE_EQ(rig.panel().lastFadeSeconds, 0.12);
    EXPECT_TRUE(rig.logs->contains("Hiding floating indicator"));
}

TEST(FloatingIndicatorManager, HideCheckThatFindsWorkAgainIsCancelled) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    rig.isRecording.set(false);
    // Processing starts at the very moment the check is due, before its state delivery arrives.
    rig.queue.postAfter(Seconds(0.15), [&] { rig.isProcessing.set(true); });
    rig.queue.runUntilIdle();
    rig.queue.advance(0.15);
    EXPECT_TRUE(rig.logs->contains("💡 Hide canceled due to state change"));
    EXPECT_EQ(rig.panel().fadeCount, 0);
}

TEST(FloatingIndicatorManager, SetupWhileRecordingShowsAtOnce) {
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    VirtualMainQueue queue;
    NotificationCenter center;
    FloatingRecordingView view{queue, center, [] { return 0.0; }};
    FakeIndicatorPanels panels;
    FloatingIndicatorManager manager{queue, panels, view};
    Observable<bool> recording{true}, processing{false};
    manager.setup(recording, processing);
    EXPECT_TRUE(logs->contains("💡 App is already recording - showing indicator immediately"));
    queue.runUntilIdle();
    ASSERT_EQ(panels.created.size(), 1u);
    EXPECT_TRUE(panels.created[0]->visible);
}

TEST(FloatingRecordingView, LevelMappingAtTheNoiseFloorAndAboveIt) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    ASSERT_TRUE(rig.view.isListening());

    rig.level(-45);
    EXPECT_TRUE(rig.view.isBelowNoiseFloor());
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), 0.05);
    for (int i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(rig.view.barHeight(i), 4);
    EXPECT_FALSE(rig.view.isAnimating());

    rig.level(-35);
    EXPECT_FALSE(rig.view.isBelowNoiseFloor());
    EXPECT_NEAR(rig.view.audioMultiplier(), 0.525, 1e-6);
    EXPECT_TRUE(rig.view.isAnimating());
    EXPECT_TRUE(rig.logs->contains("💡 FloatingRecordingView - Starting animation"));
    // First targets in [0.5, 1.0]: random 0.5 gives 0.75.
    EXPECT_DOUBLE_EQ(rig.view.simulatedLevels()[0], 0.75);
    EXPECT_NEAR(rig.view.barHeight(0), 0.75 * 25 * 0.525, 1e-6);

    rig.level(-10);
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), 1.0);

    // The wobble: every 0.2 s new targets in [0.7, 0.9].
    rig.nextRandom = 1.0;
    rig.queue.advance(0.2);
    EXPECT_DOUBLE_EQ(rig.view.simulatedLevels()[2], 0.9);
    rig.nextRandom = 0.0;
    rig.queue.advance(0.2);
    EXPECT_DOUBLE_EQ(rig.view.simulatedLevels()[1], 0.7);

    // Back under the floor: the timer stops and the bars flatten.
    rig.level(-40);
    EXPECT_FALSE(rig.view.isAnimating());
    EXPECT_EQ(rig.view.simulatedLevels(), (std::array<double, 3>{0.5, 0.5, 0.5}));
}

TEST(FloatingRecordingView, NormalizedLevelOnlyWithoutDecibelsAndOtherTypesAreIgnored) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    rig.center.post(Notifications::audioLevelUpdate, nullptr, {{"normalizedLevel", 0.8f}});
    rig.queue.runUntilIdle();
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), static_cast<double>(0.8f));
    EXPECT_FALSE(rig.view.isBelowNoiseFloor());

    rig.center.post(Notifications::audioLevelUpdate, nullptr, {{"level", std::string("-10")}});
    rig.center.post(Notifications::audioLevelUpdate, nullptr, {});
    rig.queue.runUntilIdle();
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), static_cast<double>(0.8f));

    rig.center.post(Notifications::audioLevelUpdate, nullptr, {{"normalizedLevel", 0.01f}});
    rig.queue.runUntilIdle();
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), 0.05);
    EXPECT_TRUE(rig.view.isBelowNoiseFloor());
}

TEST(FloatingRecordingView, SpinnerFromTheInstantRecordingStopsUntilProcessingEnds) {
    IndicatorRig rig;
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    EXPECT_TRUE(rig.view.showsBars());
    rig.level(-20);
    EXPECT_TRUE(rig.view.isAnimating());

    rig.isRecording.set(false);
    rig.queue.runUntilIdle();
    EXPECT_TRUE(rig.view.showsSpinner());
    EXPECT_FALSE(rig.view.isAnimating());
    EXPECT_FALSE(rig.view.isListening());
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), 0.05);

    rig.isProcessing.set(true);
    rig.queue.runUntilIdle();
    EXPECT_TRUE(rig.view.showsSpinner());
    rig.level(-10);  // nobody listens any more
    EXPECT_DOUBLE_EQ(rig.view.audioMultiplier(), 0.05);

    rig.isProcessing.set(false);
    rig.isRecording.set(true);
    rig.queue.runUntilIdle();
    EXPECT_FALSE(rig.view.forceSpinner());
    EXPECT_TRUE(rig.view.showsBars());
    EXPECT_TRUE(rig.logs->contains("💡 FloatingRecordingView - isRecording changed to: true"));
    EXPECT_TRUE(rig.logs->contains("💡 FloatingRecordingView - isProcessing changed to: true"));
}

}  // namespace

TEST(FloatingIndicatorManager, ACallFromAnotherThreadIsCaughtInDebugBuilds) {
#ifdef NDEBUG
    GTEST_SKIP() << "main-queue checks are compiled out of release builds";
#else
    IndicatorRig rig;
    std::vector<std::string> caught;
    ScopedMainQueueViolationHandler handler([&](const char* where) { caught.emplace_back(where); });
    rig.manager.showIndicator();  // on the queue's thread: allowed
    std::thread([&] { rig.manager.hideIndicator(); }).join();
    EXPECT_EQ(caught, (std::vector<std::string>{"hideIndicator"}));
#endif
}
