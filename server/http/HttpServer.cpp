#include "http/HttpServer.h"

#include <unistd.h>

#include <stdexcept>

#include "http/ListenSocket.h"

namespace vocle::server {

HttpServer::HttpServer(ApiHandlers& api, const HttpLimits& limits)
    : bridge_(api, limits.maxBodyBytes),
      workers_(
          limits.workers, [this](const PendingRequest& r) { return bridge_.process(r); },
          [this] { loop_.wake(); }),
      loop_(limits, EventLoop::Hooks{[this](PendingRequest r) { workers_.submit(std::move(r)); },
                                     [this] { return workers_.takeFinished(); },
                                     [this](uint64_t id) {
                                         if (connectionLost_) connectionLost_(id);
                                     },
                                     [this] {
                                         if (tick_) tick_();
                                     }}) {}

HttpServer::~HttpServer() {
    stop();
    if (listenFd_ >= 0) ::close(listenFd_);
}

int HttpServer::bind(const std::string& host, int port) {
    int bound = 0;
    listenFd_ = ListenSocket::open(host, port, bound);
    return bound;
}

void HttpServer::start() {
    thread_ = std::thread([this] { run(); });
}

void HttpServer::stop() {
    loop_.stop();
    if (thread_.joinable()) thread_.join();
}

void HttpServer::run() {
    if (listenFd_ < 0) throw std::runtime_error("HttpServer::run before bind");
    workers_.start();
    loop_.run(listenFd_);
    workers_.stop();
    loop_.closeAll();
}

}  // namespace vocle::server
