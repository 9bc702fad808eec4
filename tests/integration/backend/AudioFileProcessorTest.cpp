#include <gtest/gtest.h>
#include <sndfile.h>

#include <optional>
#include <random>

#include "BackendTestSupport.h"
#include "backend/AudioFileProcessor.h"
#include "foundation/Base64.h"
#include "foundation/DispatchQueue.h"
#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "storage/DataFolder.h"
#include "support/TempDir.h"
#include "storage/SessionStore.h"

namespace vocle {
namespace {

namespace fs = std::filesystem;
using testing::PumpedMainQueue;
using testing::RecordedRequest;
using testing::reply;
using testing::ScriptedServer;

void writeNoiseWav(const fs::path& path, int rate, double seconds) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> dist(-6000, 6000);
    std::vector<short> samples(static_cast<size_t>(rate * seconds));
    for (auto& s : samples) s = static_cast<short>(dist(rng));
    sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(f);
}

// The modal alert of the desktop, answered with its first button once the main queue runs.
class ScriptedAlerts final : public Alerts {
  public:
    ScriptedAlerts(MainQueue& queue, std::vector<std::string>& events) : queue_(queue), events_(events) {}
    void show(const AlertRequest& request, std::function<void(int)> onResponse) override {
        shown.push_back(request);
        events_.push_back("alert");
        queue_.post([onResponse] { onResponse(0); });
    }
    std::vector<AlertRequest> shown;

  private:
    MainQueue& queue_;
    std::vector<std::string>& events_;
};

class AudioFileProcessorTest : public ::testing::Test {
  protected:
    void SetUp() override {
        server.start();
        sessions.save(SupabaseSession{"acc", "ref", "u", "u@example.org"});
        fs::create_directories(tmp);
        backendPtr = std::make_unique<BackendService>(server.origin(), "1.0", queue, sessions, files.deviceId());
    }

    AudioFileProcessor& processor(fs::path temporaryDirectory) {
        processor_ = std::make_unique<AudioFileProcessor>(
            *backendPtr, queue, work, alerts, [this] { events.push_back("signOut"); },
            std::move(temporaryDirectory));
        return *processor_;
    }
    AudioFileProcessor& processor() { return processor(tmp); }

    void transcribeAnswers(int status, std::string body) {
        server.on("POST", "/transcribe", [status, body](const RecordedRequest&, httplib::Response& res) {
            reply(res, status, body);
        });
    }

    // Runs the recording through the pipeline the way the engine does and waits for the completion.
    Result<std::string> run(AudioFileProcessor& p, const fs::path& file) {
        std::optional<Result<std::string>> result;
        bool completedOnWorkQueue = false;
        Mode mode = Mode::fresh("Default");
        p.processRecording(file, mode, "Vocle", {Replacement::make("period", ".")},
                           [&](Result<std::string> r) {
                               events.push_back("completion");
                               completedOnWorkQueue = inWorkQueue;
                               result = std::move(r);
                           });
        inWorkQueue = true;
        work.runAll();
        inWorkQueue = false;
        EXPECT_TRUE(queue.pumpUntil([&] { return result.has_value(); }));
        completedOnWork = completedOnWorkQueue;
        if (!result) return Error{"test", 0, "no completion"};
        return *result;
    }
    std::string uploadedAudio(size_t index = 0) const {
        const auto requests = server.requests();
        if (requests.size() <= index) return {};
        return *base64::decode(Json::parse(requests[index].body).at("audio").get<std::string>());
    }

    PumpedMainQueue queue;
    ScriptedServer server{queue.clock()};
    vocle::testing::TempDir dir;
    fs::path tmp = dir / "tmp";
    FileStorageManager files{DataFolder(dir / "data"), queue.clock()};
    SessionStore sessions{files};
    std::unique_ptr<BackendService> backendPtr;
    ManualDispatchQueue work;
    std::vector<std::string> events;
    ScriptedAlerts alerts{queue, events};
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    std::unique_ptr<AudioFileProcessor> processor_;
    bool inWorkQueue = false;
    bool completedOnWork = false;
};

TEST_F(AudioFileProcessorTest, UploadsTheCompressedRecordingAndDeliversTheTranscriptOnTheMainQueue) {
    transcribeAnswers(200, R"({"transcript": "Hello wörld"})");
    const auto wav = dir / "vocle_1700000000.wav";
    writeNoiseWav(wav, 16000, 2.0);

    auto result = run(processor(), wav);
    ASSERT_TRUE(result.ok()) << result.error().description;
    EXPECT_EQ(result.value(), "Hello wörld");
    EXPECT_FALSE(completedOnWork);
    EXPECT_TRUE(alerts.shown.empty());

    const std::string audio = uploadedAudio();
    ASSERT_GT(audio.size(), 8u);
    EXPECT_EQ(audio.substr(4, 4), "ftyp") << "an MPEG-4 file, not the WAV";
    EXPECT_LT(audio.size(), fs::file_size(wav) / 3);

    std::vector<fs::path> compressed;
    for (const auto& entry : fs::directory_iterator(tmp)) compressed.push_back(entry.path());
    ASSERT_EQ(compressed.size(), 1u) << "the compressed file stays in the temporary folder";
    const std::string name = compressed[0].filename().string();
    ASSERT_EQ(name.size(), 6u + 36u + 4u) << name;
    EXPECT_EQ(name.substr(0, 6), "audio_");
    EXPECT_EQ(name.substr(42), ".m4a");
    const auto id = Uuid::parse(name.substr(6, 36));
    ASSERT_TRUE(id) << name;
    EXPECT_EQ(id->string(), name.substr(6, 36)) << "canonical upper-case form";
    EXPECT_EQ(readFile(compressed[0]), audio);
    EXPECT_TRUE(fs::exists(wav)) << "the recording belongs to the engine";

    for (const std::string& fragment : std::vector<std::string>{
             " - AudioFileProcessor.processRecording() started", " - starting MP3 compression",
             " - MP3 compression completed",
             "Successfully converted and read MP3 file: " + std::to_string(audio.size()) + " bytes",
             " - sending " + std::to_string(audio.size()) + " bytes to backend",
             " - backend request completed, received 11 chars"}) {
        EXPECT_TRUE(logs->contains(fragment)) << fragment;
    }
    EXPECT_TRUE(logs->contains("TIMESTAMP: " + formatTimestamp(queue.now()) + " - starting MP3 compression"));
    EXPECT_EQ(processor_->pendingUploads(), 0u);
}

TEST_F(AudioFileProcessorTest, ARecordingWithoutAudioDataIsUploadedAsTheWav) {
    transcribeAnswers(200, R"({"transcript": ""})");
    const auto wav = dir / "silent.wav";
    writeNoiseWav(wav, 16000, 0.0);

    auto result = run(processor(), wav);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.value(), "") << "an empty transcript is passed on";
    EXPECT_EQ(uploadedAudio(), readFile(wav));
    EXPECT_TRUE(
        logs->contains("ERROR during MP3 conversion: Audio conversion failed: No audio track found in source "
                       "asset. Falling back to WAV upload."));
    EXPECT_TRUE(logs->contains(
        "⚠️ Falling back to original WAV upload (reason: Audio conversion failed: No audio "
        "track found in source asset)"));
    EXPECT_TRUE(logs->contains(
        "Successfully read original audio file: " + std::to_string(fs::file_size(wav)) + " bytes"));
}

TEST_F(AudioFileProcessorTest, WithoutATemporaryFolderTheWavIsUploaded) {
    transcribeAnswers(200, R"({"transcript": "ok"})");
    const auto wav = dir / "rec.wav";
    writeNoiseWav(wav, 16000, 0.5);
    auto result = run(processor(fs::path()), wav);
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(uploadedAudio(), readFile(wav));
    EXPECT_TRUE(
        logs->contains("⚠️ Falling back to original WAV upload (reason: temporary MP3 URL was nil)"));
}

TEST_F(AudioFileProcessorTest, AnUnreadableRecordingFailsBeforeAnyTraffic) {
    transcribeAnswers(200, R"({"transcript": "never"})");
    auto result = run(processor(), dir / "missing.wav");
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().domain, "AudioFileProcessor");
    EXPECT_EQ(result.error().code, -1);
    EXPECT_EQ(
        result.error().description,
        "Failed to read audio file: The file \"missing.wav\" couldn't be opened: No such file or directory");
    EXPECT_TRUE(completedOnWork) << "this one completes from the work queue";
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_TRUE(alerts.shown.empty());
    EXPECT_TRUE(logs->contains("ERROR reading audio file: "));
}

TEST_F(AudioFileProcessorTest, AnExpiredSessionAlertsThenSignsOutThenCompletes) {
    transcribeAnswers(401, R"({"error": "jwt expired"})");
    const auto wav = dir / "rec.wav";
    writeNoiseWav(wav, 16000, 0.5);
    auto result = run(processor(), wav);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().description, "Please sign in again.");
    EXPECT_EQ(events, (std::vector<std::string>{"alert", "signOut", "completion"}));
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, "Please sign in again");
    EXPECT_EQ(alerts.shown[0].text, "Your session has expired.");
    EXPECT_EQ(alerts.shown[0].style, AlertStyle::informational);
    EXPECT_EQ(alerts.shown[0].buttons, std::vector<std::string>{"OK"});
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(AudioFileProcessorTest, ServerTroubleAlertsWithTheUserFacingText) {
    transcribeAnswers(500, R"({"error": "speech engine crashed"})");
    const auto wav = dir / "rec.wav";
    writeNoiseWav(wav, 16000, 0.5);
    auto result = run(processor(), wav);
    ASSERT_FALSE(result.ok());
    const std::string text = "Our servers are having issues. Please try again in a moment.";
    EXPECT_EQ(result.error().description, text);
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, "Transcription Error");
    EXPECT_EQ(alerts.shown[0].text, text);
    EXPECT_EQ(alerts.shown[0].style, AlertStyle::warning);
    EXPECT_EQ(events, (std::vector<std::string>{"alert", "completion"}));
    EXPECT_TRUE(logs->contains("Backend transcription failed: " + text));
    EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(AudioFileProcessorTest, ADeadNetworkAlertsNoInternetConnection) {
    server.stop();
    const auto wav = dir / "rec.wav";
    writeNoiseWav(wav, 16000, 0.5);
    auto result = run(processor(), wav);
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().description, "No internet connection. Check your network and try again.");
    ASSERT_EQ(alerts.shown.size(), 1u);
    EXPECT_EQ(alerts.shown[0].title, "No internet connection");
    EXPECT_EQ(alerts.shown[0].text, "Check your network and try again.");
    EXPECT_EQ(alerts.shown[0].style, AlertStyle::warning);
    EXPECT_FALSE(logs->contains("Backend transcription failed"));
}

}  // namespace
}  // namespace vocle

namespace vocle {
namespace {

TEST_F(AudioFileProcessorTest, AJobOutlivingItsProcessorDoesNothing) {
    transcribeAnswers(200, R"({"transcript": "never"})");
    const auto wav = dir / "rec.wav";
    writeNoiseWav(wav, 16000, 0.5);
    bool completed = false;
    processor().processRecording(wav, Mode::fresh("Default"), "", {},
                                 [&](Result<std::string>) { completed = true; });
    processor_.reset();
    work.runAll();  // compression still runs on the work queue
    queue.virtualQueue.runUntilIdle();
    EXPECT_FALSE(completed);
    EXPECT_EQ(server.requestCount(), 0u);
}

}  // namespace
}  // namespace vocle
