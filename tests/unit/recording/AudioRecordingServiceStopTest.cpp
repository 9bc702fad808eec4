#include <gtest/gtest.h>

#include <cmath>

#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

// A microphone-only recording that has been speaking for a second.
void recordSpeech(EngineHarness& h, bool systemAudio = false) {
    h.start(h.mode(systemAudio));
    h.queue.advance(0.35);
    h.speak(-20.0f);
    h.queue.advance(1.0);
}

std::vector<float> tone(size_t frames, int channels, float amplitude) {
    std::vector<float> v(frames * channels);
    for (size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c) v[i * channels + c] = amplitude * std::sin(0.05f * i);
    return v;
}

TEST(AudioRecordingServiceStop, MicrophoneOnlyStopProcessesTheFinalFileAndPublishesTheTranscript) {
    EngineHarness h;
    recordSpeech(h);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    ASSERT_EQ(h.processor.calls.size(), 1u);
    const auto& call = h.processor.calls[0];
    EXPECT_EQ(call.file, h.file("vocle_1700000000.wav"));
    EXPECT_EQ(call.vocab, "Kubernetes, Vocle");
    ASSERT_EQ(call.replacements.size(), 1u);
    EXPECT_TRUE(std::filesystem::exists(call.file));
    EXPECT_TRUE(h.e().isProcessing.get());
    EXPECT_FALSE(h.e().isRecording.get());

    call.completion(std::string("hello world"));
    h.queue.runUntilIdle();
    EXPECT_FALSE(h.e().isProcessing.get());
    EXPECT_EQ(h.e().processedText.get(), "hello world");
    EXPECT_EQ(h.paster.pasted, std::vector<std::string>{"hello world"});
    EXPECT_TRUE(h.logs->contains(" - dictation flow complete"));
    // Nothing is deleted after the hand-off.
    EXPECT_TRUE(std::filesystem::exists(call.file));
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceStop, TranscriptionFailureAndEmptyTranscript) {
    EngineHarness h;
    recordSpeech(h);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    h.processor.calls.at(0).completion(Error{"Backend", 500, "Server error (500): boom"});
    h.queue.runUntilIdle();
    EXPECT_EQ(h.e().errorMessage.get(), "Server error (500): boom");
    EXPECT_FALSE(h.e().isProcessing.get());
    EXPECT_TRUE(h.paster.pasted.empty());

    recordSpeech(h);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    h.processor.calls.at(1).completion(std::string());
    h.queue.runUntilIdle();
    EXPECT_EQ(h.paster.pasted, std::vector<std::string>{""});
}

TEST(AudioRecordingServiceStop, CompletionAfterTheEngineIsGoneDoesNothing) {
    EngineHarness h;
    recordSpeech(h);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    auto completion = h.processor.calls.at(0).completion;
    h.engine.reset();
    completion(std::string("late"));
    h.queue.advance(700);
    EXPECT_TRUE(h.paster.pasted.empty());
}

TEST(AudioRecordingServiceStop, ShortAndSilentRecordingsAreCancelled) {
    EngineHarness h;
    h.start(h.mode());
    h.queue.advance(0.25);
    h.speak(-10.0f);
    h.queue.advance(0.14);  // 0.39 s, loud
    h.e().stopRecording();
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.logs->contains("⏱️ Short recording (0.39"));
    EXPECT_TRUE(h.logs->contains("❌ cancelRecording() called"));
    EXPECT_TRUE(h.processor.calls.empty());

    EngineHarness p;
    p.start(p.mode());
    p.queue.advance(0.25);
    p.speak(-10.0f);
    p.queue.advance(0.15);  // exactly 0.4 s
    p.e().stopRecording();
    p.queue.runUntilIdle();
    EXPECT_FALSE(p.logs->contains("❌ cancelRecording() called"));
    EXPECT_EQ(p.processor.calls.size(), 1u);

    EngineHarness s;
    s.start(s.mode());
    s.queue.advance(5.0);
    s.e().stopRecording();
    s.queue.runUntilIdle();
    EXPECT_TRUE(s.logs->contains(
        "🔇 Max observed dBFS (-60.0) did not exceed threshold (-40.0) — treating as cancel"));
    EXPECT_TRUE(s.processor.calls.empty());
    EXPECT_FALSE(s.e().isProcessing.get());
}

TEST(AudioRecordingServiceStop, JoinPointMixesWhenTheSecondSourceArrivesInEitherOrder) {
    for (bool micFirst : {true, false}) {
        EngineHarness h;
        h.screen.configureStream = [](FakeSystemAudioStream& s) { s.answerStopAtOnce = false; };
        h.capture.configureOutput = [](FakeCaptureFileOutput& o) { o.finishOnStop = false; };
        recordSpeech(h, true);
        h.screen.lastStream().deliver(tone(4800, 2, 0.5f), 2, 48000);
        h.e().stopRecording();
        h.queue.runUntilIdle();
        EXPECT_TRUE(h.logs->contains("pendingOutputURL=" + h.file("vocle_mic_1700000000.wav").string()));
        if (micFirst) {
            h.capture.lastOutput().finish();
            h.queue.runUntilIdle();
            EXPECT_TRUE(h.logs->contains("⏳ Waiting for both sources: micDone=true, scDone=false"));
            h.screen.lastStream().answerStop();
        } else {
            h.screen.lastStream().answerStop();
            h.queue.runUntilIdle();
            EXPECT_TRUE(h.logs->contains("⏳ Waiting for both sources: micDone=false, scDone=true"));
            h.capture.lastOutput().finish();
        }
        h.queue.runUntilIdle();
        EXPECT_TRUE(h.logs->contains("✅ SC stream stopped (coordinated)"));
        ASSERT_EQ(h.processor.calls.size(), 1u) << micFirst;
        EXPECT_EQ(h.processor.calls[0].file, h.file("vocle_1700000000.wav"));
        auto mixed = readWav(h.file("vocle_1700000000.wav"));
        EXPECT_EQ(mixed.rate, 48000);
        EXPECT_EQ(mixed.channels, 2);
        EXPECT_FALSE(h.refusesStart()) << micFirst;
    }
}

TEST(AudioRecordingServiceStop, MissingSystemFileFallsBackToMicAndKeepsCleanupUntilACancel) {
    EngineHarness h;
    recordSpeech(h, true);  // the stream never delivers a block, so no system file exists
    h.e().stopRecording();
    h.queue.runUntilIdle();
    ASSERT_EQ(h.processor.calls.size(), 1u);
    EXPECT_EQ(h.processor.calls[0].file, h.file("vocle_mic_1700000000.wav"));
    EXPECT_TRUE(h.logs->contains("▶️ Proceeding with single-source file: "));
    EXPECT_TRUE(h.refusesStart());
    h.e().cancelRecording();
    h.queue.runUntilIdle();
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceStop, MixFailureFallsBackToMicAndClearsCleanup) {
    EngineHarness h;
    recordSpeech(h, true);
    writeText(h.file("vocle_sys_1700000000.wav"), "this is not audio");
    h.e().stopRecording();
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.logs->contains("❌ Mix failed: "));
    ASSERT_EQ(h.processor.calls.size(), 1u);
    EXPECT_EQ(h.processor.calls[0].file, h.file("vocle_mic_1700000000.wav"));
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceStop, SystemAudioAloneCrossesTheThresholdAndAStreamOnlyStopFailureIsShown) {
    EngineHarness h;
    h.capture.failSessions = true;  // the microphone never comes up
    h.screen.configureStream = [](FakeSystemAudioStream& s) { s.stopError = Error{"Pulse", 9, "Bad state"}; };
    h.start(h.mode(true));
    h.playback.players.back()->finish();
    h.queue.advance(0.2);
    EXPECT_EQ(h.e().errorMessage.get(), "Failed to create capture session");
    h.screen.lastStream().deliver(tone(4800, 2, 0.9f), 2, 48000);
    h.queue.advance(0.5);
    EXPECT_TRUE(h.logs->contains("📈 Speech threshold crossed"));
    h.e().stopRecording();
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.logs->contains("⏹️ Stopping ScreenCaptureKit stream…"));
    EXPECT_EQ(h.e().errorMessage.get(), "Failed to stop ScreenCaptureKit capture: Bad state");
    EXPECT_FALSE(h.e().isProcessing.get());
    EXPECT_TRUE(h.processor.calls.empty());
    EXPECT_FALSE(h.refusesStart());
}

TEST(AudioRecordingServiceStop, CancelAtEveryStageProcessesNothing) {
    // Stages: during the start delay, during the channel wait, while recording, after stop before the
    // microphone file is finished, and during the stream stop of a two-source recording.
    const std::vector<double> cancelAt = {0.1, 0.33, 2.0};
    for (double t : cancelAt) {
        EngineHarness h;
        h.start(h.mode());
        h.queue.advance(0.3);
        h.speak(-20.0f);
        h.queue.advance(t - 0.3 > 0 ? t - 0.3 : 0);
        h.e().cancelRecording();
        h.queue.advance(2.0);
        EXPECT_TRUE(h.processor.calls.empty()) << t;
        EXPECT_FALSE(h.e().isProcessing.get()) << t;
        EXPECT_FALSE(h.refusesStart()) << t;
    }
    {
        EngineHarness h;
        h.capture.configureOutput = [](FakeCaptureFileOutput& o) { o.finishOnStop = false; };
        recordSpeech(h);
        h.e().stopRecording();
        h.e().cancelRecording();
        h.capture.lastOutput().finish();
        h.queue.runUntilIdle();
        EXPECT_TRUE(h.logs->contains("🧹 Cancel in effect at fileOutput didFinish"));
        EXPECT_TRUE(h.processor.calls.empty());
        EXPECT_FALSE(h.e().hasCaptureSession());
        // The recording stays on disk.
        EXPECT_TRUE(std::filesystem::exists(h.file("vocle_1700000000.wav")));
        EXPECT_FALSE(h.refusesStart());
    }
    {
        EngineHarness h;
        h.screen.configureStream = [](FakeSystemAudioStream& s) { s.answerStopAtOnce = false; };
        recordSpeech(h, true);
        h.screen.lastStream().deliver(tone(480, 2, 0.5f), 2, 48000);
        h.e().stopRecording();
        h.queue.runUntilIdle();
        h.e().cancelRecording();
        h.screen.lastStream().answerStop();
        h.queue.runUntilIdle();
        EXPECT_TRUE(h.processor.calls.empty());
        EXPECT_FALSE(h.e().isProcessing.get());
        EXPECT_FALSE(h.refusesStart());
    }
}

TEST(AudioRecordingServiceStop, CancelDuringTheStartDelaysBringsNothingUpLater) {
    {
        EngineHarness h;
        h.start(h.mode());
        h.queue.advance(0.1);
        h.e().cancelRecording();
        h.queue.advance(5.0);
        EXPECT_TRUE(h.capture.sessions.empty());
        EXPECT_FALSE(h.e().isRecording.get());
        EXPECT_FALSE(h.e().isLevelTimerRunning());
    }
    {
        // The stream was still starting (permission asked at start) when the user cancelled.
        EngineHarness h;
        h.screen.preflight = false;
        h.screen.configureStream = [](FakeSystemAudioStream& s) { s.answerStartAtOnce = false; };
        h.start(h.mode(true));
        auto& stream = h.screen.lastStream();
        stream.answerStopAtOnce = false;  // its stop request is never answered either
        h.e().cancelRecording();
        h.queue.runUntilIdle();
        stream.answerStart();
        h.queue.advance(5.0);
        EXPECT_FALSE(h.e().isRecording.get());
        EXPECT_FALSE(h.e().isLevelTimerRunning());
        EXPECT_TRUE(h.capture.sessions.empty());
        EXPECT_TRUE(h.sounds().empty());
    }
    {
        EngineHarness h;
        h.screen.preflight = false;
        h.screen.answerMakeAtOnce = false;
        h.start(h.mode(true));
        h.e().cancelRecording();
        h.screen.answerMake();
        h.queue.advance(5.0);
        EXPECT_FALSE(h.e().hasSystemAudioStream());
        ASSERT_EQ(h.screen.streams.size(), 1u);
        EXPECT_EQ(h.screen.lastStream().startCount, 0);
        EXPECT_FALSE(h.e().isRecording.get());
    }
}

TEST(AudioRecordingServiceStop, CancelPlaysNoSoundItselfButRestoresTheOutputRoute) {
    EngineHarness h;
    h.coreAudio.add(2, "bluez_sink.00_11.handsfree_head_unit", "Studio Headphones Hands-Free");
    h.coreAudio.add(3, "bluez_sink.00_11.a2dp_sink", "Studio Headphones");
    h.coreAudio.defaultOutput = 3;
    recordSpeech(h);
    h.coreAudio.defaultOutput = 2;  // the microphone moved the output to the hands-free profile
    h.e().cancelRecording();
    h.queue.advance(0.59);
    EXPECT_TRUE(h.coreAudio.defaultWrites.empty());
    h.queue.advance(0.01);
    EXPECT_EQ(h.coreAudio.defaultWrites, std::vector<AudioDeviceId>{3});
    EXPECT_EQ(h.sounds(), std::vector<std::string>{"start"});
}

}  // namespace
