#pragma once

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "app/ServerApp.h"
#include "foundation/Json.h"
#include "foundation/Log.h"

#include <unistd.h>

namespace vocle::bench {

// A server on a free loopback port with a fresh data folder; log lines are dropped so they do not
// disturb the measurement.
inline server::ServerConfig benchConfig() {
    setLogSink(std::make_shared<DiscardLogSink>());
    server::ServerConfig config;
    config.listenPort = 0;
    config.dataDir = std::filesystem::temp_directory_path() / ("vocle-bench-" + std::to_string(::getpid()));
    return config;
}

inline std::string readAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Signs in through the outbox exactly as a user would, returning the "Authorization" value.
inline std::string signIn(const server::ServerConfig& config, int port, const std::string& email) {
    httplib::Client client("127.0.0.1", port);
    client.Post("/auth/send-otp", toCompactJson(Json{{"email", email}}), "application/json");
    std::string code;
    for (const auto& e : std::filesystem::directory_iterator(config.outboxDir())) {
        std::smatch m;
        const std::string text = readAll(e.path());
        if (text.find("To: " + email) != std::string::npos &&
            std::regex_search(text, m, std::regex(R"(\r\n    (\d{6})\r\n)"))) {
            code = m[1];
        }
    }
    auto r = client.Post("/auth/verify-otp", toCompactJson(Json{{"email", email}, {"token", code}}),
                         "application/json");
    if (!r || r->status != 200) throw std::runtime_error("sign-in failed");
    const Json json = parseJson(r->body);
    return "Bearer " + json.at("access_token").get<std::string>() +
           ";refresh=" + json.at("refresh_token").get<std::string>();
}

inline double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    const size_t index =
        std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5));
    return values[index];
}

inline double millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace vocle::bench
