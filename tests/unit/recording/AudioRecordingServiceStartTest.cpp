#include <gtest/gtest.h>

#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

TEST(AudioRecordingServiceStart, MicrophoneOnlyTimelineWaitsPointTwoThenPointOneTwo) {
    EngineHarness h;
    h.start(h.mode());
    EXPECT_TRUE(h.logs->contains("TIMESTAMP: 1700000000.000000 - startRecording() called"));
    EXPECT_TRUE(h.logs->contains("🗂️ Will write audio to: " + h.file("vocle_1700000000.wav").string()));
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
    EXPECT_TRUE(h.e().isAbandonedTimerArmed());

    h.queue.advance(0.19);
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_FALSE(h.e().isRecording.get());
    h.queue.advance(0.01);
    ASSERT_EQ(h.capture.sessions.size(), 1u);
    EXPECT_TRUE(h.capture.lastSession().isRunning());
    EXPECT_TRUE(h.capture.lastSession().inputAdded);
    EXPECT_TRUE(h.e().isRecording.get());
    EXPECT_TRUE(h.e().isLevelTimerRunning());
    EXPECT_TRUE(h.logs->contains(
        "🎙️ Microphone recording started via AVCaptureSession (selected device: USB Microphone)"));

    h.queue.advance(0.119);
    EXPECT_EQ(h.capture.lastOutput().startCount, 0);
    h.queue.advance(0.001);
    EXPECT_EQ(h.capture.lastOutput().startCount, 1);
    EXPECT_EQ(h.capture.lastOutput().recordingTo, h.file("vocle_1700000000.wav"));
    EXPECT_TRUE(h.logs->contains("(channels ready)"));
}

TEST(AudioRecordingServiceStart, FileOutputWaitsForChannelsAndFallsBackAfterThirtyAttempts) {
    {
        EngineHarness h;
        const double sessionStart = h.t0() + 0.2;
        h.capture.configureOutput = [&](FakeCaptureFileOutput& o) {
            o.ready = [&h, sessionStart] { return h.queue.now() >= sessionStart + 0.12 + 4 * 0.05 - 1e-4; };
        };
        h.start(h.mode());
        h.queue.advance(0.2 + 0.12 + 3 * 0.05);
        EXPECT_EQ(h.capture.lastOutput().startCount, 0);
        h.queue.advance(0.05);
        EXPECT_EQ(h.capture.lastOutput().startCount, 1);
        for (int n : {30, 29, 28, 27}) {
            EXPECT_EQ(h.logs->count("attemptsLeft=" + std::to_string(n)), 1u) << n;
        }
        EXPECT_FALSE(h.logs->contains("attemptsLeft=26"));
    }
    {
        EngineHarness h;
        h.capture.configureOutput = [](FakeCaptureFileOutput& o) { o.channelsReadyOnCheck = 0; };
        h.start(h.mode());
        h.queue.advance(0.2 + 0.12 + 30 * 0.05 - 0.001);
        EXPECT_EQ(h.capture.lastOutput().startCount, 0);
        h.queue.advance(0.002);
        EXPECT_EQ(h.capture.lastOutput().startCount, 1);
        EXPECT_TRUE(
            h.logs->contains("⚠️ Channels not ready after waiting; starting output anyway as fallback"));
        h.queue.advance(0.3);
        EXPECT_TRUE(h.logs->contains("🔎 audioOutput.isRecording after 300ms (fallback): true"));
    }
}

TEST(AudioRecordingServiceStart, DeviceChoiceFollowsSettings) {
    EngineHarness h;
    h.capture.deviceList.push_back({"alsa_input.headset", "Headset Mic"});
    auto settings = h.storage.loadSettings();
    settings.useSystemDefaultAudio = false;
    settings.inputDeviceUID = "alsa_input.headset";
    h.storage.saveSettings(settings);
    h.start(h.mode());
    h.queue.advance(0.2);
    EXPECT_EQ(h.capture.lastSession().input->uid, "alsa_input.headset");

    // Unplugged: the default device records and the log names it "Default".
    settings.inputDeviceUID = "alsa_input.gone";
    h.storage.saveSettings(settings);
    h.e().cancelRecording();
    h.queue.runUntilIdle();
    h.start(h.mode());
    h.queue.advance(0.2);
    EXPECT_EQ(h.capture.lastSession().input->uid, "alsa_input.usb-mic");
    EXPECT_TRUE(h.logs->contains("🔧 Adding default audio input: USB Microphone"));
    EXPECT_TRUE(h.logs->contains("(selected device: Default)"));

    // The system default wins over a saved device when asked to.
    settings.useSystemDefaultAudio = true;
    settings.inputDeviceUID = "alsa_input.headset";
    h.storage.saveSettings(settings);
    h.e().cancelRecording();
    h.queue.runUntilIdle();
    h.start(h.mode());
    h.queue.advance(0.2);
    EXPECT_EQ(h.capture.lastSession().input->uid, "alsa_input.usb-mic");
}

TEST(AudioRecordingServiceStart, MissingMicrophoneStillRunsAndABrokenInputReportsTheError) {
    EngineHarness h;
    h.capture.defaultUid.reset();
    h.start(h.mode());
    h.queue.advance(0.2);
    EXPECT_FALSE(h.capture.lastSession().input.has_value());
    EXPECT_TRUE(h.capture.lastSession().isRunning());
    EXPECT_TRUE(h.e().isRecording.get());
    EXPECT_EQ(h.e().errorMessage.get(), AudioRecordingService::kNoMicrophoneMessage);

    EngineHarness b;
    b.capture.configureSession = [](FakeCaptureSession& s) {
        s.inputError = Error{"Pulse", 5, "No such entity"};
    };
    b.start(b.mode());
    b.queue.advance(0.5);
    EXPECT_EQ(b.e().errorMessage.get(), "Failed to configure audio input: No such entity");
    EXPECT_FALSE(b.capture.lastSession().isRunning());
    EXPECT_FALSE(b.e().isRecording.get());
    EXPECT_TRUE(b.logs->contains("Audio input error: No such entity"));
}

TEST(AudioRecordingServiceStart, RefusedStartsLeaveNothingRunning) {
    EngineHarness h;
    h.e().startRecording();
    EXPECT_EQ(h.e().errorMessage.get(), "No mode selected");

    h.capture.authorization = MicrophoneAuthorization::denied;
    h.start(h.mode(false, true));
    EXPECT_EQ(h.e().errorMessage.get(),
              "Microphone access is blocked. Allow Vocle to use the microphone in your desktop's privacy "
              "settings.");
    h.queue.advance(1.0);
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_FALSE(h.e().isRecording.get());

    h.capture.authorization = MicrophoneAuthorization::notDetermined;
    h.start(h.mode());
    EXPECT_EQ(h.capture.accessRequests, 1);
    EXPECT_FALSE(h.e().errorMessage.get().has_value());
    h.capture.answerAccess(false);
    h.queue.runUntilIdle();
    EXPECT_EQ(h.e().errorMessage.get(), "Microphone permission denied");

    h.start(h.mode());
    h.capture.answerAccess(true);
    h.queue.advance(0.2);
    EXPECT_EQ(h.capture.sessions.size(), 1u);
    EXPECT_TRUE(h.e().isRecording.get());
}

TEST(AudioRecordingServiceStart, CleanupInProgressDropsTheStart) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(0.5);
    h.capture.lastOutput().finishOnStop = false;
    h.speak(-20.0f);
    h.queue.advance(1.0);
    h.e().stopRecording();
    EXPECT_TRUE(h.refusesStart());
    h.queue.advance(1.0);
    EXPECT_EQ(h.capture.sessions.size(), 1u);

    h.capture.lastOutput().finish();
    h.queue.runUntilIdle();
    EXPECT_FALSE(h.refusesStart());
    h.queue.advance(0.2);
    EXPECT_EQ(h.capture.sessions.size(), 2u);
}

TEST(AudioRecordingServiceStart, SystemAudioWithPermissionStartsAtOnceAndMicAfterPointOne) {
    EngineHarness h;
    h.start(h.mode(true));
    EXPECT_TRUE(h.e().isRecording.get());
    EXPECT_TRUE(h.logs->contains("⏱️ Parallel mic start after 0.1s (SC preflight granted)"));
    ASSERT_EQ(h.screen.streams.size(), 1u);
    EXPECT_EQ(h.screen.lastStream().startCount, 1);
    EXPECT_TRUE(h.logs->contains("✅ ScreenCaptureKit audio capture started"));
    EXPECT_TRUE(h.e().isLevelTimerRunning());
    h.queue.advance(0.095);
    EXPECT_TRUE(h.capture.sessions.empty());
    h.queue.advance(0.005);
    EXPECT_EQ(h.capture.sessions.size(), 1u);
    h.queue.advance(0.125);
    EXPECT_EQ(h.capture.lastOutput().recordingTo, h.file("vocle_mic_1700000000.wav"));
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
}

TEST(AudioRecordingServiceStart, SystemAudioAskedAtStartPlaysSoundWhenStreamStartsAndMicAfterPointOneFive) {
    EngineHarness h;
    h.screen.preflight = false;
    h.screen.configureStream = [](FakeSystemAudioStream& s) { s.answerStartAtOnce = false; };
    h.start(h.mode(true));
    EXPECT_EQ(h.screen.requestCount, 1);
    EXPECT_FALSE(h.e().isRecording.get());
    EXPECT_TRUE(h.sounds().empty());
    h.queue.advance(1.0);
    h.screen.lastStream().answerStart();
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.e().isRecording.get());
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
    h.queue.advance(0.145);
    EXPECT_TRUE(h.capture.sessions.empty());
    h.queue.advance(0.01);
    EXPECT_EQ(h.capture.sessions.size(), 1u);
}

TEST(AudioRecordingServiceStart, RefusedScreenCaptureAbandonsTheRecording) {
    EngineHarness h;
    h.screen.preflight = false;
    h.screen.requestAnswer = false;
    h.start(h.mode(true));
    h.queue.advance(1.0);
    EXPECT_EQ(
        h.e().errorMessage.get(),
        "Vocle cannot capture the sound of other applications: the sound server offers no monitor of your "
        "output device.");
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_TRUE(h.screen.streams.empty());
    EXPECT_FALSE(h.e().isRecording.get());
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceStart, FailedStreamFallsBackToMicrophoneIntoTheFinalFile) {
    EngineHarness h;
    h.screen.preflight = false;
    h.screen.makeError = Error{"Pulse", 3, "Connection refused"};
    h.start(h.mode(true));
    EXPECT_EQ(h.e().errorMessage.get(), "Failed to start system audio capture: Connection refused");
    h.queue.advance(0.195);
    EXPECT_TRUE(h.capture.sessions.empty());
    h.queue.advance(0.005);
    ASSERT_EQ(h.capture.sessions.size(), 1u);
    EXPECT_TRUE(h.e().isRecording.get());  // set by the microphone only when it records alone
    h.queue.advance(0.125);
    EXPECT_EQ(h.capture.lastOutput().recordingTo, h.file("vocle_1700000000.wav"));
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
    // The message stays although the microphone records.
    EXPECT_TRUE(h.e().errorMessage.get().has_value());

    EngineHarness u;
    u.screen.supported = false;
    u.start(u.mode(true));
    u.queue.advance(0.3);
    EXPECT_TRUE(u.logs->contains("Falling back to microphone-only recording."));
    EXPECT_EQ(u.capture.sessions.size(), 2u);  // the parallel start and the fallback
}

TEST(AudioRecordingServiceStart, SameSecondRestartDeletesLeftoverFiles) {
    EngineHarness h;
    writeText(h.file("vocle_1700000000.wav"), "old");
    writeText(h.file("vocle_mic_1700000000.wav"), "old");
    h.start(h.mode(true));
    EXPECT_FALSE(std::filesystem::exists(h.file("vocle_1700000000.wav")));
    EXPECT_FALSE(std::filesystem::exists(h.file("vocle_mic_1700000000.wav")));
}

}  // namespace

namespace {

// Whoever starts the engine (the app, vocle-cli) hears why nothing could be recorded, before any sound.
TEST(AudioRecordingServiceStart, NoSoundServerOrNoInputDeviceRefusesTheStartWithTheReason) {
    EngineHarness h;
    h.capture.soundServer = false;
    h.start(h.mode(false));
    EXPECT_EQ(h.e().errorMessage.get(), AudioRecordingService::kNoSoundServerMessage);
    h.queue.advance(1.0);
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_FALSE(h.e().isRecording.get());
    EXPECT_TRUE(h.sounds().empty());

    h.capture.soundServer = true;
    h.capture.deviceList.clear();
    EXPECT_EQ(h.e().inputProblem(), std::optional<std::string>(AudioRecordingService::kNoInputDeviceMessage));
    h.start(h.mode(false));
    EXPECT_EQ(h.e().errorMessage.get(), AudioRecordingService::kNoInputDeviceMessage);
    h.queue.advance(1.0);
    EXPECT_TRUE(h.capture.sessions.empty());
}

}  // namespace
