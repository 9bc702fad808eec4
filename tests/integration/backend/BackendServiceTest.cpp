#include <gtest/gtest.h>

#include <future>
#include <optional>

#include "BackendTestSupport.h"
#include "backend/BackendService.h"
#include "backend/SettingsClient.h"
#include "backend/SignInClient.h"
#include "backend/SupportService.h"
#include "backend/TranscriptionClient.h"
#include "foundation/Base64.h"
#include "foundation/Log.h"
#include "storage/DataFolder.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using testing::PumpedMainQueue;
using testing::RecordedRequest;
using testing::reply;
using testing::ScriptedServer;

const std::string kServersDown = "Our servers are having issues. Please try again in a moment.";
const std::string kGeneric = "Something went wrong. Please try again.";
const std::string kEnvelope = R"({"settings_version": 3, "templates_version": 7})";

class BackendServiceTest : public ::testing::Test {
  protected:
    void SetUp() override { server.start(); }

    void signIn(const std::string& access = "acc-1", const std::string& refresh = "ref-1") {
        sessions.save(SupabaseSession{access, refresh, "user-1", "user@example.org"});
    }
    BackendService& service(std::string origin = "") {
        if (!service_) {
            service_ = std::make_unique<BackendService>(origin.empty() ? server.origin() : origin, "9.9.9",
                                                        queue, sessions, files.deviceId());
        }
        return *service_;
    }
    template <class T>
    Result<T, BackendError> await(std::optional<Result<T, BackendError>>& slot) {
        EXPECT_TRUE(queue.pumpUntil([&] { return slot.has_value(); }));
        if (!slot) return BackendError::unknown();
        return *slot;
    }
    Result<SettingsEnvelope, BackendError> fetch() {
        std::optional<Result<SettingsEnvelope, BackendError>> result;
        auto sub = SettingsClient(service()).fetchSettings([&](auto r) { result = std::move(r); });
        return await(result);
    }
    std::vector<std::string> lines() const { return logs->lines(); }

    PumpedMainQueue queue;
    ScriptedServer server{queue.clock()};
    vocle::testing::TempDir dir;
    FileStorageManager files{DataFolder(dir.path()), queue.clock()};
    SessionStore sessions{files};
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    std::unique_ptr<BackendService> service_;
};

TEST_F(BackendServiceTest, SendsTheCommonHeadersWithBothTokensInOneAuthorizationValue) {
    server.on("GET", "/settings",
              [](const RecordedRequest&, httplib::Response& res) { reply(res, 200, kEnvelope); });
    server.on("POST", "/support/message", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({"success": true})");
    });
    signIn();
    ASSERT_TRUE(fetch().ok());

    service().setRefreshToken("");
    ASSERT_TRUE(fetch().ok());

    service().setAccessToken("");
    std::optional<Result<bool, BackendError>> sent;
    auto sub = SupportService(service()).sendSupportMessage("hi", [&](auto r) { sent = std::move(r); });
    ASSERT_TRUE(await(sent).ok());

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer acc-1;refresh=ref-1");
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_EQ(requests[0].header("X-Device-Id"), files.deviceId());
    EXPECT_FALSE(files.deviceId().empty());
    EXPECT_EQ(requests[0].header("X-App-Version"), "9.9.9");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer acc-1");
    EXPECT_FALSE(requests[2].hasHeader("Authorization"));
    EXPECT_EQ(requests[2].header("Content-Type"), "application/json");
}

TEST_F(BackendServiceTest, SequentialRequestsReuseOneConnection) {
    server.on("GET", "/settings",
              [](const RecordedRequest&, httplib::Response& res) { reply(res, 200, kEnvelope); });
    signIn();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(fetch().ok());
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[1].remotePort, requests[0].remotePort);
    EXPECT_EQ(requests[2].remotePort, requests[0].remotePort);
}

TEST_F(BackendServiceTest, CallsRunConcurrentlyOnTheOneWorker) {
    std::promise<void> secondArrived;
    auto second = secondArrived.get_future().share();
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) {
            // Answers only once the second call is on the wire, which a one-at-a-time client never sends.
            const bool overlapped = second.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
            return reply(res, overlapped ? 200 : 409, overlapped ? kEnvelope : "no overlap");
        }
        secondArrived.set_value();
        reply(res, 200, kEnvelope);
    });
    signIn();
    std::optional<Result<SettingsEnvelope, BackendError>> first;
    std::optional<Result<SettingsEnvelope, BackendError>> later;
    auto s1 = SettingsClient(service()).fetchSettings([&](auto r) { first = std::move(r); });
    while (calls.load() == 0) std::this_thread::yield();  // the first call has reached the server
    auto s2 = SettingsClient(service()).fetchSettings([&](auto r) { later = std::move(r); });
    EXPECT_TRUE(await(first).ok());
    EXPECT_TRUE(await(later).ok());
    server.stop();  // joins the handler threads before the promises they use go away
}

TEST_F(BackendServiceTest, ServiceUnavailableIsTriedFourTimesWithGrowingDelays) {
    server.on("GET", "/settings", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 503, "upstream busy", "text/plain");
    });
    signIn();
    service();
    logs->clear();
    auto result = fetch();
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error(), BackendError::server(503, "upstream busy"));

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u);
    EXPECT_DOUBLE_EQ(requests[1].virtualTime - requests[0].virtualTime, 1.0);
    EXPECT_DOUBLE_EQ(requests[2].virtualTime - requests[1].virtualTime, 2.0);
    EXPECT_DOUBLE_EQ(requests[3].virtualTime - requests[2].virtualTime, 4.0);

    const std::vector<std::string> expected = {
        "Network request attempt 1/4",
        "Retrying after 1.0s delay due to: " + kServersDown,
        "Network request attempt 2/4",
        "Retrying after 2.0s delay due to: " + kServersDown,
        "Network request attempt 3/4",
        "Retrying after 4.0s delay due to: " + kServersDown,
        "Network request attempt 4/4",
        "Not retrying error: " + kServersDown + " (attempt 4, shouldRetry: true)",
    };
    EXPECT_EQ(lines(), expected);
}

TEST_F(BackendServiceTest, NotFoundIsNotRetried) {
    server.on("GET", "/settings", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 404, R"({"error": "no such route"})");
    });
    signIn();
    auto result = fetch();
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error(), BackendError::server(404, "no such route"));
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(lines().back(), "Not retrying error: " + kGeneric + " (attempt 1, shouldRetry: false)");
}

TEST_F(BackendServiceTest, TooManyRequestsAndTimeoutStatusesAreRetriedUntilSuccess) {
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        const int n = calls++;
        if (n == 0) return reply(res, 429, "slow down", "text/plain");
        if (n == 1) return reply(res, 408, "again", "text/plain");
        reply(res, 200, kEnvelope);
    });
    signIn();
    auto result = fetch();
    ASSERT_TRUE(result.ok());
    EXPECT_EQ(result.value().templatesVersion, 7);
    EXPECT_EQ(server.requestCount(), 3u);
    EXPECT_TRUE(logs->contains("Retrying after 2.0s delay due to: " + kGeneric));
}

TEST_F(BackendServiceTest, UnauthorizedFailsAtOnceButItsRotationHeadersAreAppliedFirst) {
    server.on("GET", "/settings", [](const RecordedRequest&, httplib::Response& res) {
        res.set_header("X-Access-Token", "acc-2");
        res.set_header("X-Refresh-Token", "ref-2");
        reply(res, 401, R"({"error": "expired"})");
    });
    signIn();
    auto result = fetch();
    ASSERT_FALSE(result.ok());
    EXPECT_EQ(result.error().kind, BackendError::Kind::authenticationFailed);
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(service().accessToken(), "acc-2");
    EXPECT_EQ(service().refreshToken(), "ref-2");
    ASSERT_TRUE(sessions.load());
    EXPECT_EQ(sessions.load()->accessToken, "acc-2");
    EXPECT_EQ(sessions.load()->refreshToken, "ref-2");
    EXPECT_EQ(sessions.load()->email, "user@example.org");
    EXPECT_EQ(lines().back(), "Not retrying error: Please sign in again. (attempt 1, shouldRetry: false)");
}

TEST_F(BackendServiceTest, RotationNeedsBothHeadersNonEmpty) {
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) {
            res.set_header("X-Access-Token", "acc-only");
        } else {
            res.set_header("X-Access-Token", "acc-3");
            res.set_header("X-Refresh-Token", "");
        }
        reply(res, 200, kEnvelope);
    });
    signIn();
    ASSERT_TRUE(fetch().ok());
    ASSERT_TRUE(fetch().ok());
    EXPECT_EQ(service().accessToken(), "acc-1");
    EXPECT_EQ(service().refreshToken(), "ref-1");
    EXPECT_EQ(sessions.load()->accessToken, "acc-1");
}

TEST_F(BackendServiceTest, ATokenRotatedByAFailedAttemptIsSentByTheNextOne) {
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) {
            res.set_header("X-Access-Token", "acc-2");
            res.set_header("X-Refresh-Token", "ref-2");
            return reply(res, 502, "bad gateway", "text/plain");
        }
        reply(res, 200, kEnvelope);
    });
    signIn();
    ASSERT_TRUE(fetch().ok());
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer acc-1;refresh=ref-1");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer acc-2;refresh=ref-2");
}

TEST_F(BackendServiceTest, ClientErrorMessageComesFromJsonErrorMemberOrPlainText) {
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        switch (calls++) {
            case 0:
                return reply(res, 400, R"({"error": "Unknown mode type", "code": 12})");
            case 1:
                return reply(res, 400, "Mode name is required", "text/plain");
            case 2:
                return reply(res, 400, R"({"error": 42})");
            default:
                return reply(res, 400, std::string("\xff\xfe bad", 6), "application/octet-stream");
        }
    });
    signIn();
    EXPECT_EQ(fetch().error(), BackendError::server(400, "Unknown mode type"));
    EXPECT_EQ(fetch().error(), BackendError::server(400, "Mode name is required"));
    EXPECT_EQ(fetch().error(), BackendError::server(400, R"({"error": 42})"));
    EXPECT_EQ(fetch().error(), BackendError::server(400, "Unknown error"));
    EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(BackendServiceTest, SuccessWithoutARequiredKeyIsADecodingErrorAndNotRetried) {
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) return reply(res, 200, R"({"settings_version": 3})");
        reply(res, 200, "not json at all", "text/plain");
    });
    signIn();
    auto missing = fetch();
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().kind, BackendError::Kind::decodingError);
    EXPECT_NE(missing.error().underlying.find("templates_version"), std::string::npos);
    EXPECT_EQ(lines().back(), "Not retrying error: " + kGeneric + " (attempt 1, shouldRetry: false)");
    EXPECT_EQ(fetch().error().kind, BackendError::Kind::decodingError);
    EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(BackendServiceTest, NoAttemptStartsOnceTheBudgetIsSpent) {
    std::promise<void> arrived;
    std::promise<void> release;
    auto released = release.get_future().share();
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        arrived.set_value();
        released.wait();
        reply(res, 503, "down", "text/plain");
    });
    signIn();
    std::optional<Result<SettingsEnvelope, BackendError>> result;
    auto sub = SettingsClient(service()).fetchSettings([&](auto r) { result = std::move(r); });
    arrived.get_future().wait();
    queue.virtualQueue.advance(121.0);  // the first attempt "takes" 121 s
    release.set_value();
    auto outcome = await(result);
    ASSERT_FALSE(outcome.ok());
    EXPECT_EQ(outcome.error().kind, BackendError::Kind::networkError);
    EXPECT_EQ(outcome.error().underlying, "The request timed out.");
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(lines().back(), "Total retry timeout exceeded after 122.0s");
    server.stop();  // joins the handler threads before the promises they use go away
}

TEST_F(BackendServiceTest, WithoutATokenNothingReachesTheNetwork) {
    server.on("GET", "/settings",
              [](const RecordedRequest&, httplib::Response& res) { reply(res, 200, kEnvelope); });
    server.on("POST", "/settings",
              [](const RecordedRequest&, httplib::Response& res) { reply(res, 200, "{}"); });
    server.on("POST", "/transcribe", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({"transcript": "x"})");
    });
    std::optional<Result<std::string, BackendError>> transcript;
    std::optional<Result<SettingsEnvelope, BackendError>> envelope;
    std::optional<Result<BackupResponse, BackendError>> backup;
    auto s1 = TranscriptionClient(service()).transcribeAudio("RIFF", Mode::fresh("Default"), "", {},
                                                             [&](auto r) { transcript = r; });
    auto s2 = SettingsClient(service()).fetchSettings([&](auto r) { envelope = r; });
    auto s3 =
        SettingsClient(service()).backupSettings(SettingsDoc{}, std::nullopt, [&](auto r) { backup = r; });
    EXPECT_FALSE(transcript || envelope || backup) << "completions are never called before the call returns";
    EXPECT_EQ(await(transcript).error().kind, BackendError::Kind::authenticationFailed);
    EXPECT_EQ(await(envelope).error().kind, BackendError::Kind::authenticationFailed);
    EXPECT_EQ(await(backup).error().kind, BackendError::Kind::authenticationFailed);
    EXPECT_EQ(server.requestCount(), 0u);
    EXPECT_TRUE(logs->contains("Access token: empty"));
    EXPECT_TRUE(logs->contains("ERROR: Access token is empty"));
    EXPECT_FALSE(logs->contains("Network request attempt"));
    EXPECT_TRUE(logs->contains("Transcription request failed: Please sign in again."));
}

TEST_F(BackendServiceTest, AnOriginThatDoesNotFormAURLFailsBeforeAnyAttempt) {
    signIn();
    std::optional<Result<std::string, BackendError>> transcript;
    std::optional<Result<bool, BackendError>> support;
    auto s1 = TranscriptionClient(service("not a url"))
                  .transcribeAudio("RIFF", Mode::fresh("Default"), "", {}, [&](auto r) { transcript = r; });
    auto s2 = SupportService(service()).sendSupportMessage("hello", [&](auto r) { support = r; });
    EXPECT_EQ(await(transcript).error().kind, BackendError::Kind::invalidURL);
    EXPECT_EQ(await(support).error().kind, BackendError::Kind::invalidURL);
    EXPECT_TRUE(logs->contains("ERROR: Invalid URL: not a url/transcribe"));
    EXPECT_FALSE(logs->contains("Network request attempt"));
}

TEST_F(BackendServiceTest, ADeadServerIsANetworkErrorAfterFourAttempts) {
    const std::string origin = server.origin();
    server.stop();  // nothing listens on the port any more
    signIn();
    std::optional<Result<SettingsEnvelope, BackendError>> result;
    auto sub = SettingsClient(service(origin)).fetchSettings([&](auto r) { result = std::move(r); });
    auto outcome = await(result);
    ASSERT_FALSE(outcome.ok());
    EXPECT_EQ(outcome.error().kind, BackendError::Kind::networkError);
    EXPECT_FALSE(outcome.error().underlying.empty());
    EXPECT_EQ(logs->count("Network request attempt"), 4u);
    EXPECT_EQ(lines().back(),
              "Not retrying error: No internet connection. Check your network and try again. (attempt 4, "
              "shouldRetry: true)");
}

TEST_F(BackendServiceTest, DroppingTheSubscriptionCancelsTheCall) {
    std::promise<void> arrived;
    std::promise<void> release;
    auto released = release.get_future().share();
    std::atomic<int> calls{0};
    server.on("GET", "/settings", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) {
            arrived.set_value();
            released.wait();
        }
        reply(res, 200, kEnvelope);
    });
    signIn();
    bool firstCalled = false;
    {
        auto sub = SettingsClient(service()).fetchSettings([&](auto) { firstCalled = true; });
        arrived.get_future().wait();
    }
    release.set_value();
    ASSERT_TRUE(fetch().ok());
    queue.virtualQueue.runUntilIdle();
    EXPECT_FALSE(firstCalled);
    server.stop();  // joins the handler threads before the promises they use go away
}

TEST_F(BackendServiceTest, TranscriptionSendsTheAudioModeVocabularyAndReplacementsAsOneJsonBody) {
    server.on("POST", "/transcribe", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({"transcript": "Hello there.", "duration": 1.5})");
    });
    signIn();
    std::string audio;
    for (int i = 0; i < 1000; ++i) audio.push_back(static_cast<char>(i * 37));
    Mode mode = Mode::fresh("Email");
    mode.type = std::nullopt;
    mode.prompt = "Write it as an e-mail.";
    mode.language = "English (UK)";
    std::vector<Replacement> replacements{Replacement::make("period", "."),
                                          Replacement::make("new line", "\n")};

    std::optional<Result<std::string, BackendError>> result;
    auto sub = TranscriptionClient(service()).transcribeAudio(audio, mode, "Kubernetes, Vocle", replacements,
                                                              [&](auto r) { result = r; });
    auto outcome = await(result);
    ASSERT_TRUE(outcome.ok());
    EXPECT_EQ(outcome.value(), "Hello there.");

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    const Json body = Json::parse(requests[0].body);
    EXPECT_EQ(base64::decode(body.at("audio").get<std::string>()), audio);
    EXPECT_EQ(body.at("mode"), (Json{{"id", mode.id.string()},
                                     {"name", "Email"},
                                     {"type", "raw"},
                                     {"prompt", "Write it as an e-mail."},
                                     {"language", "en-GB"}}));
    EXPECT_EQ(body.at("vocab_words"), "Kubernetes, Vocle");
    EXPECT_EQ(body.at("text_replacements"),
              Json::parse(R"([{"from": "period", "to": "."}, {"from": "new line", "to": "\n"}])"));

    for (const char* line :
         {"BackendService - transcribeAudio called", "Audio data size: 1000 bytes", "Access token: provided",
          "Mode details:", "  - Name: Email", "  - Type: raw", "  - Language: English (UK) → en-GB",
          "Text replacements being sent to backend:", "  1. \"period\" → \".\"",
          "Sending transcription request with mode: Email", "Received transcription response"}) {
        EXPECT_TRUE(logs->contains(line)) << line;
    }
    EXPECT_TRUE(logs->contains("Using endpoint: " + server.origin() + "/transcribe"));
}

TEST_F(BackendServiceTest, EveryRetryOfATranscriptionResendsTheSameBody) {
    std::atomic<int> calls{0};
    server.on("POST", "/transcribe", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ < 2) return reply(res, 500, R"({"error": "engine crashed"})");
        reply(res, 200, R"({"transcript": ""})");
    });
    signIn();
    std::optional<Result<std::string, BackendError>> result;
    auto sub = TranscriptionClient(service()).transcribeAudio(
        std::string(300000, 'a'), Mode::fresh("Default"), "", {}, [&](auto r) { result = r; });
    auto outcome = await(result);
    ASSERT_TRUE(outcome.ok());
    EXPECT_EQ(outcome.value(), "") << "an empty transcript is a transcript";
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].body, requests[1].body);
    EXPECT_EQ(requests[0].body, requests[2].body);
    EXPECT_EQ(Json::parse(requests[0].body).at("text_replacements"), Json::array());
}

TEST_F(BackendServiceTest, BackupSendsTheDocumentAndTheVersionOnlyWhenGiven) {
    server.on("POST", "/settings", [](const RecordedRequest& req, httplib::Response& res) {
        const Json body = Json::parse(req.body);
        reply(res, 200, Json{{"settings", body.at("settings")}, {"settings_version", 12}}.dump());
    });
    signIn();
    SettingsDoc doc;
    doc.vocabWords = "Vocle";
    doc.textReplacements = std::vector<SettingsReplacement>{{"a", "b"}};
    std::optional<Result<BackupResponse, BackendError>> first;
    std::optional<Result<BackupResponse, BackendError>> second;
    auto s1 = SettingsClient(service()).backupSettings(doc, std::nullopt, [&](auto r) { first = r; });
    ASSERT_TRUE(await(first).ok());
    auto s2 = SettingsClient(service()).backupSettings(doc, 11, [&](auto r) { second = r; });
    ASSERT_TRUE(await(second).ok());
    EXPECT_EQ(first->value().settings, doc);
    EXPECT_EQ(first->value().settingsVersion, 12);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(
        Json::parse(requests[0].body),
        Json::parse(
            R"({"settings": {"vocab_words": "Vocle", "text_replacements": [{"from": "a", "to": "b"}]}})"));
    EXPECT_EQ(Json::parse(requests[1].body).at("if_match_version"), 11);
}

TEST_F(BackendServiceTest, FetchDecodesTheWholeEnvelope) {
    server.on("GET", "/settings", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 200, R"({
          "settings": {"modes": [{"id": "A", "name": "Notes", "type": "Custom", "prompt": "p", "language": "German",
                                  "examples": [{"input": "i", "output": "o"}], "activation_website": null}],
                       "vocab_words": "x", "last_active_mode_id": "A"},
          "settings_version": 4,
          "templates": {"mode_types": [{"id": "22222222-2222-2222-2222-222222222222", "name": "Default",
                                        "prompt": "Clean up", "language": "English", "display": true}]},
          "templates_version": 9})");
    });
    signIn();
    auto result = fetch();
    ASSERT_TRUE(result.ok());
    const auto& e = result.value();
    ASSERT_TRUE(e.settings && e.settings->modes);
    EXPECT_EQ(e.settings->modes->at(0).language, "German");
    EXPECT_EQ(e.settings->modes->at(0).examples->at(0).output, "o");
    EXPECT_FALSE(e.settings->modes->at(0).activationWebsite);
    EXPECT_EQ(e.settingsVersion, 4);
    ASSERT_TRUE(e.templates);
    EXPECT_EQ(e.templates->modeTypes.at(0).display, true);
    EXPECT_FALSE(e.templates->modeTypes.at(0).description);
    EXPECT_EQ(e.templatesVersion, 9);
}

TEST_F(BackendServiceTest, SupportMessagesAreTrimmedCheckedAndMayReportFalse) {
    std::atomic<int> calls{0};
    server.on("POST", "/support/message", [&](const RecordedRequest&, httplib::Response& res) {
        if (calls++ == 0) return reply(res, 200, R"({"success": false})");
        reply(res, 201, R"({"ok": true})");
    });
    SupportService support(service());
    std::optional<Result<bool, BackendError>> empty;
    std::optional<Result<bool, BackendError>> sent;
    std::optional<Result<bool, BackendError>> undecodable;
    auto s1 = support.sendMessage(" \n\t \n", [&](auto r) { empty = r; });
    EXPECT_EQ(await(empty).error(), BackendError::server(400, "Message cannot be empty"));
    EXPECT_EQ(empty->error().errorDescription(), kGeneric);
    EXPECT_EQ(server.requestCount(), 0u);

    auto s2 = support.sendMessage("\n\n  The paste went to the wrong window.  \n", [&](auto r) { sent = r; });
    ASSERT_TRUE(await(sent).ok());
    EXPECT_FALSE(sent->value());
    auto s3 = support.sendMessage("again", [&](auto r) { undecodable = r; });
    EXPECT_EQ(await(undecodable).error().kind, BackendError::Kind::decodingError);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(Json::parse(requests[0].body), (Json{{"message", "The paste went to the wrong window."}}));
    EXPECT_FALSE(requests[0].hasHeader("Authorization")) << "signed out";
}

TEST_F(BackendServiceTest, SignInRequestsGoStraightToTheOriginWithoutRetryOrCredentials) {
    std::atomic<int> verifyCalls{0};
    server.on("POST", "/auth/send-otp", [](const RecordedRequest&, httplib::Response& res) {
        reply(res, 503, "mail relay down", "text/plain");
    });
    server.on("POST", "/auth/verify-otp", [&](const RecordedRequest&, httplib::Response& res) {
        switch (verifyCalls++) {
            case 0:
                return reply(res, 200, R"({"access_token": "a", "refresh_token": "r", "user": {}})");
            case 1:
                return reply(res, 400, R"({"error": "code expired"})");
            default:
                return reply(res, 200, R"({"access_token": "a", "user": {"id": "u"}})");
        }
    });
    signIn();
    bool sent = false;
    SignInClient signInClient(service());
    auto s1 = signInClient.sendOTP("me+test@mail.example.org", [&] { sent = true; });
    ASSERT_TRUE(queue.pumpUntil([&] { return sent; }));

    std::vector<VerifyOTPResult> results;
    for (int i = 0; i < 3; ++i) {
        auto sub = signInClient.verifyOTP("me+test@mail.example.org", " 123456",
                                          [&](VerifyOTPResult r) { results.push_back(std::move(r)); });
        ASSERT_TRUE(queue.pumpUntil([&] { return results.size() == static_cast<size_t>(i + 1); }));
    }
    EXPECT_EQ(results[0].outcome, VerifyOTPResult::Outcome::verified);
    EXPECT_EQ(results[0].session, (SupabaseSession{"a", "r", "", ""}));
    EXPECT_EQ(results[1].outcome, VerifyOTPResult::Outcome::invalidCode);
    EXPECT_EQ(results[2].outcome, VerifyOTPResult::Outcome::unexpectedResponse);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 4u) << "a failed send is not retried";
    EXPECT_EQ(Json::parse(requests[0].body), (Json{{"email", "me+test@mail.example.org"}}));
    EXPECT_EQ(Json::parse(requests[1].body),
              (Json{{"email", "me+test@mail.example.org"}, {"token", " 123456"}}));
    for (const auto& r : requests) {
        EXPECT_FALSE(r.hasHeader("Authorization"));
        EXPECT_FALSE(r.hasHeader("X-Device-Id"));
        EXPECT_EQ(r.header("Content-Type"), "application/json");
    }
    EXPECT_FALSE(logs->contains("Network request attempt"));
}

}  // namespace
}  // namespace vocle
