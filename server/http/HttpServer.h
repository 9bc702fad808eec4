#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "http/ApiHandlers.h"
#include "http/ConnectionTable.h"
#include "http/HttpRequestFramer.h"

namespace vocle::server {

struct HttpLimits {
    size_t maxBodyBytes = 60ull * 1024 * 1024;
    size_t maxHeadBytes = 64 * 1024;
    int workers = 64;
    double headerTimeoutSeconds = 10;  // from connecting (or the first byte after an idle pause) to a full head
    double idleTimeoutSeconds = 5;     // keep-alive pause between requests
    double bodyTimeoutSeconds = 60;    // longest pause while a body arrives or an answer is taken
    size_t maxConnections = 4096;
    size_t maxConnectionsPerClient = 64;
};

// The HTTP front: one event-loop thread accepts connections and reads each request (head and body)
// under deadlines; only complete requests go to the worker pool, where cpp-httplib parses and routes
// them to ApiHandlers; answers are written back by the loop. A slow or silent client therefore costs
// a descriptor and a small buffer, never a worker. JSON errors for everything the library answers by
// itself (404, 413, malformed requests), and one log line per request.
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

    class Dispatcher;
    struct Connection;

  private:
    struct Job {
        uint64_t id;
        std::string request;
        bool closeAfter;
        std::string clientAddress;
        int clientPort;
        std::string localAddress;
        int localPort;
    };
    struct Done {
        uint64_t id;
        std::string response;
        bool close;
    };

    void loop();
    void workerMain();
    void acceptAll(double now);
    void onReadable(Connection& c, double now);
    void frame(Connection& c, double now);
    void answerDirectly(Connection& c, int status, double now);
    void flush(Connection& c, double now);
    void finished(Connection& c, double now);
    void collectDone(double now);
    void close(uint64_t id);
    void watch(Connection& c, uint32_t events);
    void wake();

    HttpLimits limits_;
    std::unique_ptr<Dispatcher> dispatcher_;
    int listenFd_ = -1;
    int epollFd_ = -1;
    int wakeFd_ = -1;
    std::atomic<bool> stopping_{false};
    double acceptPausedUntil_ = 0;

    ConnectionTable table_;
    std::unordered_map<uint64_t, std::unique_ptr<Connection>> connections_;
    uint64_t nextId_ = 16;

    std::mutex mutex_;
    std::condition_variable jobsReady_;
    std::deque<Job> jobs_;
    std::vector<Done> done_;
    bool workersStop_ = false;
    std::vector<std::thread> workers_;
    std::thread thread_;
};

}  // namespace vocle::server
