#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "http/ConnectionTable.h"
#include "http/HttpExchange.h"

namespace vocle::server {

struct HttpLimits {
    size_t maxBodyBytes = 60ull * 1024 * 1024;
    size_t maxHeadBytes = 64 * 1024;
    int workers = 64;
    double headerTimeoutSeconds =
        10;                          // from connecting (or the first byte after an idle pause) to a full head
    double idleTimeoutSeconds = 5;   // keep-alive pause between requests
    double bodyTimeoutSeconds = 60;  // longest pause while a body arrives or an answer is taken
    size_t maxConnections = 4096;
    size_t maxConnectionsPerClient = 64;
};

// The epoll thread of the HTTP front: accepts connections, reads each request (head and body) under
// deadlines, hands complete requests on, writes the answers back. A slow or silent client therefore
// costs a descriptor and a small buffer, never a worker. When the server ends a connection, it stops
// writing first and reads on until the client closes (so a client still sending a refused body gets
// to read the refusal instead of a reset), then closes.
class EventLoop {
  public:
    struct Hooks {
        std::function<void(PendingRequest)> submit;
        std::function<std::vector<FinishedRequest>()> takeFinished;
        // A connection closed other than at its client's request ("Connection: close").
        std::function<void(uint64_t)> connectionLost;
        // About once a second.
        std::function<void()> tick;
    };

    EventLoop(const HttpLimits& limits, Hooks hooks);
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Serves `listenFd` until stop(); connections stay open until closeAll().
    void run(int listenFd);
    void closeAll();
    // From any thread.
    void stop();
    // From any thread: answers are waiting in takeFinished().
    void wake();

  private:
    struct Connection;
    void acceptAll(double now);
    void onReadable(Connection& c, double now);
    void drain(Connection& c, double now);
    void frame(Connection& c, double now);
    void answerDirectly(Connection& c, int status, double now);
    void flush(Connection& c, double now);
    void finished(Connection& c, double now);
    void collectDone(double now);
    void close(uint64_t id);
    void watch(Connection& c, uint32_t events);

    HttpLimits limits_;
    Hooks hooks_;
    int listenFd_ = -1;
    int epollFd_ = -1;
    int wakeFd_ = -1;
    std::atomic<bool> stopping_{false};
    double acceptPausedUntil_ = 0;
    ConnectionTable table_;
    std::unordered_map<uint64_t, std::unique_ptr<Connection>> connections_;
    uint64_t nextId_ = 16;
};

}  // namespace vocle::server
