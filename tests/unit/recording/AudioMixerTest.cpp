#include <gtest/gtest.h>

#include <cmath>

#include "recording/AudioMixer.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

std::vector<float> sine(size_t frames, int channels, double rate, double freq, float amplitude,
                        double phase = 0) {
    std::vector<float> v(frames * channels);
    for (size_t i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            v[i * channels + c] =
                amplitude *
                static_cast<float>(std::sin(2 * M_PI * freq * static_cast<double>(i) / rate + phase + c));
    return v;
}

double rms(const WavData& d, int channel, size_t from, size_t to) {
    double s = 0;
    for (size_t i = from; i < to; ++i)
        s += d.samples[i * d.channels + channel] * d.samples[i * d.channels + channel];
    return std::sqrt(s / static_cast<double>(to - from));
}

TEST(AudioMixer, EqualFormatsGiveExactlyPointNineOfEachAndTheShorterEndsInSilence) {
    TempDir dir;
    const auto a = sine(10000, 2, 48000, 440, 0.8f);
    const auto b = sine(7000, 2, 48000, 1234, 0.7f, 1.0);
    writeWav(dir / "a.wav", 48000, 2, a);
    writeWav(dir / "b.wav", 48000, 2, b);
    ASSERT_FALSE(AudioMixer::mix(dir / "a.wav", dir / "b.wav", dir / "out.wav").has_value());
    const auto out = readWav(dir / "out.wav");
    EXPECT_EQ(out.rate, 48000);
    EXPECT_EQ(out.channels, 2);
    EXPECT_EQ(out.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    ASSERT_EQ(out.frames(), 10000u);
    for (size_t i = 0; i < a.size(); ++i) {
        const float expected = 0.9f * a[i] + 0.9f * (i < b.size() ? b[i] : 0.0f);
        ASSERT_EQ(out.samples[i], expected) << i;
    }
}

TEST(AudioMixer, MonoSourceGoesToEveryChannelAtEqualRates) {
    TempDir dir;
    const auto mono = sine(5000, 1, 16000, 300, 0.5f);
    const auto stereo = sine(5000, 2, 16000, 700, 0.25f);
    writeWav(dir / "mono.wav", 16000, 1, mono);
    writeWav(dir / "stereo.wav", 16000, 2, stereo);
    ASSERT_FALSE(AudioMixer::mix(dir / "mono.wav", dir / "stereo.wav", dir / "out.wav").has_value());
    const auto out = readWav(dir / "out.wav");
    ASSERT_EQ(out.channels, 2);
    ASSERT_EQ(out.frames(), 5000u);
    for (size_t i = 0; i < 5000; ++i) {
        for (int c = 0; c < 2; ++c) {
            ASSERT_NEAR(out.samples[i * 2 + c], 0.9f * mono[i] + 0.9f * stereo[i * 2 + c], 1e-6) << i;
        }
    }
}

TEST(AudioMixer, DifferentRatesAndChannelsConvertToTheLargerOfEach) {
    TempDir dir;
    // System audio: 48 kHz stereo, 0.5 s of silence. Microphone: 44.1 kHz mono, 1 s of a 1 kHz tone.
    writeWav(dir / "sys.wav", 48000, 2, std::vector<float>(24000 * 2, 0.0f));
    writeWav(dir / "mic.wav", 44100, 1, sine(44100, 1, 44100, 1000, 0.5f));
    ASSERT_FALSE(AudioMixer::mix(dir / "mic.wav", dir / "sys.wav", dir / "out.wav").has_value());
    const auto out = readWav(dir / "out.wav");
    EXPECT_EQ(out.rate, 48000);
    EXPECT_EQ(out.channels, 2);
    // The longer input's frame count, taken at its own rate, is the render length.
    EXPECT_EQ(out.frames(), 44100u);
    // The tone survives the conversion at 0.9 × its level in both channels.
    const double expected = 0.9 * 0.5 / std::sqrt(2.0);
    EXPECT_NEAR(rms(out, 0, 2000, 40000), expected, 0.01);
    EXPECT_NEAR(rms(out, 1, 2000, 40000), expected, 0.01);
}

TEST(AudioMixer, UnreadableInputsAndOutputsAreFileErrors) {
    TempDir dir;
    writeWav(dir / "ok.wav", 16000, 1, std::vector<float>(100, 0.1f));
    writeText(dir / "junk.wav", "RIFF but not really");
    auto missing = AudioMixer::mix(dir / "absent.wav", dir / "ok.wav", dir / "out.wav");
    ASSERT_TRUE(missing.has_value());
    EXPECT_EQ(missing->domain, "Vocle.AudioFile");
    auto junk = AudioMixer::mix(dir / "ok.wav", dir / "junk.wav", dir / "out.wav");
    ASSERT_TRUE(junk.has_value());
    EXPECT_EQ(junk->domain, "Vocle.AudioFile");
    auto unwritable = AudioMixer::mix(dir / "ok.wav", dir / "ok.wav", dir / "no-such-dir" / "out.wav");
    ASSERT_TRUE(unwritable.has_value());
    EXPECT_EQ(unwritable->domain, "Vocle.AudioFile");
    EXPECT_TRUE(std::filesystem::exists(dir / "ok.wav"));
}

}  // namespace

TEST(AudioMixer, ASourceClaimingMoreThan768kHzIsRefusedBeforeAnyResampling) {
    TempDir dir;
    writeWav(dir / "mic.wav", 48000, 1, sine(4800, 1, 48000, 440, 0.5f));
    writeWav(dir / "edge.wav", 768000, 1, sine(7680, 1, 768000, 440, 0.5f));
    writeWav(dir / "forged.wav", 768001, 1, sine(100, 1, 768001, 440, 0.5f));

    const auto refused = AudioMixer::mix(dir / "mic.wav", dir / "forged.wav", dir / "out.wav");
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->domain, AudioMixer::kErrorDomain);
    EXPECT_EQ(refused->code, AudioMixer::kInvalidFormats);
    EXPECT_EQ(refused->description, "Invalid source formats");

    ASSERT_FALSE(AudioMixer::mix(dir / "mic.wav", dir / "edge.wav", dir / "out.wav").has_value());
    EXPECT_EQ(readWav(dir / "out.wav").rate, 768000);
}
