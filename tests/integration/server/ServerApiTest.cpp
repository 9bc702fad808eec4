#include <gtest/gtest.h>

#include <thread>

#include "foundation/Base64.h"
#include "foundation/Log.h"
#include "integration/server/ServerFixture.h"
#include "speech/WavWriter.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

Json settingsDocument(const std::string& vocabulary) {
    return Json{{"modes", Json::array({{{"id", "6F0C1B8E-4D5A-4C1E-9F3B-2A7D8E9F0A1B"},
                                        {"name", "Default"},
                                        {"type", "Clean"},
                                        {"prompt", ""},
                                        {"language", "English"},
                                        {"mode_type_id", "22222222-2222-2222-2222-222222222222"},
                                        {"examples", Json::array()}}})},
                {"text_replacements", Json::array({{{"from", "new line"}, {"to", "\n"}}})},
                {"vocab_words", vocabulary},
                {"last_active_mode_id", "6F0C1B8E-4D5A-4C1E-9F3B-2A7D8E9F0A1B"}};
}

void expectJsonError(const httplib::Result& r, int status) {
    ASSERT_TRUE(r);
    EXPECT_EQ(r->status, status);
    const Json body = parseJson(r->body);
    ASSERT_TRUE(body.contains("error")) << r->body;
    EXPECT_TRUE(body.at("error").is_string());
    EXPECT_FALSE(body.at("error").get<std::string>().empty());
}

}  // namespace

TEST(ServerSignInTest, WholeSignInThroughTheOutboxThenSettings) {
    TestServer server(withoutSpeech);
    auto sent = server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    ASSERT_TRUE(sent);
    EXPECT_EQ(sent->status, 200);
    EXPECT_EQ(jsonOf(sent), Json({{"sent", true}}));
    ASSERT_EQ(server.outboxCount(), 1u);
    const std::string code = server.latestCode("ada@example.com");
    ASSERT_EQ(code.size(), 6u);

    auto verified = server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}});
    ASSERT_EQ(verified->status, 200) << verified->body;
    const Json session = jsonOf(verified);
    const std::string access = session.at("access_token"), refresh = session.at("refresh_token");
    EXPECT_EQ(session.at("user").at("email"), "ada@example.com");
    EXPECT_FALSE(session.at("user").at("id").get<std::string>().empty());
    expectJsonError(server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}}), 400);

    // A fresh user: no settings document yet, version 0, and the template catalogue.
    auto envelope = server.get("/settings", "Bearer " + access + ";refresh=" + refresh);
    ASSERT_EQ(envelope->status, 200) << envelope->body;
    const Json env = jsonOf(envelope);
    EXPECT_FALSE(env.contains("settings"));
    EXPECT_EQ(env.at("settings_version"), 0);
    EXPECT_TRUE(env.at("templates_version").is_number_integer());
    bool hasDefault = false;
    for (const auto& t : env.at("templates").at("mode_types")) {
        hasDefault |= t.at("id") == "22222222-2222-2222-2222-222222222222";
    }
    EXPECT_TRUE(hasDefault);
    EXPECT_EQ(server.get("/settings", "Bearer " + access)->status, 200);  // plain form works too

    // Backups raise the version; a stale if_match_version is a 409.
    auto first = server.post("/settings", {{"settings", settingsDocument("Vocle")}}, "Bearer " + access);
    ASSERT_EQ(first->status, 200) << first->body;
    EXPECT_EQ(jsonOf(first).at("settings_version"), 1);
    EXPECT_EQ(jsonOf(first).at("settings"), settingsDocument("Vocle"));
    auto second =
        server.post("/settings", {{"settings", settingsDocument("Vocle, GitHub")}, {"if_match_version", 1}},
                    "Bearer " + access);
    EXPECT_EQ(jsonOf(second).at("settings_version"), 2);
    expectJsonError(
        server.post("/settings", {{"settings", settingsDocument("lost")}, {"if_match_version", 1}},
                    "Bearer " + access),
        409);
    const Json stored = jsonOf(server.get("/settings", "Bearer " + access));
    EXPECT_EQ(stored.at("settings_version"), 2);
    EXPECT_EQ(stored.at("settings").at("vocab_words"), "Vocle, GitHub");

    // Another user sees none of it.
    const Session other = server.signIn("bob@example.com");
    const Json otherEnv = jsonOf(server.get("/settings", other.authorization()));
    EXPECT_FALSE(otherEnv.contains("settings"));
    EXPECT_EQ(otherEnv.at("settings_version"), 0);
}

TEST(ServerSignInTest, ExpiredAccessTokenIsRotatedThroughResponseHeaders) {
    TestServer server(withoutSpeech);
    const Session session = server.signIn("ada@example.com");
    server.clock.advance(3600);

    expectJsonError(server.get("/settings", "Bearer " + session.access), 401);
    auto rotated = server.get("/settings", session.authorization());
    ASSERT_EQ(rotated->status, 200) << rotated->body;
    const std::string newAccess = rotated->get_header_value("X-Access-Token");
    const std::string newRefresh = rotated->get_header_value("X-Refresh-Token");
    ASSERT_EQ(newAccess.size(), 43u);
    ASSERT_EQ(newRefresh.size(), 43u);
    EXPECT_NE(newRefresh, session.refresh);

    auto next = server.get("/settings", "Bearer " + newAccess + ";refresh=" + newRefresh);
    EXPECT_EQ(next->status, 200);
    EXPECT_FALSE(next->has_header("X-Access-Token"));
    server.clock.advance(31);  // past the grace window the old refresh token is spent
    expectJsonError(server.get("/settings", session.authorization()), 401);
    expectJsonError(server.get("/settings", "Bearer " + newAccess + ";refresh=" + newRefresh), 401);

    // A rotation survives an error later in the same request.
    const Session again = server.signIn("ada@example.com");
    server.clock.advance(3600);
    auto badBody = server.client()->Post("/settings", {{"Authorization", again.authorization()}}, "{not json",
                                         "application/json");
    expectJsonError(badBody, 400);
    EXPECT_TRUE(badBody->has_header("X-Access-Token"));
    EXPECT_TRUE(badBody->has_header("X-Refresh-Token"));

    expectJsonError(server.get("/settings", "Bearer nonsense;refresh=nonsense"), 401);
    expectJsonError(server.get("/settings", "Token abc"), 401);
    expectJsonError(server.get("/settings"), 401);
}

TEST(ServerSignInTest, RateLimitsAndVoidedCodesAnswerWithoutEnumeration) {
    TestServer server(withoutSpeech);
    for (int i = 0; i < 3; ++i) {
        auto r = server.post("/auth/send-otp", {{"email", "ada@example.com"}});
        EXPECT_EQ(r->status, 200);
        EXPECT_EQ(jsonOf(r), Json({{"sent", true}}));
    }
    EXPECT_EQ(server.outboxCount(), 1u);  // one code per 30 s
    server.clock.advance(30);
    server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    EXPECT_EQ(server.outboxCount(), 2u);

    const std::string code = server.latestCode("ada@example.com");
    const std::string wrong = code == "123456" ? "654321" : "123456";
    for (int i = 0; i < 5; ++i) {
        expectJsonError(server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", wrong}}),
                        400);
    }
    expectJsonError(server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}}), 400);

    server.clock.advance(30);
    server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    const std::string fresh = server.latestCode("ada@example.com");
    server.clock.advance(600);  // expired
    expectJsonError(server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", fresh}}), 400);

    expectJsonError(server.post("/auth/send-otp", {{"email", "not an address"}}), 400);
    expectJsonError(server.post("/auth/verify-otp", {{"email", "nobody@example.com"}, {"token", "000000"}}),
                    400);
}

TEST(ServerErrorsTest, EveryFailureIsAJsonError) {
    TestServer server([](server::ServerConfig& c) { c.maxBodyBytes = 4096; });
    const Session session = server.signIn("ada@example.com");
    expectJsonError(server.get("/nowhere"), 404);
    expectJsonError(server.get("/transcribe", session.authorization()), 405);
    expectJsonError(server.client()->Post("/auth/send-otp", "{\"email\":", "application/json"), 400);
    expectJsonError(server.client()->Post("/auth/send-otp", "[]", "application/json"), 400);
    expectJsonError(server.post("/settings", {{"settings", std::string(5000, 'x')}}, session.authorization()),
                    413);
    expectJsonError(server.post("/transcribe", {{"audio", "AAAA"}, {"mode", Json::object()}}), 401);
    expectJsonError(server.post("/transcribe",
                                {{"audio", base64::encode(std::string("ID3\x04 an mp3 file"))},
                                 {"mode", {{"type", "raw"}, {"language", "en"}}}},
                                session.authorization()),
                    415);
    const std::string wav = base64::encode(server::encodeWav(std::vector<int16_t>(400, 0), 16000));
    expectJsonError(
        server.post("/transcribe", {{"audio", wav}, {"mode", {{"type", "raw"}, {"language", "de"}}}},
                    session.authorization()),
        422);
    expectJsonError(server.post("/transcribe",
                                {{"audio", base64::encode(std::string("RIFF\0\0\0\0WAVEbroken", 18))},
                                 {"mode", {{"type", "raw"}, {"language", "en"}}}},
                                session.authorization()),
                    400);
    expectJsonError(server.post("/support/message", {{"message", "   "}}), 400);
}

TEST(ServerSupportTest, MessagesAreStoredWithTheUserWhenSignedIn) {
    TestServer server(withoutSpeech);
    const Session session = server.signIn("ada@example.com");
    auto signedIn =
        server.post("/support/message", {{"message", "  The app is great \n"}}, session.authorization());
    ASSERT_EQ(signedIn->status, 200);
    EXPECT_EQ(jsonOf(signedIn), Json({{"success", true}}));
    auto anonymous = server.post("/support/message", {{"message", "Signed out question"}});
    EXPECT_EQ(jsonOf(anonymous), Json({{"success", true}}));
    auto stale = server.post("/support/message", {{"message", "Stale session"}}, "Bearer gone;refresh=gone");
    EXPECT_EQ(stale->status, 200);

    const auto rows = server.app->database().transaction([](server::SqlConnection& c) {
        return c.query("SELECT user_id, message, device_id, app_version FROM support_messages ORDER BY id");
    });
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].text(0), session.userId);
    EXPECT_EQ(rows[0].text(1), "The app is great");
    EXPECT_EQ(rows[0].text(2), "device-1");
    EXPECT_EQ(rows[0].text(3), "1.0");
    EXPECT_TRUE(rows[1].isNull(0));
    EXPECT_TRUE(rows[2].isNull(0));
}

TEST(ServerConcurrencyTest, ThirtyConcurrentRequestsAllSucceed) {
    TestServer server;
    const Session session = server.signIn("ada@example.com");
    const std::string clip =
        vocle::testing::readText(kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav");
    const Json transcribeBody = {
        {"audio", base64::encode(clip)},
        {"mode", {{"id", "M"}, {"name", "Default"}, {"type", "raw"}, {"prompt", ""}, {"language", "en"}}},
        {"vocab_words", ""},
        {"text_replacements", Json::array()}};
    std::vector<int> statuses(30, 0);
    std::vector<std::string> transcripts(30);
    std::vector<std::thread> threads;
    for (int i = 0; i < 30; ++i) {
        threads.emplace_back([&, i] {
            httplib::Result r =
                i % 10 == 0  ? server.post("/transcribe", transcribeBody, session.authorization())
                : i % 2 == 1 ? server.get("/settings", session.authorization())
                             : server.post("/settings", {{"settings", settingsDocument(std::to_string(i))}},
                                           session.authorization());
            if (!r) {
                ADD_FAILURE() << "request " << i << ": " << httplib::to_string(r.error());
                return;
            }
            statuses[static_cast<size_t>(i)] = r->status;
            if (i % 10 == 0) transcripts[static_cast<size_t>(i)] = parseJson(r->body).value("transcript", "");
        });
    }
    for (auto& t : threads) t.join();
    for (int i = 0; i < 30; ++i) EXPECT_EQ(statuses[static_cast<size_t>(i)], 200) << "request " << i;
    for (int i = 10; i < 30; i += 10) EXPECT_EQ(transcripts[static_cast<size_t>(i)], transcripts[0]);
    EXPECT_FALSE(transcripts[0].empty());
    EXPECT_EQ(jsonOf(server.get("/settings", session.authorization())).at("settings_version"), 12);
}

TEST(ServerLogTest, OneLinePerRequestWithoutTokensOrCodes) {
    auto sink = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(sink);
    TestServer server(withoutSpeech);
    server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    const std::string code = server.latestCode("ada@example.com");
    auto verified = server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}});
    const Json session = jsonOf(verified);
    const std::string access = session.at("access_token"), refresh = session.at("refresh_token");
    const std::string userId = session.at("user").at("id");
    server.get("/settings", "Bearer " + access + ";refresh=" + refresh);
    server.clock.advance(3600);
    auto rotated = server.get("/settings", "Bearer " + access + ";refresh=" + refresh);
    const std::string newAccess = rotated->get_header_value("X-Access-Token");
    server.get("/missing");

    // The request log is written after each response is sent, on the server's thread; wait (bounded)
    // until all five requests are in.
    for (int i = 0; i < 2000 && sink->count(" ms user=") < 5; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(sink->count("vocle-server: POST /auth/send-otp 200 "), 1u);
    EXPECT_EQ(sink->count("vocle-server: POST /auth/verify-otp 200 "), 1u);
    EXPECT_EQ(sink->count("vocle-server: GET /settings 200 "), 2u);
    EXPECT_EQ(sink->count(" ms user=" + userId), 3u);
    EXPECT_TRUE(sink->contains("vocle-server: GET /missing 404 "));
    EXPECT_TRUE(sink->contains("sign-in code sent to a***@example.com"));
    for (const auto& line : sink->lines()) {
        for (const std::string& secret : {code, access, refresh, newAccess, std::string("ada@example.com")}) {
            EXPECT_EQ(line.find(secret), std::string::npos) << line;
        }
    }
}
