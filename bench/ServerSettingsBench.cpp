// 200 GET /settings from 20 concurrent clients; target p99 under 50 ms. Exit status 1 when missed.
#include <cstdio>
#include <iostream>
#include <mutex>
#include <thread>

#include "ServerBenchSupport.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"

using namespace vocle;

int main() {
    server::ServerConfig config = bench::benchConfig();
    config.speechEngine = "command";  // no model needed for this measurement
    config.command = "/bin/true";
    SystemClock clock;
    server::ServerApp app(config, clock);
    const int port = app.start();

    constexpr int kClients = 20, kPerClient = 10;
    std::vector<std::string> authorizations;
    for (int c = 0; c < kClients; ++c) {
        authorizations.push_back(bench::signIn(config, port, "user" + std::to_string(c) + "@example.com"));
        httplib::Client client("127.0.0.1", port);
        Json settings = {{"vocab_words", "Vocle, GitHub, Kubernetes"}, {"modes", Json::array()}};
        for (int m = 0; m < 8; ++m) {
            settings["modes"].push_back({{"id", "M" + std::to_string(m)},
                                         {"name", "Mode " + std::to_string(m)},
                                         {"type", "Clean"},
                                         {"prompt", std::string(400, 'p')},
                                         {"language", "English"}});
        }
        client.Post("/settings", {{"Authorization", authorizations.back()}},
                    toCompactJson(Json{{"settings", settings}}), "application/json");
    }

    std::mutex mutex;
    std::vector<double> latencies;
    int failures = 0;
    const auto wallStart = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < kClients; ++c) {
        threads.emplace_back([&, c] {
            httplib::Client client("127.0.0.1", port);
            client.set_keep_alive(true);
            for (int i = 0; i < kPerClient; ++i) {
                const auto start = std::chrono::steady_clock::now();
                auto r = client.Get("/settings", {{"Authorization", authorizations[static_cast<size_t>(c)]}});
                const double ms = bench::millisecondsSince(start);
                std::lock_guard lock(mutex);
                if (!r || r->status != 200) ++failures;
                latencies.push_back(ms);
            }
        });
    }
    for (auto& t : threads) t.join();
    const double wall = bench::millisecondsSince(wallStart);
    app.stop();
    std::filesystem::remove_all(config.dataDir);

    const double p50 = bench::percentile(latencies, 0.5), p99 = bench::percentile(latencies, 0.99);
    std::printf("%zu GET /settings from %d concurrent clients in %.0f ms, %d failed\n", latencies.size(),
                kClients, wall, failures);
    std::printf("  p50 %.2f ms, p99 %.2f ms, max %.2f ms (target p99 < 50 ms): %s\n", p50, p99,
                bench::percentile(latencies, 1.0), p99 < 50 && failures == 0 ? "met" : "MISSED");
    return p99 < 50 && failures == 0 ? 0 : 1;
}
