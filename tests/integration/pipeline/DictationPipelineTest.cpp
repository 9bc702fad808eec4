// A finished recording through the app's real upload pipeline (AAC compression, the libcurl client with
// its headers and token rotation) to the real vocle-server with pocketsphinx, and back as text.
#include <gtest/gtest.h>

#include <optional>

#include "backend/AudioFileProcessor.h"
#include "backend/BackendError.h"
#include "backend/BackendService.h"
#include "backend/SignInClient.h"
#include "foundation/DispatchQueue.h"
#include "foundation/Log.h"
#include "integration/backend/BackendTestSupport.h"
#include "integration/server/ServerFixture.h"
#include "platform/testing/FakeAlerts.h"
#include "storage/SessionStore.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

const std::filesystem::path kClip = kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav";

class DictationPipelineTest : public ::testing::Test {
protected:
    TestServer server;
    TempDir home;
    PumpedMainQueue mainQueue;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    FileStorageManager files{DataFolder(home.path()), mainQueue.clock()};
    SessionStore sessions{files};
    std::unique_ptr<BackendService> backend;
    SerialThreadQueue conversionQueue{"audioConversionQueue"};
    FakeAlerts alerts;
    int signOuts = 0;
    std::unique_ptr<AudioFileProcessor> processor;

    void SetUp() override {
        backend = std::make_unique<BackendService>("http://127.0.0.1:" + std::to_string(server.port), "test",
                                                   mainQueue, sessions, files.deviceId());
        processor = std::make_unique<AudioFileProcessor>(*backend, mainQueue, conversionQueue, alerts,
                                                         [this] { ++signOuts; }, home.path());
    }

    // Signs in the way the app does: send the code, read it from the outbox, verify, store the session.
    void signIn(const std::string& email) {
        SignInClient signInClient(*backend);
        bool sent = false;
        auto s1 = signInClient.sendOTP(email, [&] { sent = true; });
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return sent; }));
        std::optional<VerifyOTPResult> verified;
        auto s2 =
            signInClient.verifyOTP(email, server.latestCode(email), [&](VerifyOTPResult r) { verified = r; });
        ASSERT_TRUE(mainQueue.pumpUntil([&] { return verified.has_value(); }));
        ASSERT_EQ(verified->outcome, VerifyOTPResult::Outcome::verified);
        sessions.save(verified->session);
        backend->setAccessToken(verified->session.accessToken);
        backend->setRefreshToken(verified->session.refreshToken);
    }

    std::optional<Result<std::string>> outcome;

    void startTranscription(const std::filesystem::path& file, const std::vector<Replacement>& replacements) {
        Mode mode = Mode::fresh("Default");
        mode.type = "Raw";
        processor->processRecording(file, mode, "", replacements,
                                    [this](Result<std::string> r) { outcome.emplace(std::move(r)); });
    }

    bool pumpUntil(const std::function<bool()>& done) {
        return mainQueue.pumpUntil(done, true, std::chrono::seconds(180));
    }

    Result<std::string> transcribe(const std::filesystem::path& file, const std::vector<Replacement>& replacements) {
        startTranscription(file, replacements);
        EXPECT_TRUE(pumpUntil([&] { return outcome.has_value(); }));
        return outcome.value_or(Result<std::string>(Error{"test", 0, "no outcome"}));
    }
};

}  // namespace

TEST_F(DictationPipelineTest, RecordingIsCompressedSentAndTranscribedWithReplacements) {
    signIn("ada@example.com");
    const auto result = transcribe(kClip, {Replacement::make("young man", "youth")});
    ASSERT_TRUE(result.ok()) << result.error().description;
    EXPECT_NE(result.value().find("youth"), std::string::npos) << result.value();
    EXPECT_EQ(result.value().find("young man"), std::string::npos) << result.value();
    EXPECT_TRUE(logs->contains("Successfully converted and read MP3 file: ")) << "the upload was the AAC file";
    EXPECT_FALSE(logs->contains("Falling back to original WAV upload"));
    EXPECT_TRUE(alerts.shown.empty());
}

TEST_F(DictationPipelineTest, ExpiredAccessTokenIsRotatedAndTheNewPairStored) {
    signIn("bob@example.com");
    const SupabaseSession before = *sessions.load();
    server.clock.advance(3601);  // the access token has expired; the refresh token has not

    const auto result = transcribe(kClip, {});
    ASSERT_TRUE(result.ok()) << result.error().description;
    const SupabaseSession after = *sessions.load();
    EXPECT_NE(after.accessToken, before.accessToken);
    EXPECT_NE(after.refreshToken, before.refreshToken);
    EXPECT_EQ(after.email, "bob@example.com");
    EXPECT_EQ(backend->accessToken(), after.accessToken);

    // Past the server's grace window for racing requests, the spent refresh token no longer opens anything.
    server.clock.advance(31);
    auto stale = server.get("/settings", "Bearer " + before.accessToken + ";refresh=" + before.refreshToken);
    EXPECT_EQ(stale->status, 401);
    EXPECT_EQ(signOuts, 0);
}

TEST_F(DictationPipelineTest, SignedOutServerAnswerEndsTheSessionAfterTheAlert) {
    signIn("cy@example.com");
    server.clock.advance(31 * 24 * 3600);  // both tokens have expired
    startTranscription(kClip, {});
    ASSERT_TRUE(pumpUntil([&] { return !alerts.shown.empty(); }));
    EXPECT_EQ(alerts.shown[0].title, "Please sign in again");
    EXPECT_FALSE(outcome.has_value()) << "the caller hears of it only once the alert is closed";
    alerts.respond(0);
    ASSERT_TRUE(pumpUntil([&] { return outcome.has_value() && signOuts == 1; }));
    EXPECT_FALSE(outcome->ok());
    EXPECT_EQ(outcome->error().description, BackendError::authenticationFailed().errorDescription());
}
