#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "integration/server/ServerFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

struct Answer {
    int status = 0;
    std::string access;
    std::string refresh;
};

// `count` requests at once, alternating over `ports`, all with the same "Authorization".
std::vector<Answer> concurrently(const std::vector<int>& ports, int count, const std::string& authorization) {
    std::vector<Answer> answers(static_cast<size_t>(count));
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            httplib::Client client("127.0.0.1", ports[static_cast<size_t>(i) % ports.size()]);
            client.set_read_timeout(30, 0);
            auto r = client.Get("/settings", {{"Authorization", authorization}});
            if (!r) return;
            answers[static_cast<size_t>(i)] = {r->status, r->get_header_value("X-Access-Token"),
                                               r->get_header_value("X-Refresh-Token")};
        });
    }
    for (auto& t : threads) t.join();
    return answers;
}

}  // namespace

TEST(ServerTokenRotationTest, ConcurrentRequestsWithAnExpiredTokenAllGetTheSameNewPair) {
    TestServer server(withoutSpeech);
    // A second instance on the same database.
    server::ServerConfig secondConfig = server.config;
    secondConfig.listenPort = 0;
    server::ServerApp second(secondConfig, server.clock, nullptr);
    const int secondPort = second.start();

    const Session session = server.signIn("ada@example.com");
    server.clock.advance(3600);
    const auto answers = concurrently({server.port, secondPort}, 12, session.authorization());
    std::set<std::pair<std::string, std::string>> pairs;
    for (const Answer& a : answers) {
        EXPECT_EQ(a.status, 200);
        EXPECT_EQ(a.access.size(), 43u);
        pairs.emplace(a.access, a.refresh);
    }
    ASSERT_EQ(pairs.size(), 1u) << "every request must hand out the same new pair";
    const std::string renewed = "Bearer " + pairs.begin()->first + ";refresh=" + pairs.begin()->second;

    // The new pair works on both instances without another rotation.
    for (int port : {server.port, secondPort}) {
        httplib::Client client("127.0.0.1", port);
        auto r = client.Get("/settings", {{"Authorization", renewed}});
        ASSERT_TRUE(r);
        EXPECT_EQ(r->status, 200);
        EXPECT_FALSE(r->has_header("X-Access-Token"));
    }

    // A straggler inside the window is still served; after it the spent pair ends the chain everywhere.
    server.clock.advance(25);
    EXPECT_EQ(server.get("/settings", session.authorization())->status, 200);
    server.clock.advance(10);
    const auto late = concurrently({secondPort}, 1, session.authorization());
    EXPECT_EQ(late[0].status, 401);
    EXPECT_EQ(server.get("/settings", renewed)->status, 401);
    second.stop();
}
