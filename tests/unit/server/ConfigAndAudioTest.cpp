#include <gtest/gtest.h>

#include "config/ServerConfig.h"
#include "foundation/FileIO.h"
#include "speech/AudioDecoder.h"
#include "speech/CommandEngine.h"
#include "speech/WavWriter.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::server;
using vocle::testing::TempDir;

TEST(ServerConfigTest, FileThenEnvironmentThenOptions) {
    TempDir dir;
    vocle::testing::writeText(dir / "c.json", R"({"speech_engine":"command","command":"/bin/echo hi",
        "access_token_ttl_seconds":60,"listen":"0.0.0.0:9000"})");
    MapEnvironment env(std::map<std::string, std::string>{{"VOCLE_SERVER_ACCESS_TOKEN_TTL_SECONDS", "120"},
                                                          {"HOME", "/home/u"}});
    auto cl = parseCommandLine({"--config", (dir / "c.json").string(), "--listen=127.0.0.1:7000"}, env);
    EXPECT_EQ(cl.config.speechEngine, "command");
    EXPECT_EQ(cl.config.accessTokenTtlSeconds, 120);
    EXPECT_EQ(cl.config.listenHost, "127.0.0.1");
    EXPECT_EQ(cl.config.listenPort, 7000);
    EXPECT_EQ(cl.config.dataDir, std::filesystem::path("/home/u/.local/share/vocle-server"));
    EXPECT_EQ(cl.config.maxBodyBytes, 60u * 1024 * 1024);
    EXPECT_TRUE(parseCommandLine({"--help"}, env).showHelp);
}

TEST(ServerConfigTest, MistakesAreReported) {
    MapEnvironment env(std::map<std::string, std::string>{{"HOME", "/home/u"}});
    EXPECT_THROW(parseCommandLine({"--bogus"}, env), ConfigError);
    EXPECT_THROW(parseCommandLine({"--listen"}, env), ConfigError);
    EXPECT_THROW(parseCommandLine({"--listen", "nohost"}, env), ConfigError);
    EXPECT_THROW(parseCommandLine({"--config", "/nonexistent.json"}, env), ConfigError);
    MapEnvironment badEngine(
        std::map<std::string, std::string>{{"HOME", "/h"}, {"VOCLE_SERVER_SPEECH_ENGINE", "magic"}});
    EXPECT_THROW(parseCommandLine({}, badEngine), ConfigError);
    MapEnvironment smtpWithoutUrl(
        std::map<std::string, std::string>{{"HOME", "/h"}, {"VOCLE_SERVER_MAIL_DELIVERY", "smtp"}});
    EXPECT_THROW(parseCommandLine({}, smtpWithoutUrl), ConfigError);
    TempDir dir;
    vocle::testing::writeText(dir / "c.json", R"({"speach_engine":"pocketsphinx"})");
    EXPECT_THROW(parseCommandLine({"--config", (dir / "c.json").string()}, env), ConfigError);
}

TEST(AudioDecoderTest, TellsFormatsApartByContent) {
    EXPECT_EQ(detectAudioFormat(encodeWav({1, 2, 3}, 16000)), AudioFormat::Wav);
    EXPECT_EQ(detectAudioFormat(std::string("\0\0\0\x20"
                                            "ftypM4A ",
                                            12)),
              AudioFormat::Mpeg4);
    EXPECT_EQ(detectAudioFormat("ID3\x03garbage-mp3"), AudioFormat::Unknown);
    EXPECT_EQ(detectAudioFormat(""), AudioFormat::Unknown);
    EXPECT_THROW(decodeToSpeechPcm("OggS-not-supported", 60), UnsupportedAudio);
    EXPECT_THROW(decodeToSpeechPcm(std::string("RIFF\x10\0\0\0WAVEjunkjunk", 20), 60), CorruptAudio);
    EXPECT_THROW(decodeToSpeechPcm(std::string("\0\0\0\x10"
                                               "ftypM4A \0\0\0\0",
                                               16),
                                   60),
                 CorruptAudio);
}

namespace {
// 16-bit PCM WAV written by hand, so that the header can say what a real writer would refuse to.
std::string handMadeWav(uint32_t rate, uint16_t channels, uint32_t frames, int16_t value) {
    std::string wav = "RIFF";
    const uint32_t dataBytes = frames * channels * 2;
    auto put32 = [&](uint32_t v) {
        for (int i = 0; i < 4; ++i) wav.push_back(static_cast<char>(v >> (8 * i)));
    };
    auto put16 = [&](uint16_t v) {
        wav.push_back(static_cast<char>(v));
        wav.push_back(static_cast<char>(v >> 8));
    };
    put32(36 + dataBytes);
    wav += "WAVEfmt ";
    put32(16);
    put16(1);
    put16(channels);
    put32(rate);
    put32(rate * channels * 2);
    put16(static_cast<uint16_t>(channels * 2));
    put16(16);
    wav += "data";
    put32(dataBytes);
    for (uint32_t i = 0; i < frames * channels; ++i) put16(static_cast<uint16_t>(value));
    return wav;
}
}  // namespace

TEST(AudioDecoderTest, ResamplesTo16kMonoAndEnforcesTheLengthLimit) {
    // One second of 48 kHz stereo.
    const std::string wav = handMadeWav(48000, 2, 48000, 1000);
    const auto pcm = decodeToSpeechPcm(wav, 60);
    EXPECT_NEAR(static_cast<double>(pcm.size()), 16000.0, 50.0);
    EXPECT_NEAR(pcm[8000], 1000, 5);  // both channels averaged
    EXPECT_THROW(decodeToSpeechPcm(wav, 0.5), CorruptAudio);
}

TEST(AudioDecoderTest, ForgedSampleRateIsRefusedBeforeResampling) {
    // Found by fuzzing: a 2.1 GHz header kept the resampler busy for minutes per request.
    try {
        decodeToSpeechPcm(handMadeWav(2'104'848'768u, 1, 4000, 200), 60);
        ADD_FAILURE() << "a forged rate was accepted";
    } catch (const CorruptAudio& e) {
        EXPECT_NE(std::string(e.what()).find("2104848768 Hz"), std::string::npos) << e.what();
    }
    EXPECT_NO_THROW(decodeToSpeechPcm(handMadeWav(768000, 1, 7680, 200), 60));
}

TEST(CommandEngineTest, RunsTheProgramWithTheWavPathAndRequestContext) {
    TempDir dir;
    vocle::testing::writeText(
        dir / "engine.sh",
        "#!/bin/sh\nhead -c 4 \"$1\"; printf ' %s %s\\n' \"$VOCLE_LANGUAGE\" \"$VOCLE_VOCABULARY\"\n");
    std::filesystem::permissions(dir / "engine.sh", std::filesystem::perms::owner_all);
    CommandEngine engine((dir / "engine.sh").string(), dir / "scratch", 10);
    EXPECT_EQ(engine.transcribe({0, 0}, {"en-GB", "", "Vocle"}), "RIFF en-GB Vocle");
    EXPECT_TRUE(std::filesystem::is_empty(dir / "scratch"));  // the temporary WAV is removed

    CommandEngine failing("/bin/false", dir / "scratch", 10);
    EXPECT_THROW(failing.transcribe({0}, {}), EngineError);
    CommandEngine missing("/nonexistent/program", dir / "scratch", 10);
    EXPECT_THROW(missing.transcribe({0}, {}), EngineError);
    vocle::testing::writeText(dir / "slow.sh", "#!/bin/sh\nexec sleep 5\n");
    std::filesystem::permissions(dir / "slow.sh", std::filesystem::perms::owner_all);
    CommandEngine slow((dir / "slow.sh").string(), dir / "scratch", 1);
    EXPECT_THROW(slow.transcribe({0}, {}), EngineError);
    EXPECT_EQ(CommandEngine::splitCommandLine(R"(prog "a b" c)"),
              (std::vector<std::string>{"prog", "a b", "c"}));
}
