#include <gtest/gtest.h>

#include <algorithm>

#include "FakeBackendHarness.h"
#include "backend/SettingsClient.h"
#include "backend/SignInClient.h"
#include "backend/TranscriptionClient.h"

namespace vocle {
namespace {

using testing::FakeBackendHarness;
using testing::FakeHttpTransport;
using testing::kSettingsEnvelope;

const std::string kServersDown = "Our servers are having issues. Please try again in a moment.";
const std::string kOffline = "No internet connection. Check your network and try again.";

struct Fetch {
    std::optional<Result<SettingsEnvelope, BackendError>> result;
    double deliveredAt = -1;
};

class BackendServiceTiming : public ::testing::Test, protected FakeBackendHarness {
  protected:
    Subscription fetch(Fetch& into) {
        return SettingsClient(service()).fetchSettings(
            [this, &into](Result<SettingsEnvelope, BackendError> r) {
                EXPECT_FALSE(into.result) << "delivered twice";
                into.result = std::move(r);
                into.deliveredAt = queue.now();
            });
    }
    double sentAt(size_t i) const { return network->sent().at(i).sentAt; }
};

TEST_F(BackendServiceTiming, BackOffCountsFromEachFailureAndTheLastAttemptEndsTheCall) {
    signIn();
    for (int i = 0; i < 4; ++i) network->replyStatus(503, "upstream busy", {}, 3.0);
    const double start = now();
    Fetch f;
    auto sub = fetch(f);
    queue.advance(18.9);
    EXPECT_FALSE(f.result) << "the fourth attempt is still under way";
    queue.advance(0.2);

    ASSERT_TRUE(f.result);
    EXPECT_EQ(f.result->error(), BackendError::server(503, "upstream busy"));
    ASSERT_EQ(network->sent().size(), 4u);
    // Each attempt takes 3 s; the waits of 1, 2 and 4 s start when the previous attempt failed.
    EXPECT_DOUBLE_EQ(sentAt(0) - start, 0.0);
    EXPECT_DOUBLE_EQ(sentAt(1) - start, 4.0);
    EXPECT_DOUBLE_EQ(sentAt(2) - start, 9.0);
    EXPECT_DOUBLE_EQ(sentAt(3) - start, 16.0);
    EXPECT_DOUBLE_EQ(f.deliveredAt - start, 19.0);
    EXPECT_EQ(logs->lines().back(),
              "Not retrying error: " + kServersDown + " (attempt 4, shouldRetry: true)");
}

TEST_F(BackendServiceTiming, TheBudgetStopsTheNextAttemptButNotOneUnderWay) {
    signIn();
    for (int i = 0; i < 4; ++i) network->replyFailure("Connection timed out", 50.0);
    const double start = now();
    Fetch f;
    auto sub = fetch(f);
    queue.advance(200.0);

    ASSERT_TRUE(f.result);
    EXPECT_EQ(f.result->error().kind, BackendError::Kind::networkError);
    EXPECT_EQ(f.result->error().underlying, "The request timed out.");
    // Sent at 0, 51 and 103 s; the third started inside the budget and ran its 50 s; at 157 s none starts.
    ASSERT_EQ(network->sent().size(), 3u);
    EXPECT_DOUBLE_EQ(sentAt(2) - start, 103.0);
    EXPECT_DOUBLE_EQ(f.deliveredAt - start, 157.0);
    const std::vector<std::string> tail = {
        "Retrying after 4.0s delay due to: " + kOffline,
        "Total retry timeout exceeded after 157.0s",
    };
    const auto lines = logs->lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(std::vector<std::string>(lines.end() - 2, lines.end()), tail);
    EXPECT_EQ(network->scriptedLeft(), 1u);
}

TEST_F(BackendServiceTiming, SettingTheWallClockNeitherSpendsNorRefillsTheRetryBudget) {
    signIn();
    for (int i = 0; i < 4; ++i) network->replyFailure("Connection timed out", 1.0);
    Fetch f;
    auto sub = fetch(f);
    // Set a day ahead during the first attempt: a budget read off the wall clock would end the call at
    // the first retry instead of making all four attempts.
    queue.advance(0.5);
    queue.shiftWallClock(Seconds(86400));
    queue.advance(30.0);
    ASSERT_TRUE(f.result);
    EXPECT_EQ(network->sent().size(), 4u);
    EXPECT_EQ(f.result->error().underlying, "Connection timed out");

    // Set back by a day during a long call: the budget still ends it at 157 s of real waiting.
    for (int i = 0; i < 4; ++i) network->replyFailure("Connection timed out", 50.0);
    Fetch g;
    auto second = fetch(g);
    queue.advance(60.0);
    queue.shiftWallClock(Seconds(-86400));
    queue.advance(96.9);
    EXPECT_FALSE(g.result);
    queue.advance(0.2);
    ASSERT_TRUE(g.result);
    EXPECT_EQ(g.result->error().underlying, "The request timed out.");
}

TEST_F(BackendServiceTiming, DroppingTheCallCancelsTheTransferOrTheWaitingRetry) {
    signIn();
    {
        Fetch f;
        auto sub = fetch(f);
        ASSERT_EQ(network->waiting().size(), 1u);
        sub = Subscription();
        EXPECT_EQ(network->cancelledCount(), 1u);
        queue.advance(1.0);
        EXPECT_FALSE(f.result);
    }
    {
        network->replyStatus(500, "oops", {}, 0.5);
        Fetch f;
        auto sub = fetch(f);
        queue.advance(0.6);  // failed; the retry waits 1 s
        ASSERT_EQ(network->sent().size(), 2u);
        sub = Subscription();
        queue.advance(30.0);
        EXPECT_EQ(network->sent().size(), 2u) << "no attempt after the call was dropped";
        EXPECT_FALSE(f.result);
    }
}

TEST_F(BackendServiceTiming, AnswersArriveInTheirOwnOrderAndRotateTheStoredTokensOnce) {
    signIn();
    service();
    int sessionChanges = 0;
    auto watch = sessions.sessionDidChange.subscribe([&] { ++sessionChanges; });

    Fetch first, second;
    auto s1 = fetch(first);
    auto s2 = fetch(second);
    ASSERT_EQ(network->waiting().size(), 2u);
    const std::map<std::string, std::string> rotated{{"X-Access-Token", "acc-2"},
                                                     {"X-Refresh-Token", "ref-2"}};
    network->answer(0, FakeHttpTransport::response(200, kSettingsEnvelope, rotated), 2.0);
    network->answer(1, FakeHttpTransport::response(200, kSettingsEnvelope, rotated), 1.0);
    queue.advance(1.0);
    EXPECT_TRUE(second.result && second.result->ok());
    EXPECT_FALSE(first.result);
    EXPECT_EQ(sessionChanges, 1);
    queue.advance(1.0);
    EXPECT_TRUE(first.result && first.result->ok());
    EXPECT_EQ(sessionChanges, 1) << "the same pair again writes nothing";
    ASSERT_TRUE(sessions.load());
    EXPECT_EQ(sessions.load()->accessToken, "acc-2");

    Fetch third;
    auto s3 = fetch(third);
    EXPECT_EQ(network->sent().back().request.header("Authorization"), "Bearer acc-2;refresh=ref-2");
    EXPECT_EQ(network->sent().back().request.header("X-Device-Id"), files.deviceId());
    EXPECT_EQ(network->sent().back().request.header("X-App-Version"), "9.9.9");
}

TEST_F(BackendServiceTiming, ARefusedSessionIsReportedOnceAfterTheRefusedCallsUntilNewTokensArrive) {
    signIn();
    std::vector<std::string> events;
    auto watch = service().sessionRejected.subscribe([&] { events.push_back("rejected"); });
    auto record = [&](const char* name) {
        return [&events, name](Result<SettingsEnvelope, BackendError> r) {
            EXPECT_EQ(r.error().kind, BackendError::Kind::authenticationFailed);
            events.push_back(name);
        };
    };
    auto s1 = SettingsClient(service()).fetchSettings(record("first"));
    auto s2 = SettingsClient(service()).fetchSettings(record("second"));
    network->answer(0, FakeHttpTransport::response(401, R"({"error": "expired"})"));
    network->answer(1, FakeHttpTransport::response(401, R"({"error": "expired"})"), 1.0);
    queue.runUntilIdle();
    EXPECT_EQ(events, (std::vector<std::string>{"first", "rejected"}));
    queue.advance(1.0);
    EXPECT_EQ(events, (std::vector<std::string>{"first", "rejected", "second"}));

    network->replyStatus(401);
    auto s3 = SettingsClient(service()).fetchSettings(record("third"));
    queue.runUntilIdle();
    EXPECT_EQ(std::count(events.begin(), events.end(), "rejected"), 1)
        << "the same session, not reported again";

    // Signed out: a call without a token is refused before the network, and not reported again either.
    service().setAccessToken("");
    auto s4 = SettingsClient(service()).fetchSettings(record("signed out"));
    queue.runUntilIdle();
    EXPECT_EQ(network->sent().size(), 3u);
    EXPECT_EQ(std::count(events.begin(), events.end(), "rejected"), 1);

    // A new session that is refused in turn is reported again.
    service().setAccessToken("acc-2");
    network->replyStatus(401);
    auto s5 = SettingsClient(service()).fetchSettings(record("new session"));
    queue.runUntilIdle();
    EXPECT_EQ(events.back(), "rejected");
    EXPECT_EQ(std::count(events.begin(), events.end(), "rejected"), 2);
}

TEST_F(BackendServiceTiming, ACallWithoutATokenIsReportedAsARefusedSession) {
    int rejections = 0;
    auto watch = service().sessionRejected.subscribe([&] { ++rejections; });
    std::optional<Result<BackupResponse, BackendError>> backup;
    auto s1 =
        SettingsClient(service()).backupSettings(SettingsDoc{}, std::nullopt, [&](auto r) { backup = r; });
    auto s2 =
        TranscriptionClient(service()).transcribeAudio("RIFF", Mode::fresh("Default"), "", {}, [](auto) {});
    EXPECT_EQ(rejections, 0) << "reported on the queue, not inside the call";
    queue.runUntilIdle();
    ASSERT_TRUE(backup);
    EXPECT_EQ(backup->error().kind, BackendError::Kind::authenticationFailed);
    EXPECT_EQ(rejections, 1);
    EXPECT_TRUE(network->sent().empty());
}

TEST_F(BackendServiceTiming, SignInRequestsAnswerOnceWhenTheirAnswerArrives) {
    SignInClient signInClient(service());
    int sent = 0;
    network->replyFailure("Could not resolve host", 4.0);
    auto s1 = signInClient.sendOTP("ada@example.org", [&] { ++sent; });
    queue.advance(3.9);
    EXPECT_EQ(sent, 0);
    queue.advance(0.1);
    EXPECT_EQ(sent, 1);
    const auto& request = network->sent().at(0);
    EXPECT_EQ(request.path(), "/auth/send-otp");
    EXPECT_EQ(request.body(), R"({"email":"ada@example.org"})");
    EXPECT_FALSE(request.request.header("Authorization"));
    EXPECT_FALSE(request.request.header("X-Device-Id"));

    std::optional<VerifyOTPResult> verified;
    auto s2 = signInClient.verifyOTP("ada@example.org", "123456", [&](VerifyOTPResult r) { verified = r; });
    s2 = Subscription();  // the panel went away before the answer
    EXPECT_EQ(network->cancelledCount(), 1u);
    EXPECT_FALSE(network->answer(1, FakeHttpTransport::response(200, "{}")));
    queue.advance(5.0);
    EXPECT_FALSE(verified);
    EXPECT_FALSE(logs->contains("Network request attempt")) << "sign-in requests are not retried";
}

}  // namespace
}  // namespace vocle
