#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "integration/server/ServerFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

// Just enough of an SMTP relay on loopback to receive one message.
class LoopbackSmtpPeer {
  public:
    LoopbackSmtpPeer() {
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        listen(listener_, 1);
        thread_ = std::thread([this] { serveOne(); });
    }
    ~LoopbackSmtpPeer() {
        if (listener_ >= 0) shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        if (listener_ >= 0) close(listener_);
    }
    int port() const { return port_; }
    std::string transcript() {
        if (thread_.joinable()) thread_.join();
        return transcript_;
    }

  private:
    void serveOne() {
        const int client = accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        close(listener_);  // one message only; later connections are refused
        listener_ = -1;
        auto say = [&](const std::string& line) {
            [[maybe_unused]] auto n = write(client, line.data(), line.size());
        };
        say("220 loopback ESMTP\r\n");
        std::string buffer;
        bool inData = false;
        char chunk[4096];
        for (;;) {
            const ssize_t n = read(client, chunk, sizeof chunk);
            if (n <= 0) break;
            buffer.append(chunk, static_cast<size_t>(n));
            transcript_.append(chunk, static_cast<size_t>(n));
            for (;;) {
                if (inData) {
                    const auto end = buffer.find("\r\n.\r\n");
                    if (end == std::string::npos) break;
                    buffer.erase(0, end + 5);
                    inData = false;
                    say("250 queued\r\n");
                    continue;
                }
                const auto eol = buffer.find("\r\n");
                if (eol == std::string::npos) break;
                const std::string line = buffer.substr(0, eol);
                buffer.erase(0, eol + 2);
                if (line.rfind("EHLO", 0) == 0) {
                    say("250-loopback\r\n250 8BITMIME\r\n");
                } else if (line.rfind("DATA", 0) == 0) {
                    say("354 go ahead\r\n");
                    inData = true;
                } else if (line.rfind("QUIT", 0) == 0) {
                    say("221 bye\r\n");
                    close(client);
                    return;
                } else {
                    say("250 ok\r\n");
                }
            }
        }
        close(client);
    }

    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    std::string transcript_;
};

}  // namespace

TEST(ServerSmtpTest, SignInCodeTravelsThroughTheRelay) {
    LoopbackSmtpPeer relay;
    TestServer server([&](server::ServerConfig& c) {
        c.mailDelivery = "smtp";
        c.smtpUrl = "smtp://127.0.0.1:" + std::to_string(relay.port());
        c.mailFrom = "Vocle <login@vocle.test>";
    });
    auto sent = server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    ASSERT_EQ(sent->status, 200);
    EXPECT_EQ(server.outboxCount(), 0u);
    const std::string session = relay.transcript();
    EXPECT_NE(session.find("MAIL FROM:<login@vocle.test>"), std::string::npos) << session;
    EXPECT_NE(session.find("RCPT TO:<ada@example.com>"), std::string::npos);
    std::smatch m;
    ASSERT_TRUE(std::regex_search(session, m, std::regex(R"(\r\n    (\d{6})\r\n)"))) << session;
    auto verified =
        server.post("/auth/verify-otp", {{"email", "ada@example.com"}, {"token", std::string(m[1])}});
    EXPECT_EQ(verified->status, 200) << verified->body;

    // A relay that is gone: the answer is the same, nothing is written, the failure is logged.
    server.clock.advance(31);
    auto again = server.post("/auth/send-otp", {{"email", "ada@example.com"}});
    EXPECT_EQ(again->status, 200);
    EXPECT_EQ(jsonOf(again), Json({{"sent", true}}));
}
