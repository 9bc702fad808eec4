#include "http/HttpServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "foundation/Log.h"
#include "http/ListenSocket.h"
#include "http/StaticRoutes.h"

namespace vocle::server {

namespace {

constexpr uint64_t kListenId = 1;
constexpr uint64_t kWakeId = 2;
constexpr double kNever = std::numeric_limits<double>::infinity();
constexpr size_t kReadChunk = 64 * 1024;

thread_local std::chrono::steady_clock::time_point requestStart;
thread_local std::string requestUser;

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string lower(std::string s) {
    for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return s;
}

std::string statusMessage(int status) {
    switch (status) {
        case 400:
            return "Bad request";
        case 404:
            return "Not found";
        case 405:
            return "Method not allowed";
        case 413:
            return "Request body too large";
        case 414:
            return "Request URI too long";
        default:
            return status >= 500 ? "Internal server error" : "Request failed";
    }
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

// A complete request in memory for cpp-httplib to parse; the answer is collected for the event loop.
class BufferedStream final : public httplib::Stream {
  public:
    BufferedStream(const std::string& request, const std::string& clientAddress, int clientPort,
                   const std::string& localAddress, int localPort)
        : in_(request),
          clientAddress_(clientAddress),
          clientPort_(clientPort),
          localAddress_(localAddress),
          localPort_(localPort) {}

    bool is_readable() const override { return position_ < in_.size(); }
    bool is_writable() const override { return true; }
    ssize_t read(char* ptr, size_t size) override {
        const size_t n = std::min(size, in_.size() - position_);
        std::memcpy(ptr, in_.data() + position_, n);
        position_ += n;
        return static_cast<ssize_t>(n);
    }
    ssize_t write(const char* ptr, size_t size) override {
        out_.append(ptr, size);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip = clientAddress_;
        port = clientPort_;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override {
        ip = localAddress_;
        port = localPort_;
    }
    // No descriptor: the library must not wait on the socket, which the event loop owns.
    socket_t socket() const override { return INVALID_SOCKET; }

    std::string takeOutput() { return std::move(out_); }

  private:
    const std::string& in_;
    size_t position_ = 0;
    std::string out_;
    std::string clientAddress_;
    int clientPort_;
    std::string localAddress_;
    int localPort_;
};

}  // namespace

// cpp-httplib's routing and parsing, driven with requests the event loop has already read in full.
class HttpServer::Dispatcher : public httplib::Server {
  public:
    bool process(httplib::Stream& stream, bool closeConnection, bool& connectionClosed) {
        return process_request(stream, closeConnection, connectionClosed, nullptr);
    }
};

struct HttpServer::Connection {
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
    bool busy = false;          // a worker has the request
    bool closeAfterWrite = false;
    bool peerClosed = false;
    bool answeredBefore = false;
    uint32_t events = 0;
};

HttpServer::HttpServer(ApiHandlers& api, const HttpLimits& limits)
    : limits_(limits),
      dispatcher_(std::make_unique<Dispatcher>()),
      table_(limits.maxConnections, limits.maxConnectionsPerClient) {
    // Made here, not in run(), so that stop() from another thread never meets a closed descriptor.
    wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeFd_ < 0) throw std::runtime_error("Cannot create the event loop's wake-up descriptor");
    Dispatcher& server = *dispatcher_;
    server.set_payload_max_length(limits_.maxBodyBytes);
    server.set_pre_routing_handler([](const httplib::Request&, httplib::Response&) {
        requestStart = std::chrono::steady_clock::now();
        requestUser.clear();
        return httplib::Server::HandlerResponse::Unhandled;
    });
    auto handler = [&api](const httplib::Request& req, httplib::Response& res) {
        ApiRequest request;
        request.method = req.method;
        request.path = req.path;
        for (const auto& [name, value] : req.headers) {
            // The library adds the peer as pseudo-headers; they are not the client's.
            if (name == "REMOTE_ADDR" || name == "REMOTE_PORT") continue;
            request.headers.emplace(lower(name), value);
        }
        request.body = req.body;
        const ApiResponse response = api.handle(request);
        res.status = response.status;
        for (const auto& [name, value] : response.headers) res.set_header(name, value);
        res.set_content(toCompactJson(response.body), "application/json");
        requestUser = response.userId;
    };
    StaticRoutes::fromEnvironment(ProcessEnvironment()).registerOn(server);
    for (const char* pattern : {"/.*", ".*"}) {
        server.Get(pattern, handler);
        server.Post(pattern, handler);
        server.Put(pattern, handler);
        server.Delete(pattern, handler);
        server.Patch(pattern, handler);
    }
    server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty()) {
            res.set_content(toCompactJson(Json{{"error", statusMessage(res.status)}}), "application/json");
        }
    });
    server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
        res.status = 500;
        res.set_content(toCompactJson(Json{{"error", "Internal server error"}}), "application/json");
    });
    server.set_logger([](const httplib::Request& req, const httplib::Response& res) {
        // Requests the library rejects before routing never set a start time.
        char msText[32] = "-";
        if (requestStart != std::chrono::steady_clock::time_point{}) {
            const auto elapsed = std::chrono::steady_clock::now() - requestStart;
            const auto ms = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count() / 1000.0;
            std::snprintf(msText, sizeof msText, "%.1f", ms);
        }
        requestStart = {};
        log("vocle-server: ", req.method, " ", req.path, " ", res.status, " ", msText,
            " ms user=", requestUser.empty() ? "-" : requestUser);
        requestUser.clear();
    });
}

HttpServer::~HttpServer() {
    stop();
    if (listenFd_ >= 0) ::close(listenFd_);
    ::close(wakeFd_);
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
    stopping_ = true;
    wake();
    if (thread_.joinable()) thread_.join();
}

void HttpServer::wake() {
    const uint64_t one = 1;
    [[maybe_unused]] const auto n = ::write(wakeFd_, &one, sizeof one);
}

void HttpServer::run() {
    if (listenFd_ < 0) throw std::runtime_error("HttpServer::run before bind");
    epollFd_ = epoll_create1(EPOLL_CLOEXEC);
    if (epollFd_ < 0) throw std::runtime_error("Cannot create the event loop");
    epoll_event e{};
    e.events = EPOLLIN;
    e.data.u64 = kListenId;
    epoll_ctl(epollFd_, EPOLL_CTL_ADD, listenFd_, &e);
    e.data.u64 = kWakeId;
    epoll_ctl(epollFd_, EPOLL_CTL_ADD, wakeFd_, &e);
    {
        std::lock_guard lock(mutex_);
        workersStop_ = false;
    }
    for (int i = 0; i < limits_.workers; ++i) workers_.emplace_back([this] { workerMain(); });

    loop();

    {
        std::lock_guard lock(mutex_);
        workersStop_ = true;
        jobs_.clear();
    }
    jobsReady_.notify_all();
    for (auto& t : workers_) t.join();
    workers_.clear();
    done_.clear();
    while (!connections_.empty()) close(connections_.begin()->first);
    ::close(epollFd_);
    epollFd_ = -1;
}

void HttpServer::loop() {
    std::vector<epoll_event> events(256);
    double lastSweep = 0;
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
        if (now - lastSweep >= 0.05) {
            lastSweep = now;
            for (uint64_t id : table_.expired(now)) close(id);
        }
    }
}

void HttpServer::acceptAll(double now) {
    for (;;) {
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        const int fd = accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &length,
                               SOCK_NONBLOCK | SOCK_CLOEXEC);
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
        auto c = std::make_unique<Connection>(id, fd, HttpRequestFramer(limits_.maxHeadBytes, limits_.maxBodyBytes));
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

void HttpServer::watch(Connection& c, uint32_t events) {
    if (c.events == events) return;
    epoll_event e{};
    e.events = events;
    e.data.u64 = c.id;
    epoll_ctl(epollFd_, EPOLL_CTL_MOD, c.fd, &e);
    c.events = events;
}

void HttpServer::onReadable(Connection& c, double now) {
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

void HttpServer::frame(Connection& c, double now) {
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
                    [[maybe_unused]] const auto n = ::send(c.fd, kContinue, sizeof kContinue - 1, MSG_NOSIGNAL);
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
    Job job{id, c.framer.request(c.in), c.peerClosed, c.client, c.clientPort, c.local, c.localPort};
    c.in.erase(0, c.framer.requestEnd());
    c.framer.reset();
    c.continueSent = false;
    c.busy = true;
    table_.setPhase(id, ConnectionTable::Phase::Busy, now, kNever);
    watch(c, 0);
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    jobsReady_.notify_one();
}

// Answers that need no handler: the head is unreadable or the body too large. The connection closes
// afterwards because the rest of its bytes cannot be framed.
void HttpServer::answerDirectly(Connection& c, int status, double now) {
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

void HttpServer::workerMain() {
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            jobsReady_.wait(lock, [this] { return workersStop_ || !jobs_.empty(); });
            if (workersStop_) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        BufferedStream stream(job.request, job.clientAddress, job.clientPort, job.localAddress, job.localPort);
        bool closed = false;
        const bool ok = dispatcher_->process(stream, job.closeAfter, closed);
        Done done{job.id, stream.takeOutput(), job.closeAfter || closed || !ok};
        {
            std::lock_guard lock(mutex_);
            done_.push_back(std::move(done));
        }
        wake();
    }
}

void HttpServer::collectDone(double now) {
    std::vector<Done> finished;
    {
        std::lock_guard lock(mutex_);
        finished.swap(done_);
    }
    for (Done& d : finished) {
        auto it = connections_.find(d.id);
        if (it == connections_.end()) continue;
        Connection& c = *it->second;
        c.busy = false;
        c.out = std::move(d.response);
        c.outOffset = 0;
        c.closeAfterWrite = d.close;
        if (c.out.empty()) {
            close(d.id);
            continue;
        }
        table_.setPhase(c.id, ConnectionTable::Phase::Busy, now, now + limits_.bodyTimeoutSeconds);
        flush(c, now);
    }
}

void HttpServer::flush(Connection& c, double now) {
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

void HttpServer::finished(Connection& c, double now) {
    c.answeredBefore = true;
    c.out.clear();
    c.outOffset = 0;
    if (c.closeAfterWrite || (c.peerClosed && c.in.empty())) {
        close(c.id);
        return;
    }
    table_.setPhase(c.id, ConnectionTable::Phase::Waiting, now,
                    now + (c.in.empty() ? limits_.idleTimeoutSeconds : limits_.headerTimeoutSeconds));
    watch(c, EPOLLIN);
    // A pipelined request may already be waiting in the buffer.
    if (!c.in.empty()) frame(c, now);
}

void HttpServer::close(uint64_t id) {
    auto it = connections_.find(id);
    if (it == connections_.end()) return;
    epoll_ctl(epollFd_, EPOLL_CTL_DEL, it->second->fd, nullptr);
    ::close(it->second->fd);
    table_.remove(id);
    connections_.erase(it);
}

}  // namespace vocle::server
