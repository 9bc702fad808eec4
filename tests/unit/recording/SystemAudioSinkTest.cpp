#include <gtest/gtest.h>

#include <cmath>

#include "EngineHarness.h"
#include "recording/LevelMeter.h"
#include "recording/SystemAudioSink.h"

namespace vocle::testing {
namespace {

AudioSampleBuffer block(const std::vector<float>& interleaved, int channels, double rate = 48000) {
    return {rate, channels, interleaved.size() / channels, interleaved.data()};
}

TEST(LevelMeterTest, SystemScaleIsTheMeanSquareAveragedOverChannelsAndClamped) {
    // 0.5 on both channels: mean square 0.25 → 20·log10(0.25) ≈ -12.04 (the RMS scale would say -6.02).
    const std::vector<float> half(2 * 64, 0.5f);
    EXPECT_NEAR(LevelMeter::meanSquareDb(half.data(), 64, 2), -12.04f, 0.01f);
    // One silent channel halves the mean: 20·log10(0.125) ≈ -18.06.
    std::vector<float> oneSided;
    for (int i = 0; i < 64; ++i) oneSided.insert(oneSided.end(), {0.5f, 0.0f});
    EXPECT_NEAR(LevelMeter::meanSquareDb(oneSided.data(), 64, 2), -18.06f, 0.01f);
    const std::vector<float> silent(64, 0.0f);
    EXPECT_FLOAT_EQ(LevelMeter::meanSquareDb(silent.data(), 64, 1), -60.0f);
    const std::vector<float> hot(64, 2.0f);
    EXPECT_FLOAT_EQ(LevelMeter::meanSquareDb(hot.data(), 64, 1), 0.0f);
}

TEST(LevelMeterTest, MicrophoneIsTheMeanOfEveryChannelOfEveryConnection) {
    EXPECT_FALSE(LevelMeter::microphoneLevel({}));
    EXPECT_FALSE(LevelMeter::microphoneLevel({CaptureConnection{true, {}}}));
    const auto level = LevelMeter::microphoneLevel({{true, {-10.0f, -20.0f}}, {false, {-30.0f}}});
    ASSERT_TRUE(level);
    EXPECT_FLOAT_EQ(*level, -20.0f);
    EXPECT_FLOAT_EQ(LevelMeter::bar(0.5f, 0.0), 0.4f);
    EXPECT_FLOAT_EQ(LevelMeter::bar(0.5f, 1.0), 0.6f);
}

struct SinkFixture : ::testing::Test {
    TempDir tmp;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    bool silenced = false;
    std::filesystem::path target = tmp.path() / "vocle_sys.wav";
    SystemAudioSink sink{target, [this] { return silenced; }};
};

TEST_F(SinkFixture, OpensWithTheFirstBlocksFormatAndRefusesAChangeWithoutLosingTheFile) {
    EXPECT_FALSE(sink.isOpen());
    EXPECT_FLOAT_EQ(sink.lastAveragePower(), -60.0f);
    const std::vector<float> stereo(2 * 100, 0.25f);
    sink.handle(block(stereo, 2, 44100));
    EXPECT_TRUE(sink.isOpen());
    EXPECT_TRUE(logs->contains("📄 SC: Opened audio file for writing at " + target.string()));
    EXPECT_NEAR(sink.lastAveragePower(), 20 * std::log10(0.0625), 0.01);

    const std::vector<float> mono(100, 0.9f);
    sink.handle(block(mono, 1, 44100));
    EXPECT_TRUE(
        logs->contains("SC audio write error: the stream changed its format to 1 channels at 44100 Hz"));
    sink.handle(block(stereo, 2, 44100));
    sink.close();

    const auto wav = readWav(target);
    EXPECT_EQ(wav.rate, 44100);
    EXPECT_EQ(wav.channels, 2);
    EXPECT_EQ(wav.frames(), 200u) << "the mono block must not be written";
}

TEST_F(SinkFixture, WritesSilenceWhileSilencedAndNothingAfterClose) {
    const std::vector<float> loud(100, 0.5f);
    sink.handle(block(loud, 1));
    silenced = true;
    sink.handle(block(loud, 1));
    EXPECT_FLOAT_EQ(sink.lastAveragePower(), -60.0f) << "the level follows what is written";
    sink.close();
    EXPECT_FALSE(sink.isOpen());
    silenced = false;
    sink.handle(block(loud, 1));
    EXPECT_FALSE(sink.isOpen());

    const auto wav = readWav(target);
    ASSERT_EQ(wav.frames(), 200u);
    EXPECT_FLOAT_EQ(wav.samples[99], 0.5f);
    EXPECT_FLOAT_EQ(wav.samples[100], 0.0f);
    EXPECT_FLOAT_EQ(wav.samples[199], 0.0f);
}

TEST_F(SinkFixture, AnUnwritableTargetLogsAndKeepsNoFile) {
    SystemAudioSink bad{tmp.path() / "missing" / "x.wav", {}};
    const std::vector<float> loud(100, 0.5f);
    bad.handle(block(loud, 1));
    EXPECT_FALSE(bad.isOpen());
    EXPECT_TRUE(logs->contains("SC audio write error: "));
}

}  // namespace
}  // namespace vocle::testing
