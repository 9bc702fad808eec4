#include "http/EventLoop.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <stdexcept>

#include "foundation/Json.h"
#include "foundation/Log.h"
#include "http/HttpRequestFramer.h"

namespace vocle::server {

namespace {

constexpr uint64_t kListenId = 1;
constexpr uint64_t kWakeId = 2;
constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr size_t kReadChunk = 64 * 1024;

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string addressText(const sockaddr_storage& address, int& port) {
    char text[INET6_ADDRSTRLEN] = "";
    port = 0;
    if (address.ss_family == AF_INET) {
        const auto* a = reinterpret_cast<const sockaddr_in*>(&address);
        inet_ntop(AF_INET, &a->sin_addr, text, sizeof text);
        port = ntohs(a->sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto* a = reinterpret_cast<const sockaddr_in6*>(&address);
        inet_ntop(AF_INET6, &a->sin6_addr, text, sizeof text);
        port = ntohs(a->sin6_port);
    }
    return text;
}

}  // namespace

struct EventLoop::Connection {
    Connection(uint64_t id, int fd, HttpRequestFramer framer) : id(id), fd(fd), framer(std::move(framer)) {}
    uint64_t id;
    int fd;
    HttpRequestFramer framer;
    std::string client;
    int clientPort = 0;
    std::string local;
    int localPort = 0;
    std::string in;
    std::string out;
    size_t outOffset = 0;
    bool continueSent = false;
    bool busy = false;  // a worker has the request
    bool closeAfterWrite = false;
    bool clientAskedToClose = false;
    bool peerClosed = false;
    bool answeredBefore = false;
    bool draining = false;  // our side is shut; reading until the client closes
    double drainUntil = 0;
    uint32_t events = 0;
};

EventLoop::EventLoop(const HttpLimits& limits, Hooks hooks)
    : limits_(limits),
      hooks_(std::move(hooks)),
      table_(limits.maxConnections, limits.maxConnectionsPerClient) {
    // Made here, not in run(), so that stop() from another thread never meets a closed descriptor.
    wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeFd_ < 0) throw std::runtime_error("Cannot create the event loop's wake-up descriptor");
}

EventLoop::~EventLoop() {
    closeAll();
    ::close(wakeFd_);
}

void EventLoop::stop() {
    stopping_ = true;
    wake();
}

void EventLoop::wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const auto n = ::write(wakeFd_, &one, sizeof one);
}

void EventLoop::run(int listenFd) {
    listenFd_ = listenFd;
    epollFd_ = epoll_create1(EPOLL_CLOEXEC);
    if (epollFd_ < 0) throw std::runtime_error("Cannot create the event loop");
    epoll_event e{};
    e.events = EPOLLIN;
    e.data.u64 = kListenId;
    epoll_ctl(epollFd_, EPOLL_CTL_ADD, listenFd_, &e);
    e.data.u64 = kWakeId;
    epoll_ctl(epollFd_, EPOLL_CTL_ADD, wakeFd_, &e);
    std::vector<epoll_event> events(256);
    double lastSweep = 0;
    double lastTick = monotonicSeconds();
    while (!stopping_) {
        const int n = epoll_wait(epollFd_, events.data(), static_cast<int>(events.size()), 100);
        const double now = monotonicSeconds();
        for (int i = 0; i < n; ++i) {
            const uint64_t id = events[static_cast<size_t>(i)].data.u64;
            const uint32_t what = events[static_cast<size_t>(i)].events;
            if (id == kListenId) {
                acceptAll(now);
            } else if (id == kWakeId) {
                uint64_t count = 0;
                [[maybe_unused]] const auto r = ::read(wakeFd_, &count, sizeof count);
                collectDone(now);
            } else {
                auto it = connections_.find(id);
                if (it == connections_.end()) continue;
                Connection& c = *it->second;
                if (c.busy && (what & (EPOLLERR | EPOLLHUP))) {
                    close(id);  // the worker's answer has nowhere to go; it is dropped on arrival
                    continue;
                }
                if (what & EPOLLOUT) {
                    flush(c, now);
                } else if (what & (EPOLLIN | EPOLLERR | EPOLLHUP)) {
                    onReadable(c, now);
                }
            }
        }
        if (acceptPausedUntil_ != 0 && now >= acceptPausedUntil_) {
            acceptPausedUntil_ = 0;
            epoll_event e{};
            e.events = EPOLLIN;
            e.data.u64 = kListenId;
            epoll_ctl(epollFd_, EPOLL_CTL_MOD, listenFd_, &e);
        }
        if (hooks_.tick && now - lastTick >= 1) {
            lastTick = now;
            hooks_.tick();
        }
        if (now - lastSweep >= 0.05) {
            lastSweep = now;
            for (uint64_t id : table_.expired(now)) close(id);
        }
    }
}

void EventLoop::acceptAll(double now) {
    for (;;) {
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        const int fd =
            accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // Out of descriptors: the pending connection stays queued; look again shortly rather
                // than spin on a listener that stays readable.
                acceptPausedUntil_ = now + 0.1;
                epoll_event e{};
                e.events = 0;
                e.data.u64 = kListenId;
                epoll_ctl(epollFd_, EPOLL_CTL_MOD, listenFd_, &e);
            }
            return;
        }
        int clientPort = 0;
        const std::string client = addressText(peer, clientPort);
        const ConnectionTable::Admission admission = table_.admit(client);
        for (uint64_t victim : admission.evicted) close(victim);
        if (!admission.accepted) {
            ::close(fd);
            continue;
        }
        const int yes = 1;
        // Headers and body go out in separate segments; without this, Nagle plus the peer's delayed ACK
        // adds about 40 ms to every keep-alive answer.
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const uint64_t id = nextId_++;
        auto c = std::make_unique<Connection>(id, fd,
                                              HttpRequestFramer(limits_.maxHeadBytes, limits_.maxBodyBytes));
        c->client = client;
        c->clientPort = clientPort;
        sockaddr_storage local{};
        socklen_t localLength = sizeof local;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) == 0)
            c->local = addressText(local, c->localPort);
        table_.add(id, client, now, now + limits_.headerTimeoutSeconds);
        Connection& ref = *c;
        connections_.emplace(id, std::move(c));
        epoll_event e{};
        e.events = EPOLLIN;
        e.data.u64 = id;
        epoll_ctl(epollFd_, EPOLL_CTL_ADD, fd, &e);
        ref.events = EPOLLIN;
    }
}

void EventLoop::watch(Connection& c, uint32_t events) {
    if (c.events == events) return;
    epoll_event e{};
    e.events = events;
    e.data.u64 = c.id;
    epoll_ctl(epollFd_, EPOLL_CTL_MOD, c.fd, &e);
    c.events = events;
}

void EventLoop::drain(Connection& c, double now) {
    static thread_local std::vector<char> sink(kReadChunk);
    for (int round = 0; round < 16; ++round) {
        const ssize_t n = ::recv(c.fd, sink.data(), sink.size(), 0);
        if (n > 0) {
            table_.setDeadline(c.id, std::min(c.drainUntil, now + limits_.idleTimeoutSeconds));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        close(c.id);  // the client has closed (or reset): the answer was read or will never be
        return;
    }
}

void EventLoop::onReadable(Connection& c, double now) {
    if (c.draining) return drain(c, now);
    static thread_local std::vector<char> chunk(kReadChunk);
    const bool wasEmpty = c.in.empty();
    bool progress = false;
    // Bounded per wake-up so that one fast sender cannot starve the others.
    for (int round = 0; round < 16; ++round) {
        const ssize_t n = ::recv(c.fd, chunk.data(), chunk.size(), 0);
        if (n > 0) {
            c.in.append(chunk.data(), static_cast<size_t>(n));
            progress = true;
            if (static_cast<size_t>(n) < chunk.size()) break;
            continue;
        }
        if (n == 0) {
            c.peerClosed = true;
            break;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            close(c.id);
            return;
        }
        break;
    }
    if (progress && wasEmpty && c.answeredBefore && !c.framer.headComplete()) {
        // An idle keep-alive connection starts a request: the head now has its own time limit.
        table_.setPhase(c.id, ConnectionTable::Phase::Waiting, now, now + limits_.headerTimeoutSeconds);
    }
    if (progress && c.framer.headComplete()) {
        table_.setDeadline(c.id, now + limits_.bodyTimeoutSeconds);
    }
    frame(c, now);
}

void EventLoop::frame(Connection& c, double now) {
    if (c.busy || !c.out.empty()) return;
    const uint64_t id = c.id;
    switch (c.framer.scan(c.in)) {
        case HttpRequestFramer::State::NeedMore:
            if (c.peerClosed) {
                close(id);
                return;
            }
            if (c.framer.headComplete()) {
                table_.setPhase(id, ConnectionTable::Phase::Receiving, now, now + limits_.bodyTimeoutSeconds);
                if (c.framer.expectsContinue() && !c.continueSent) {
                    c.continueSent = true;
                    static const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
                    [[maybe_unused]] const auto n =
                        ::send(c.fd, kContinue, sizeof kContinue - 1, MSG_NOSIGNAL);
                }
            }
            return;
        case HttpRequestFramer::State::TooLarge:
            answerDirectly(c, 413, now);
            return;
        case HttpRequestFramer::State::Malformed:
            answerDirectly(c, 400, now);
            return;
        case HttpRequestFramer::State::Complete:
            break;
    }
    PendingRequest request{id,         c.framer.request(c.in), c.peerClosed, c.client, c.clientPort, c.local,
                           c.localPort};
    c.in.erase(0, c.framer.requestEnd());
    c.framer.reset();
    c.continueSent = false;
    c.busy = true;
    table_.setPhase(id, ConnectionTable::Phase::Busy, now, kNever);
    watch(c, 0);
    hooks_.submit(std::move(request));
}

// Answers that need no handler: the head is unreadable or the body too large. The connection closes
// afterwards, in stages, because the rest of its bytes cannot be framed.
void EventLoop::answerDirectly(Connection& c, int status, double now) {
    const std::string body = toCompactJson(Json{{"error", statusMessage(status)}});
    const char* reason = status == 413 ? "Payload Too Large" : "Bad Request";
    c.out = "HTTP/1.1 " + std::to_string(status) + " " + reason +
            "\r\nConnection: close\r\nContent-Type: application/json\r\nContent-Length: " +
            std::to_string(body.size()) + "\r\n\r\n" + body;
    log("vocle-server: ", HttpRequestFramer::requestLine(c.in), " ", status, " - ms user=-");
    c.in.clear();
    c.closeAfterWrite = true;
    table_.setPhase(c.id, ConnectionTable::Phase::Busy, now, now + limits_.bodyTimeoutSeconds);
    flush(c, now);
}

void EventLoop::collectDone(double now) {
    for (FinishedRequest& d : hooks_.takeFinished()) {
        auto it = connections_.find(d.connection);
        if (it == connections_.end()) continue;
        Connection& c = *it->second;
        c.busy = false;
        c.out = std::move(d.response);
        c.outOffset = 0;
        c.closeAfterWrite = d.close;
        c.clientAskedToClose = d.clientAskedToClose;
        if (c.out.empty()) {
            close(d.connection);
            continue;
        }
        table_.setPhase(c.id, ConnectionTable::Phase::Busy, now, now + limits_.bodyTimeoutSeconds);
        flush(c, now);
    }
}

void EventLoop::flush(Connection& c, double now) {
    while (c.outOffset < c.out.size()) {
        const ssize_t n =
            ::send(c.fd, c.out.data() + c.outOffset, c.out.size() - c.outOffset, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            c.outOffset += static_cast<size_t>(n);
            table_.setDeadline(c.id, now + limits_.bodyTimeoutSeconds);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            watch(c, EPOLLOUT);
            return;
        }
        close(c.id);
        return;
    }
    finished(c, now);
}

void EventLoop::finished(Connection& c, double now) {
    c.answeredBefore = true;
    c.out.clear();
    c.outOffset = 0;
    if (c.peerClosed && (c.closeAfterWrite || c.in.empty())) {
        close(c.id);
        return;
    }
    if (c.closeAfterWrite) {
        // Closing with unread bytes makes the kernel send a reset, which can destroy our answer before the
        // client reads it: shut our side, read and drop until the client closes or the time is up.
        ::shutdown(c.fd, SHUT_WR);
        c.draining = true;
        c.in.clear();
        c.drainUntil = now + limits_.bodyTimeoutSeconds;
        table_.setPhase(c.id, ConnectionTable::Phase::Waiting, now,
                        std::min(c.drainUntil, now + limits_.idleTimeoutSeconds));
        watch(c, EPOLLIN);
        return;
    }
    table_.setPhase(c.id, ConnectionTable::Phase::Waiting, now,
                    now + (c.in.empty() ? limits_.idleTimeoutSeconds : limits_.headerTimeoutSeconds));
    watch(c, EPOLLIN);
    // A pipelined request may already be waiting in the buffer.
    if (!c.in.empty()) frame(c, now);
}

void EventLoop::close(uint64_t id) {
    auto it = connections_.find(id);
    if (it == connections_.end()) return;
    const bool lost = !it->second->clientAskedToClose;
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, it->second->fd, nullptr);
    ::close(it->second->fd);
    table_.remove(id);
    connections_.erase(it);
    if (lost && hooks_.connectionLost) hooks_.connectionLost(id);
}

void EventLoop::closeAll() {
    while (!connections_.empty()) close(connections_.begin()->first);
    if (epollFd_ >= 0) ::close(epollFd_);
    epollFd_ = -1;
}

}  // namespace vocle::server
