#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <regex>
#include <string>

#include "app/ServerApp.h"
#include "integration/server/PostgresCluster.h"
#include "foundation/Json.h"
#include "speech/PocketsphinxEngine.h"
#include "support/TempDir.h"
#include "unit/server/TestClock.h"

namespace vocle::testing {

// One loaded model for the whole test binary; loading it per test would dominate the run time.
inline std::shared_ptr<server::SpeechEngine> sharedPocketsphinx() {
    static auto engine = std::make_shared<server::PocketsphinxEngine>(
        server::PocketsphinxModel::inFolder(VOCLE_POCKETSPHINX_MODEL_DIR), 2);
    return engine;
}

inline const std::filesystem::path kLibrivox = "/usr/share/pocketsphinx/test/data/librivox";

struct Session {
    std::string access;
    std::string refresh;
    std::string userId;
    std::string authorization() const { return "Bearer " + access + ";refresh=" + refresh; }
};

// A real vocle-server on a free loopback port with its own data folder (and, with VOCLE_TEST_STORE=postgres,
// its own PostgreSQL database) and a settable clock.
// Tests that never transcribe pass `withoutSpeech` so that they do not load the model.
class TestServer {
  public:
    explicit TestServer(const std::function<void(server::ServerConfig&)>& tweak = {},
                        std::shared_ptr<server::SpeechEngine> engine = nullptr) {
        config.listenHost = "127.0.0.1";
        config.listenPort = 0;
        config.dataDir = dir.path() / "data";
        config.modelDir = VOCLE_POCKETSPHINX_MODEL_DIR;
        if (testsUsePostgres()) config.databaseUrl = PostgresCluster::instance().createDatabase();
        if (tweak) tweak(config);
        if (!engine && config.speechEngine == "pocketsphinx") engine = sharedPocketsphinx();
        app = std::make_unique<server::ServerApp>(config, clock, engine);
        port = app->start();
    }
    ~TestServer() { app->stop(); }

    std::unique_ptr<httplib::Client> client() const {
        auto c = std::make_unique<httplib::Client>("127.0.0.1", port);
        c->set_read_timeout(300, 0);
        c->set_write_timeout(60, 0);
        return c;
    }

    httplib::Result post(const std::string& path, const Json& body,
                         const std::string& authorization = {}) const {
        httplib::Headers headers = {{"X-Device-Id", "device-1"}, {"X-App-Version", "1.0"}};
        if (!authorization.empty()) headers.emplace("Authorization", authorization);
        return client()->Post(path.c_str(), headers, toCompactJson(body), "application/json");
    }

    httplib::Result get(const std::string& path, const std::string& authorization = {}) const {
        httplib::Headers headers = {{"X-Device-Id", "device-1"}, {"Content-Type", "application/json"}};
        if (!authorization.empty()) headers.emplace("Authorization", authorization);
        return client()->Get(path.c_str(), headers);
    }

    size_t outboxCount() const {
        if (!std::filesystem::exists(config.outboxDir())) return 0;
        size_t n = 0;
        for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(config.outboxDir())) ++n;
        return n;
    }

    // The code from the newest message to `email` in the outbox.
    std::string latestCode(const std::string& email) const {
        std::filesystem::path newest;
        for (const auto& e : std::filesystem::directory_iterator(config.outboxDir())) {
            const std::string text = readText(e.path());
            if (text.find("To: " + email + "\r\n") == std::string::npos) continue;
            if (newest.empty() || e.path().filename() > newest.filename()) newest = e.path();
        }
        if (newest.empty()) return {};
        std::smatch m;
        const std::string text = readText(newest);
        if (!std::regex_search(text, m, std::regex(R"(\r\n    (\d{6})\r\n)"))) return {};
        return m[1];
    }

    Session signIn(const std::string& email) {
        auto sent = post("/auth/send-otp", {{"email", email}});
        EXPECT_EQ(sent->status, 200);
        auto verified = post("/auth/verify-otp", {{"email", email}, {"token", latestCode(email)}});
        EXPECT_EQ(verified->status, 200) << verified->body;
        const Json json = parseJson(verified->body);
        clock.advance(31);  // lets the next sign-in of the same address past the 30 s limit
        return {json.at("access_token"), json.at("refresh_token"), json.at("user").at("id")};
    }

    TempDir dir;
    TestClock clock;
    server::ServerConfig config;
    std::unique_ptr<server::ServerApp> app;
    int port = 0;
};

inline void withoutSpeech(server::ServerConfig& c) {
    c.speechEngine = "command";
    c.command = "/bin/true";
}

inline Json jsonOf(const httplib::Result& r) {
    return parseJson(r->body);
}

}  // namespace vocle::testing
