#pragma once

#include <functional>
#include <string>
#include <thread>

#include "http/ApiHandlers.h"
#include "http/EventLoop.h"
#include "http/LibraryBridge.h"
#include "http/WorkerPool.h"

namespace vocle::server {

// The HTTP front: the event loop reads whole requests, the worker pool runs them through the library
// bridge (cpp-httplib's parsing and routing onto ApiHandlers), the loop writes the answers back.
class HttpServer {
  public:
    HttpServer(ApiHandlers& api, const HttpLimits& limits);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Port 0 picks a free one; returns the bound port. Throws std::runtime_error when it cannot listen.
    int bind(const std::string& host, int port);
    // Serves until stop(); blocking.
    void run();
    // Serves on a thread of its own (tests, benchmarks).
    void start();
    // From any thread; run() returns once in-flight requests are done.
    void stop();

    // Set before serving. Called on the event loop's thread, so they must be quick: a connection was
    // closed other than at its client's request (`ApiRequest::connection` names it); about once a second.
    void onConnectionLost(std::function<void(uint64_t)> listener) { connectionLost_ = std::move(listener); }
    void onTick(std::function<void()> tick) { tick_ = std::move(tick); }

  private:
    LibraryBridge bridge_;
    WorkerPool workers_;
    EventLoop loop_;
    std::function<void(uint64_t)> connectionLost_;
    std::function<void()> tick_;
    int listenFd_ = -1;
    std::thread thread_;
};

}  // namespace vocle::server
