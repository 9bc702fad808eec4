#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "integration/server/ServerFixture.h"

using namespace vocle;
using namespace vocle::testing;
using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

namespace {

// A loopback connection from `source` (any 127.x.y.z is local), or -1.
int connectFrom(const std::string& source, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in from{};
    from.sin_family = AF_INET;
    inet_pton(AF_INET, source.c_str(), &from.sin_addr);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, "127.0.0.1", &to.sin_addr);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0 ||
        ::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const std::string& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Whether the server has closed `fd` (EOF or reset) without waiting.
bool closedByServer(int fd) {
    char byte;
    const ssize_t n = ::recv(fd, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

struct RawResponse {
    int status = 0;
    std::string head;
    std::string body;
};

// Reads one answer (interim 100 answers included when `interim`) with a bounded wait.
RawResponse readResponse(int fd, std::string& pending, bool interim = false) {
    const auto deadline = SteadyClock::now() + seconds(20);
    RawResponse r;
    size_t need = std::string::npos;
    while (SteadyClock::now() < deadline) {
        const size_t headEnd = pending.find("\r\n\r\n");
        if (headEnd != std::string::npos && need == std::string::npos) {
            r.head = pending.substr(0, headEnd + 4);
            r.status = std::stoi(r.head.substr(9, 3));
            size_t length = 0;
            const auto at = r.head.find("Content-Length: ");
            if (at != std::string::npos) length = std::stoul(r.head.substr(at + 16));
            need = headEnd + 4 + length;
            if (r.status == 100 && interim) {
                pending.erase(0, need);
                return r;
            }
        }
        if (need != std::string::npos && pending.size() >= need) {
            r.body = pending.substr(r.head.size(), need - r.head.size());
            pending.erase(0, need);
            return r;
        }
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) == 1) {
            char buffer[8192];
            const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
            if (n <= 0) break;
            pending.append(buffer, static_cast<size_t>(n));
        }
    }
    return r;
}

template <class Condition>
bool eventually(Condition condition) {
    const auto deadline = SteadyClock::now() + seconds(30);
    while (SteadyClock::now() < deadline) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

}  // namespace

TEST(ServerSlowClientTest, SlowAndSilentConnectionsDoNotHoldUpOtherRequests) {
    TestServer server(withoutSpeech);
    const Session session = server.signIn("ada@example.com");

    // 200 connections, under the per-address cap on four addresses so that none is pushed out: half
    // silent, half trickling a head that never ends. Together they are three times the worker pool.
    std::vector<int> silent, trickling;
    for (int i = 0; i < 200; ++i) {
        const int fd = connectFrom("127.0.0." + std::to_string(2 + i % 4), server.port);
        ASSERT_GE(fd, 0) << "connection " << i;
        if (i % 2 == 0) {
            silent.push_back(fd);
        } else {
            ASSERT_TRUE(sendAll(fd, "GET /settings HTTP/1.1\r\nHost: x\r\n"));
            trickling.push_back(fd);
        }
    }

    auto client = server.client();
    client->set_read_timeout(15, 0);
    client->set_keep_alive(true);
    for (int round = 0; round < 20; ++round) {
        for (int fd : trickling) sendAll(fd, "X-Slow-" + std::to_string(round) + ": 1\r\n");
        auto r = client->Get("/settings", {{"Authorization", session.authorization()}});
        ASSERT_TRUE(r) << "round " << round << ": " << httplib::to_string(r.error());
        EXPECT_EQ(r->status, 200);
        EXPECT_TRUE(jsonOf(r).contains("templates"));
    }
    // The requests were answered while every slow connection was still open, not by closing them.
    int open = 0;
    for (int fd : silent) open += !closedByServer(fd);
    for (int fd : trickling) open += !closedByServer(fd);
    EXPECT_EQ(open, 200);

    // A slow client that does finish its head is served like anyone else.
    for (size_t i = 0; i < 5; ++i) {
        ASSERT_TRUE(sendAll(trickling[i], "Authorization: " + session.authorization() + "\r\n\r\n"));
        std::string pending;
        const RawResponse r = readResponse(trickling[i], pending);
        EXPECT_EQ(r.status, 200) << r.head;
        EXPECT_NE(r.body.find("\"templates\""), std::string::npos);
    }
    for (int fd : silent) close(fd);
    for (int fd : trickling) close(fd);
}

TEST(ServerSlowClientTest, AnAddressOverItsCapPushesOutOnlyItsOwnOldestIdleConnections) {
    TestServer server([](server::ServerConfig& c) {
        withoutSpeech(c);
        c.maxConnectionsPerClient = 16;
    });
    const int neighbour = connectFrom("127.0.0.3", server.port);
    std::vector<int> flood;
    for (int i = 0; i < 40; ++i) flood.push_back(connectFrom("127.0.0.2", server.port));
    ASSERT_TRUE(eventually([&] {
        int closed = 0;
        for (int fd : flood) closed += closedByServer(fd);
        return closed == 24;
    }));
    for (int i = 0; i < 40; ++i) EXPECT_EQ(closedByServer(flood[size_t(i)]), i < 24) << "connection " << i;
    EXPECT_FALSE(closedByServer(neighbour));

    // A request from the flooding address still gets through, at the cost of its own oldest socket.
    const int fresh = connectFrom("127.0.0.2", server.port);
    ASSERT_TRUE(sendAll(fresh, "GET /settings HTTP/1.1\r\nHost: x\r\n\r\n"));
    std::string pending;
    EXPECT_EQ(readResponse(fresh, pending).status, 401);
    EXPECT_TRUE(eventually([&] { return closedByServer(flood[24]); }));
    EXPECT_FALSE(closedByServer(flood[25]));
    EXPECT_FALSE(closedByServer(neighbour));
    for (int fd : flood) close(fd);
    close(fresh);
    close(neighbour);
}

TEST(ServerSlowClientTest, HeadsThatNeverFinishAndIdleKeepAlivesAreClosed) {
    TestServer server([](server::ServerConfig& c) {
        withoutSpeech(c);
        c.headerTimeoutSeconds = 0.5;
        c.idleTimeoutSeconds = 0.5;
    });
    std::vector<int> stalled;
    for (int i = 0; i < 10; ++i) {
        const int fd = connectFrom("127.0.0.1", server.port);
        if (i % 2) sendAll(fd, "GET /settings HTTP/1.1\r\nHo");
        stalled.push_back(fd);
    }
    const int kept = connectFrom("127.0.0.1", server.port);
    ASSERT_TRUE(sendAll(kept, "GET /settings HTTP/1.1\r\nHost: x\r\n\r\n"));
    std::string pending;
    const RawResponse first = readResponse(kept, pending);
    EXPECT_EQ(first.status, 401);
    EXPECT_EQ(first.head.find("Connection: close"), std::string::npos);  // kept alive, for now
    EXPECT_TRUE(eventually([&] {
        for (int fd : stalled)
            if (!closedByServer(fd)) return false;
        return closedByServer(kept);
    }));
    for (int fd : stalled) close(fd);
    close(kept);
}

TEST(ServerSlowClientTest, ContinueChunkedPipelinedAndOversizedRequests) {
    TestServer server([](server::ServerConfig& c) {
        withoutSpeech(c);
        c.maxBodyBytes = 4096;
    });
    const std::string body = R"({"email":"ada@example.com"})";
    const int fd = connectFrom("127.0.0.1", server.port);
    std::string pending;

    // "Expect: 100-continue": the interim answer comes before the body is sent.
    ASSERT_TRUE(sendAll(fd, "POST /auth/send-otp HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                            "Expect: 100-continue\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n"));
    EXPECT_EQ(readResponse(fd, pending, true).status, 100);
    ASSERT_TRUE(sendAll(fd, body));
    RawResponse r = readResponse(fd, pending);
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, R"({"sent":true})");

    // Chunked, then two pipelined requests in one write, on the same connection.
    ASSERT_TRUE(sendAll(fd, "POST /auth/send-otp HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                            "Transfer-Encoding: chunked\r\n\r\n4\r\n{\"em\r\n"));
    const std::string rest = body.substr(4);
    char size[16];
    std::snprintf(size, sizeof size, "%zx", rest.size());
    ASSERT_TRUE(sendAll(fd, std::string(size) + "\r\n" + rest + "\r\n0\r\n\r\n"));
    r = readResponse(fd, pending);
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, R"({"sent":true})");
    ASSERT_TRUE(sendAll(fd, "GET /nowhere HTTP/1.1\r\nHost: x\r\n\r\nGET /settings HTTP/1.1\r\nHost: x\r\n\r\n"));
    EXPECT_EQ(readResponse(fd, pending).status, 404);
    r = readResponse(fd, pending);
    EXPECT_EQ(r.status, 401);
    EXPECT_EQ(r.body, R"({"error":"Sign in required"})");

    // A declared body over the limit is refused at its head, in JSON, and the connection closes.
    ASSERT_TRUE(sendAll(fd, "POST /settings HTTP/1.1\r\nHost: x\r\nContent-Length: 5000\r\n\r\n"));
    r = readResponse(fd, pending);
    EXPECT_EQ(r.status, 413);
    EXPECT_EQ(r.body, R"({"error":"Request body too large"})");
    EXPECT_NE(r.head.find("Connection: close"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return closedByServer(fd); }));
    close(fd);

    // A head without end is refused once it passes the head limit.
    const int hostile = connectFrom("127.0.0.1", server.port);
    std::string head = "GET /settings HTTP/1.1\r\n";
    while (head.size() < 70 * 1024) head += "X-Filler: " + std::string(100, 'a') + "\r\n";
    sendAll(hostile, head);
    std::string hostilePending;
    EXPECT_EQ(readResponse(hostile, hostilePending).status, 400);
    close(hostile);
}

TEST(ServerSlowClientTest, AClientThatSendsAWholeRefusedBodyBeforeReadingGetsTheRefusal) {
    TestServer server(withoutSpeech);
    // 70 MB against the default 60 MB limit, written in full before a single byte is read, as simple
    // clients do: the refusal must survive the bytes the server never wanted.
    const size_t size = 70ull * 1024 * 1024;
    const int fd = connectFrom("127.0.0.1", server.port);
    ASSERT_TRUE(sendAll(fd,
                        "POST /transcribe HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n"
                        "Content-Length: " +
                            std::to_string(size) + "\r\n\r\n"));
    const std::string block(1 << 20, 'a');
    size_t sent = 0;
    while (sent < size) {
        const ssize_t n = ::send(fd, block.data(), std::min(block.size(), size - sent), MSG_NOSIGNAL);
        ASSERT_GT(n, 0) << "the server reset the connection after " << sent
                        << " bytes: " << std::strerror(errno);
        sent += static_cast<size_t>(n);
    }
    std::string pending;
    const RawResponse r = readResponse(fd, pending);
    EXPECT_EQ(r.status, 413);
    EXPECT_EQ(r.body, R"({"error":"Request body too large"})");
    close(fd);

    // The server is none the worse for it.
    EXPECT_EQ(server.get("/settings")->status, 401);
}
