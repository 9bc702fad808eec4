#include <gtest/gtest.h>
#include <sndfile.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <fstream>
#include <random>

#include "backend/AudioFormatConverter.h"
#include "foundation/Log.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

namespace fs = std::filesystem;
using Converter = AudioFormatConverter;

// Noise keeps the encoder busy, so the bit rate it reaches is the one it was asked for.
void writeNoiseWav(const fs::path& path, int rate, int channels, double seconds) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
    std::mt19937 rng(42);
    std::uniform_int_distribution<int> dist(-8000, 8000);
    std::vector<short> samples(static_cast<size_t>(rate * seconds) * static_cast<size_t>(channels));
    for (auto& s : samples) s = static_cast<short>(dist(rng));
    sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(f);
}

void setHeaderSampleRateToZero(const fs::path& path) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(24);  // "RIFF" size "WAVE" "fmt " size format channels | sample rate
    const char zero[4] = {0, 0, 0, 0};
    f.write(zero, 4);
}

struct Probe {
    AVCodecID codec = AV_CODEC_ID_NONE;
    int profile = 0;
    int channels = 0;
    int sampleRate = 0;
    double bitRate = 0;  // measured from the packets
    int64_t decodedSamples = 0;
    bool indexBeforeData = false;
};

Probe probe(const fs::path& path) {
    Probe p;
    AVFormatContext* fmt = nullptr;
    if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0) return p;
    avformat_find_stream_info(fmt, nullptr);
    const int index = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (index >= 0) {
        AVStream* st = fmt->streams[index];
        p.codec = st->codecpar->codec_id;
        p.profile = st->codecpar->profile;
        p.channels = st->codecpar->ch_layout.nb_channels;
        p.sampleRate = st->codecpar->sample_rate;
        const AVCodec* codec = avcodec_find_decoder(p.codec);
        AVCodecContext* dec = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(dec, st->codecpar);
        avcodec_open2(dec, codec, nullptr);
        AVPacket* pkt = av_packet_alloc();
        AVFrame* frame = av_frame_alloc();
        int64_t bytes = 0;
        while (av_read_frame(fmt, pkt) >= 0) {
            if (pkt->stream_index == index) {
                bytes += pkt->size;
                avcodec_send_packet(dec, pkt);
                while (avcodec_receive_frame(dec, frame) >= 0) p.decodedSamples += frame->nb_samples;
            }
            av_packet_unref(pkt);
        }
        if (p.sampleRate > 0 && p.decodedSamples > 0) {
            p.bitRate =
                static_cast<double>(bytes) * 8.0 / (static_cast<double>(p.decodedSamples) / p.sampleRate);
        }
        av_frame_free(&frame);
        av_packet_free(&pkt);
        avcodec_free_context(&dec);
    }
    avformat_close_input(&fmt);
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    const auto moov = bytes.find("moov");
    const auto mdat = bytes.find("mdat");
    p.indexBeforeData = moov != std::string::npos && mdat != std::string::npos && moov < mdat;
    return p;
}

class AudioFormatConverterTest : public ::testing::Test {
  protected:
    vocle::testing::TempDir dir;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
};

TEST(AudioFormatConverterRules, BitRateFollowsTheSourceRateAndEncoderRateNeverDropsBandwidth) {
    EXPECT_EQ(Converter::bitRateForSampleRate(8000), 48000);
    EXPECT_EQ(Converter::bitRateForSampleRate(17999.9), 48000);
    EXPECT_EQ(Converter::bitRateForSampleRate(18000), 64000);
    EXPECT_EQ(Converter::bitRateForSampleRate(25999), 64000);
    EXPECT_EQ(Converter::bitRateForSampleRate(26000), 96000);
    EXPECT_EQ(Converter::bitRateForSampleRate(37999), 96000);
    EXPECT_EQ(Converter::bitRateForSampleRate(38000), 128000);
    EXPECT_EQ(Converter::bitRateForSampleRate(192000), 128000);
    EXPECT_EQ(Converter::encoderSampleRate(16000), 16000);
    EXPECT_EQ(Converter::encoderSampleRate(17999), 22050);
    EXPECT_EQ(Converter::encoderSampleRate(38000), 44100);
    EXPECT_EQ(Converter::encoderSampleRate(48000), 48000);
    EXPECT_EQ(Converter::encoderSampleRate(192000), 96000);
}

struct RateCase {
    int headerRate;   // what the WAV header says (0: broken header)
    int writtenRate;  // the rate the samples were made at
    int expectedBitRate;
    int expectedOutRate;
    const char* logRate;
};

class ConverterRateTest : public AudioFormatConverterTest, public ::testing::WithParamInterface<RateCase> {};

TEST_P(ConverterRateTest, EncodesMonoAacLcAtTheChosenBitRate) {
    const auto c = GetParam();
    const auto wav = dir / "in.wav";
    const auto m4a = dir / "out.m4a";
    writeNoiseWav(wav, c.writtenRate, 1, 4.0);
    if (c.headerRate == 0) setHeaderSampleRateToZero(wav);

    EXPECT_TRUE(Converter().convertToMP3(wav, m4a));
    const Probe p = probe(m4a);
    EXPECT_EQ(p.codec, AV_CODEC_ID_AAC);
    EXPECT_EQ(p.profile, FF_PROFILE_AAC_LOW);
    EXPECT_EQ(p.channels, 1);
    EXPECT_EQ(p.sampleRate, c.expectedOutRate);
    EXPECT_NEAR(p.bitRate, c.expectedBitRate, c.expectedBitRate * 0.10);
    EXPECT_NEAR(static_cast<double>(p.decodedSamples) / p.sampleRate,
                4.0 * (c.headerRate == 0 ? double(c.writtenRate) / 44100.0 : 1.0), 0.1);
    EXPECT_TRUE(p.indexBeforeData) << "the index is moved to the front";
    EXPECT_TRUE(logs->contains(std::string("🎛 Detected source sample rate: ") + c.logRate +
                               " Hz; using AAC bitrate: " + std::to_string(c.expectedBitRate) + " bps"));
}

INSTANTIATE_TEST_SUITE_P(SourceRates, ConverterRateTest,
                         ::testing::Values(RateCase{16000, 16000, 48000, 16000, "16000.0"},
                                           RateCase{17999, 17999, 48000, 22050, "17999.0"},
                                           RateCase{18000, 18000, 64000, 22050, "18000.0"},
                                           RateCase{38000, 38000, 128000, 44100, "38000.0"},
                                           RateCase{0, 44100, 128000, 44100, "44100.0"}));

TEST_F(AudioFormatConverterTest, StereoInMonoOutAndAnExistingOutputIsReplaced) {
    const auto wav = dir / "stereo.wav";
    const auto m4a = dir / "out.m4a";
    writeNoiseWav(wav, 48000, 2, 2.0);
    vocle::testing::writeText(m4a, std::string(5'000'000, 'x'));

    ASSERT_TRUE(Converter().convertToMP3(wav, m4a));
    const Probe p = probe(m4a);
    EXPECT_EQ(p.channels, 1);
    EXPECT_EQ(p.sampleRate, 48000);
    EXPECT_LT(fs::file_size(m4a), 100'000u) << "nothing of the old file is left";

    const auto lines = logs->lines();
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines.front(), "🔄 Converting audio from WAV to AAC (128kbps mono)...");
    EXPECT_EQ(lines[lines.size() - 2].rfind("✅ Audio conversion completed in ", 0), 0u);
    const std::string sizes = "📦 File size: " + std::to_string(fs::file_size(wav)) + " bytes → " +
                              std::to_string(fs::file_size(m4a)) + " bytes (compression: ";
    EXPECT_EQ(lines.back().rfind(sizes, 0), 0u) << lines.back();
}

TEST_F(AudioFormatConverterTest, InputsWithoutUsableAudioFailWithTheirOwnErrors) {
    const auto expectFailure = [&](const fs::path& input, const std::string& message,
                                   Converter::ConversionError::Kind kind) {
        try {
            Converter().convertToMP3(input, dir / "out.m4a");
            ADD_FAILURE() << "no error for " << input;
        } catch (const Converter::ConversionError& e) {
            EXPECT_EQ(e.what(), message);
            EXPECT_EQ(e.kind(), kind);
        }
    };
    writeNoiseWav(dir / "empty.wav", 16000, 1, 0.0);
    vocle::testing::writeText(dir / "notes.wav", "these are not the samples you are looking for");
    vocle::testing::writeText(dir / "zero.wav", "");

    expectFailure(dir / "empty.wav", "Audio conversion failed: No audio track found in source asset",
                  Converter::ConversionError::Kind::conversionFailed);
    expectFailure(dir / "missing.wav", "Invalid input audio file",
                  Converter::ConversionError::Kind::invalidInputFile);
    expectFailure(dir / "notes.wav", "Invalid input audio file",
                  Converter::ConversionError::Kind::invalidInputFile);
    expectFailure(dir / "zero.wav", "Invalid input audio file",
                  Converter::ConversionError::Kind::invalidInputFile);

    // A header claiming 2.1 GHz once kept the resampler busy for minutes; it now fails at once and
    // the pipeline uploads the file as it is.
    writeNoiseWav(dir / "forged.wav", 16000, 1, 0.5);
    std::string bytes = vocle::testing::readText(dir / "forged.wav");
    const uint32_t forged = 2'104'848'768u;
    for (int i = 0; i < 4; ++i) bytes[24 + i] = static_cast<char>(forged >> (8 * i));
    vocle::testing::writeText(dir / "forged.wav", bytes);
    expectFailure(dir / "forged.wav", "Audio conversion failed: Unsupported source sample rate: 2104848768 Hz",
                  Converter::ConversionError::Kind::conversionFailed);
}

}  // namespace
}  // namespace vocle
