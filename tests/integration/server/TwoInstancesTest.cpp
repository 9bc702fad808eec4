#include <gtest/gtest.h>

#include "integration/server/ServerFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

httplib::Result call(int port, const std::string& method, const std::string& path, const Json& body,
                     const std::string& authorization = {}) {
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(30, 0);
    httplib::Headers headers;
    if (!authorization.empty()) headers.emplace("Authorization", authorization);
    if (method == "GET") return client.Get(path.c_str(), headers);
    return client.Post(path.c_str(), headers, toCompactJson(body), "application/json");
}

}  // namespace

// Two vocle-server instances on one database (the same SQLite file, or one PostgreSQL database), as in a
// deployment behind a load balancer.
TEST(ServerTwoInstancesTest, SignInSettingsAndRotationsHoldAcrossInstances) {
    TestServer a(withoutSpeech);
    server::ServerConfig bConfig = a.config;
    bConfig.listenPort = 0;
    server::ServerApp b(bConfig, a.clock, nullptr);
    const int bPort = b.start();
    EXPECT_EQ(a.app->database().kind(), testsUsePostgres() ? "postgresql" : "sqlite");
    EXPECT_EQ(std::filesystem::exists(a.config.databaseFile()), !testsUsePostgres());

    // The code sent through one instance signs in through the other, once.
    ASSERT_EQ(call(a.port, "POST", "/auth/send-otp", {{"email", "ada@example.com"}})->status, 200);
    const std::string code = a.latestCode("ada@example.com");
    auto verified = call(bPort, "POST", "/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}});
    ASSERT_EQ(verified->status, 200) << verified->body;
    EXPECT_EQ(call(a.port, "POST", "/auth/verify-otp", {{"email", "ada@example.com"}, {"token", code}})->status,
              400);
    const Json session = jsonOf(verified);
    const std::string authorization = "Bearer " + session.at("access_token").get<std::string>() +
                                      ";refresh=" + session.at("refresh_token").get<std::string>();

    // Settings written through one are read, and version-checked, through the other.
    auto saved = call(a.port, "POST", "/settings", {{"settings", {{"vocab_words", "Vocle"}}}}, authorization);
    ASSERT_EQ(saved->status, 200) << saved->body;
    auto loaded = call(bPort, "GET", "/settings", {}, authorization);
    EXPECT_EQ(jsonOf(loaded).at("settings").at("vocab_words"), "Vocle");
    EXPECT_EQ(call(bPort, "POST", "/settings", {{"settings", {{"vocab_words", "x"}}}, {"if_match_version", 0}},
                   authorization)
                  ->status,
              409);

    // A rotation on one instance is honoured by the other, and its end reaches both.
    a.clock.advance(3600);
    auto rotated = call(bPort, "GET", "/settings", {}, authorization);
    ASSERT_EQ(rotated->status, 200);
    const std::string renewed = "Bearer " + rotated->get_header_value("X-Access-Token") +
                                ";refresh=" + rotated->get_header_value("X-Refresh-Token");
    auto onA = call(a.port, "GET", "/settings", {}, renewed);
    EXPECT_EQ(onA->status, 200);
    EXPECT_FALSE(onA->has_header("X-Access-Token"));
    auto straggler = call(a.port, "GET", "/settings", {}, authorization);  // within the grace window
    EXPECT_EQ(straggler->status, 200);
    EXPECT_EQ(straggler->get_header_value("X-Access-Token"), rotated->get_header_value("X-Access-Token"));
    a.clock.advance(60);
    EXPECT_EQ(call(a.port, "GET", "/settings", {}, authorization)->status, 401);
    EXPECT_EQ(call(bPort, "GET", "/settings", {}, renewed)->status, 401);
    b.stop();
}
