#include <gtest/gtest.h>

#include <cmath>

#include "core/AppConstants.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

TEST(AudioRecordingServiceLevels, ThresholdIsReachedAtExactlyMinusForty) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(0.3);
    h.speak(-40.01f);
    h.queue.advance(1.0);
    EXPECT_FALSE(h.logs->contains("📈 Speech threshold crossed"));
    EXPECT_TRUE(h.e().isAbandonedTimerArmed());
    EXPECT_FALSE(h.e().isActiveTimerArmed());

    h.speak(-40.0f);
    h.queue.advance(0.05);
    EXPECT_FALSE(h.e().isAbandonedTimerArmed());
    EXPECT_TRUE(h.e().isActiveTimerArmed());
    EXPECT_TRUE(
        h.logs->contains("📈 Speech threshold crossed (-40.0 dBFS >= -40.0). Starting active timeout and "
                         "cancelling abandoned timeout."));
}

TEST(AudioRecordingServiceLevels, EachTickPublishesBarsAndTheLevelNotification) {
    EngineHarness h;
    std::vector<Notification> seen;
    auto sub = h.notifications.addObserver(Notifications::audioLevelUpdate,
                                           [&](const Notification& n) { seen.push_back(n); });
    h.start(h.mode());
    h.queue.advance(0.3);
    h.speak(-30.0f);
    h.queue.advance(0.05);
    ASSERT_FALSE(seen.empty());
    EXPECT_FLOAT_EQ(*seen.back().number("level"), -30.0f);
    EXPECT_NEAR(*seen.back().number("normalizedLevel"), 0.5, 1e-6);
    EXPECT_EQ(seen.back().sender, &h.e());
    // The harness's random source gives the middle of [0.8, 1.2], so each bar is the normalized level.
    for (float bar : h.e().audioLevels.get()) EXPECT_NEAR(bar, 0.5f, 1e-6);
    h.e().cancelRecording();
    EXPECT_EQ(h.e().audioLevels.get(), (std::vector<float>{0, 0, 0}));
}

TEST(AudioRecordingServiceLevels, ActiveTimeoutIsArmedOnceAndStopsSixHundredSecondsAfterTheFirstCrossing) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(10.0);
    h.speak(-20.0f);
    h.queue.advance(0.05);  // first crossing at t = 10.05
    ASSERT_TRUE(h.e().isActiveTimerArmed());
    h.speak(-60.0f);
    h.queue.advance(5.0);
    h.speak(-10.0f);
    h.queue.advance(1.0);
    EXPECT_EQ(h.logs->count("⏲️ Scheduling active-recording timeout in 600.0s"), 1u);

    h.queue.advance(600.0 - 6.0 - 0.01);
    EXPECT_TRUE(h.e().isRecording.get());
    EXPECT_TRUE(h.processor.calls.empty());
    h.queue.advance(0.02);
    EXPECT_TRUE(
        h.logs->contains("🕰️ Active recording timeout reached — auto-stopping and processing"));
    EXPECT_FALSE(h.e().isRecording.get());
    ASSERT_EQ(h.processor.calls.size(), 1u);
    EXPECT_EQ(h.sounds(), (std::vector<std::string>{"start", "stop"}));
    ASSERT_EQ(h.alerts.shown.size(), 1u);
    EXPECT_EQ(h.alerts.shown[0].title, "Recording time limit reached");
    EXPECT_EQ(
        h.alerts.shown[0].text,
        "We automatically stopped your recording after the maximum duration. Your audio will be processed "
        "as usual.");
    EXPECT_EQ(h.alerts.shown[0].buttons, std::vector<std::string>{"OK"});
}

TEST(AudioRecordingServiceLevels, AbandonedRecordingCancelsItselfAtSixtySecondsWithTheStopSound) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(59.99);
    EXPECT_TRUE(h.e().isRecording.get());
    h.queue.advance(0.02);
    EXPECT_TRUE(h.logs->contains(
        "🕰️ Abandoned recording timeout reached without speech — cancelling recording"));
    EXPECT_FALSE(h.e().isRecording.get());
    EXPECT_TRUE(h.logs->contains("❌ cancelRecording() called. isRecording=true"));
    EXPECT_EQ(h.sounds(), (std::vector<std::string>{"start", "stop"}));
    h.queue.advance(5.0);
    EXPECT_TRUE(h.processor.calls.empty());
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceLevels, TimersDoNothingOnceTheEngineIsGone) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(1.0);
    h.engine.reset();
    h.queue.advance(700.0);
    EXPECT_FALSE(h.logs->contains("Abandoned"));
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
}

// The system-audio sample handler writes the file and meters 20·log10 of the mean square.
TEST(AudioRecordingServiceLevels, SystemLevelScaleAndOwnSoundSilencing) {
    struct Case {
        std::vector<float> block;
        float expectDb;
    };
    std::vector<float> square(960), sine(960), zeros(960, 0.0f);
    for (size_t i = 0; i < 960; ++i) {
        square[i] = (i / 48) % 2 ? 1.0f : -1.0f;
        sine[i] = std::sin(2.0 * M_PI * 1000.0 * static_cast<double>(i) / 48000.0);
    }
    for (const auto& [block, expectDb] :
         std::vector<Case>{{zeros, -60.0f}, {square, 0.0f}, {sine, -6.0206f}}) {
        EngineHarness h;
        std::optional<double> level;
        auto sub = h.notifications.addObserver(Notifications::audioLevelUpdate,
                                               [&](const Notification& n) { level = n.number("level"); });
        h.capture.failSessions = true;
        h.start(h.mode(true));
        h.playback.players.back()->finish();
        h.queue.runUntilIdle();
        h.screen.lastStream().deliver(block, 1, 48000);
        h.queue.advance(0.06);
        ASSERT_TRUE(level);
        EXPECT_NEAR(*level, expectDb, 0.01);
    }

    // While our own sound plays the monitor would hear it: the file gets silence instead.
    EngineHarness h;
    std::optional<double> level;
    auto sub = h.notifications.addObserver(Notifications::audioLevelUpdate,
                                           [&](const Notification& n) { level = n.number("level"); });
    h.capture.failSessions = true;
    h.start(h.mode(true));
    ASSERT_EQ(h.sounds(), std::vector<std::string>{"start"});
    h.screen.lastStream().deliver(square, 1, 48000);
    h.queue.advance(0.06);
    EXPECT_EQ(level, -60.0);
    h.playback.players.back()->finish();
    h.queue.runUntilIdle();
    h.screen.lastStream().deliver(square, 1, 48000);
    h.queue.advance(0.06);
    EXPECT_EQ(level, 0.0);
    h.e().stopRecording();
    h.e().cancelRecording();  // closes the system file
    h.queue.runUntilIdle();
    auto written = readWav(h.file("vocle_sys_1700000000.wav"));
    ASSERT_EQ(written.frames(), 1920u);
    EXPECT_EQ(written.samples[10], 0.0f);
    EXPECT_EQ(written.samples[960 + 10], square[10]);
}

}  // namespace
