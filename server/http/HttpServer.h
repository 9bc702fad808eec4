#pragma once

#include <memory>
#include <string>
#include <thread>

#include "http/ApiHandlers.h"

namespace httplib {
class Server;
}

namespace vocle::server {

// cpp-httplib in front of ApiHandlers: body limit, JSON errors for everything the library answers by
// itself (404, 413, malformed requests), and one log line per request.
class HttpServer {
  public:
    HttpServer(ApiHandlers& api, size_t maxBodyBytes);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Port 0 picks a free one; returns the bound port. Throws std::runtime_error when it cannot bind.
    int bind(const std::string& host, int port);
    // Serves until stop(); blocking.
    void run();
    // Serves on a thread of its own (tests, benchmarks).
    void start();
    void stop();

  private:
    static void widenListenBacklog(int port);

    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
};

}  // namespace vocle::server
