#include <gtest/gtest.h>
#include <sndfile.h>

#include <optional>

#include "FakeBackendHarness.h"
#include "backend/SettingsClient.h"
#include "foundation/FileIO.h"

namespace vocle::testing {
namespace {

namespace fs = std::filesystem;

void writeToneWav(const fs::path& path) {
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr);
    std::vector<short> samples(8000);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<short>((i % 40) * 300 - 6000);
    sf_write_short(f, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(f);
}

const char* const kTranscript = R"({"transcript": "hello again"})";

class FailedDictationTest : public ::testing::Test, protected FakeBackendHarness {
  protected:
    void SetUp() override {
        signIn();
        fs::create_directories(dir.path() / "tmp");
        writeToneWav(wav);
        graph.dictationRetry->setCopyToClipboard([this](const std::string& text) { copied.push_back(text); });
    }

    // One dictation through the upload pipeline, answered by the scripted network, up to its alert.
    void dictate() {
        recordedAt = now();
        graph.audioFileProcessor->processRecording(wav, mode, "Vocle", {Replacement::make("teh", "the")},
                                                   [this](Result<std::string> r) { result = std::move(r); });
        background.runAll();
        queue.advance(200.0);  // every retry inside the budget
    }

    const std::vector<PendingDictation>& kept() { return graph.pendingDictations.dictations.get(); }
    size_t transcribeRequests() const {
        size_t n = 0;
        for (const auto& s : network->sent()) n += s.path() == "/transcribe";
        return n;
    }

    fs::path wav = dir.path() / "tmp" / "final.wav";
    Mode mode = Mode::fresh("Email");
    double recordedAt = 0;
    std::optional<Result<std::string>> result;
    std::vector<std::string> copied;
    DictationRetry& retry() { return *graph.dictationRetry; }
};

struct FailureKind {
    const char* name;
    std::function<void(FakeHttpTransport&)> script;
    const char* alertTitle;
    std::string error;
    bool offersRetry;
};

}  // namespace

TEST_F(FailedDictationTest, EveryFailureTheUserIsAlertedToKeepsTheRecordingOnceWithItsRecord) {
    const std::string generic = BackendError::unknown().errorDescription();
    const std::vector<FailureKind> kinds = {
        {"dead network",
         [](auto& n) {
             for (int i = 0; i < 4; ++i) n.replyFailure();
         },
         "No internet connection", BackendError::network("x").errorDescription(), true},
        {"server trouble",
         [](auto& n) {
             for (int i = 0; i < 4; ++i) n.replyStatus(503, "busy");
         },
         "Transcription Error", BackendError::server(503, "").errorDescription(), true},
        {"refused request", [](auto& n) { n.replyStatus(400, R"({"error": "bad audio"})"); },
         "Transcription Error", generic, true},
        {"undecodable answer", [](auto& n) { n.replyStatus(200, "<html>"); }, "Transcription Error", generic,
         true},
        {"expired session", [](auto& n) { n.replyStatus(401); }, "Please sign in again",
         BackendError::authenticationFailed().errorDescription(), false},
    };
    for (const auto& kind : kinds) {
        SCOPED_TRACE(kind.name);
        for (const auto& e : kept()) graph.pendingDictations.remove(e.id);
        signIn();
        alerts.shown.clear();
        result.reset();
        kind.script(*network);
        dictate();

        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].title, kind.alertTitle);
        const std::vector<std::string> buttons =
            kind.offersRetry ? std::vector<std::string>{"OK", "Retry"} : std::vector<std::string>{"OK"};
        EXPECT_EQ(alerts.shown[0].buttons, buttons);

        ASSERT_EQ(kept().size(), 1u) << "kept before the alert is answered";
        const PendingDictation& e = kept()[0];
        EXPECT_EQ(e.error, kind.error);
        EXPECT_EQ(e.attempts, 1);
        EXPECT_EQ(e.mode, mode);
        EXPECT_EQ(e.vocabulary, "Vocle");
        ASSERT_EQ(e.replacements.size(), 1u);
        EXPECT_EQ(e.replacements[0].original, "teh");
        EXPECT_EQ(e.replacements[0].replacement, "the");
        EXPECT_DOUBLE_EQ(e.timestamp, recordedAt);
        EXPECT_EQ(e.audioFile.extension(), ".m4a") << "the compressed bytes that were sent";
        EXPECT_TRUE(fs::exists(dir.path() / "Vocle" / "pending" / (e.id.string() + ".json")));
        EXPECT_TRUE(fs::exists(wav)) << "the recording itself stays where the engine left it";

        EXPECT_FALSE(result);
        alerts.respond(0);
        ASSERT_TRUE(result);
        ASSERT_FALSE(result->ok());
        EXPECT_EQ(result->error().description, kind.error);
        queue.advance(1.0);
        EXPECT_EQ(kept().size(), 1u);
    }
}

TEST_F(FailedDictationTest, AnUnreadableRecordingIsNotAFailedDictation) {
    graph.audioFileProcessor->processRecording(dir.path() / "missing.wav", mode, "", {},
                                               [this](Result<std::string> r) { result = std::move(r); });
    background.runAll();
    queue.advance(1.0);
    ASSERT_TRUE(result);
    EXPECT_FALSE(result->ok());
    EXPECT_TRUE(kept().empty());
    EXPECT_TRUE(alerts.shown.empty());
}

TEST_F(FailedDictationTest, RetryFromTheAlertCopiesTheTranscriptAndFilesItAtTheRecordingsTime) {
    network->replyStatus(400, "{}");
    dictate();
    ASSERT_EQ(kept().size(), 1u);
    const fs::path audio = kept()[0].audioFile;

    network->replyStatus(200, kTranscript, {}, 2.0);
    alerts.respond(1);
    EXPECT_TRUE(retry().isRetrying(kept()[0].id));
    queue.advance(3.0);

    ASSERT_EQ(transcribeRequests(), 2u);
    EXPECT_EQ(network->sent()[1].body(), network->sent()[0].body()) << "the same request as the first time";
    EXPECT_EQ(copied, std::vector<std::string>{"hello again"});
    ASSERT_EQ(graph.history.transcriptions.get().size(), 1u);
    EXPECT_EQ(graph.history.transcriptions.get()[0].text, "hello again");
    EXPECT_DOUBLE_EQ(graph.history.transcriptions.get()[0].timestamp, recordedAt);
    EXPECT_TRUE(kept().empty());
    EXPECT_FALSE(fs::exists(audio));
    EXPECT_TRUE(fs::is_empty(dir.path() / "Vocle" / "pending"));
    EXPECT_EQ(alerts.shown.size(), 1u);
}

TEST_F(FailedDictationTest, AFailedRetryKeepsTheDictationCountsTheAttemptAndAsksAgain) {
    network->replyStatus(400, "{}");
    dictate();
    for (int i = 0; i < 4; ++i) network->replyFailure();
    alerts.respond(1);
    queue.advance(200.0);

    ASSERT_EQ(kept().size(), 1u);
    EXPECT_EQ(kept()[0].attempts, 2);
    EXPECT_EQ(kept()[0].error, BackendError::network("x").errorDescription());
    EXPECT_TRUE(copied.empty());
    EXPECT_TRUE(graph.history.transcriptions.get().empty());
    ASSERT_EQ(alerts.shown.size(), 2u);
    EXPECT_EQ(alerts.shown[1].title, "Retry failed");
    EXPECT_EQ(alerts.shown[1].buttons, (std::vector<std::string>{"OK", "Retry"}));

    // Asked again, and this time the backend answers.
    network->replyStatus(200, kTranscript);
    alerts.respond(1);
    queue.advance(1.0);
    EXPECT_TRUE(kept().empty());
    EXPECT_EQ(copied, std::vector<std::string>{"hello again"});
}

TEST_F(FailedDictationTest, TheTrayOffersKeptDictationsOnlyOnceTheBackendAnswersAgain) {
    network->replyStatus(400, "{}");
    dictate();
    alerts.respond(0);
    EXPECT_EQ(retry().offeredCount.get(), 0u);

    network->replyStatus(200, kSettingsEnvelope);
    SettingsClient settings(service());
    auto call = settings.fetchSettings([](auto) {});
    queue.advance(1.0);
    EXPECT_EQ(retry().offeredCount.get(), 1u) << "any successful request counts";

    network->replyStatus(400, "{}");
    queue.advance(1.0);
    dictate();
    alerts.respond(0);
    EXPECT_EQ(kept().size(), 2u);
    EXPECT_EQ(retry().offeredCount.get(), 0u) << "a new failure withdraws the offer";

    network->replyStatus(200, kSettingsEnvelope);
    auto again = settings.fetchSettings([](auto) {});
    queue.advance(1.0);
    EXPECT_EQ(retry().offeredCount.get(), 2u);

    network->replyStatus(200, R"({"transcript": "first"})");
    network->replyStatus(200, R"({"transcript": "second"})");
    std::optional<std::pair<size_t, size_t>> outcome;
    retry().retryAll([&](size_t ok, size_t failed) { outcome = {ok, failed}; });
    queue.advance(5.0);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(*outcome, (std::pair<size_t, size_t>{2, 0}));
    EXPECT_EQ(retry().offeredCount.get(), 0u);
    const auto& history = graph.history.transcriptions.get();
    ASSERT_EQ(history.size(), 2u);
    EXPECT_GT(history[0].timestamp, history[1].timestamp) << "newest recording first";
}

TEST_F(FailedDictationTest, ARecoveredRecordingIsSentWithTheSelectedModeAndCanBeDropped) {
    const fs::path pending = dir.path() / "Vocle" / "pending";
    fs::create_directories(pending);
    const Uuid id = Uuid::random();
    fs::copy_file(wav, pending / (id.string() + ".wav"));
    graph.pendingDictations.reload();
    ASSERT_EQ(kept().size(), 1u);
    EXPECT_TRUE(kept()[0].recovered);

    graph.modeManager->selectedMode.set(std::nullopt);
    std::optional<Result<std::string>> outcome;
    retry().retry(id, [&](Result<std::string> r) { outcome = std::move(r); });
    queue.advance(1.0);
    ASSERT_TRUE(outcome);
    ASSERT_FALSE(outcome->ok());
    EXPECT_EQ(outcome->error().description, "No mode selected");
    EXPECT_EQ(transcribeRequests(), 0u);

    graph.modeManager->selectedMode.set(Mode::fresh("Notes"));
    network->replyStatus(500, "down");
    for (int i = 0; i < 3; ++i) network->replyStatus(500, "down");
    outcome.reset();
    retry().retry(id, [&](Result<std::string> r) { outcome = std::move(r); });
    queue.advance(200.0);
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->ok());
    ASSERT_GE(transcribeRequests(), 1u);
    EXPECT_NE(network->sent().back().body().find("Notes"), std::string::npos);
    EXPECT_FALSE(kept()[0].recovered) << "a record is written for it now";

    EXPECT_TRUE(retry().drop(id));
    EXPECT_TRUE(kept().empty());
    EXPECT_TRUE(fs::is_empty(pending));
}

}  // namespace vocle::testing
