#include "http/HttpServer.h"

#include <httplib.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

#include "foundation/Log.h"
#include "http/StaticRoutes.h"

namespace vocle::server {

namespace {

thread_local std::chrono::steady_clock::time_point requestStart;
thread_local std::string requestUser;

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

}  // namespace

HttpServer::HttpServer(ApiHandlers& api, size_t maxBodyBytes) : server_(std::make_unique<httplib::Server>()) {
    server_->set_payload_max_length(maxBodyBytes);
    // Transcriptions hold a worker for seconds while they wait for a decoder; enough workers keep quick
    // requests (settings, sign-in) from queueing behind them.
    server_->new_task_queue = [] { return new httplib::ThreadPool(64); };
    // Headers and body go out in separate writes; without this, Nagle plus the peer's delayed ACK adds
    // about 40 ms to every keep-alive response.
    server_->set_tcp_nodelay(true);
    server_->set_read_timeout(60, 0);
    server_->set_write_timeout(60, 0);
    server_->set_pre_routing_handler([](const httplib::Request&, httplib::Response&) {
        requestStart = std::chrono::steady_clock::now();
        requestUser.clear();
        return httplib::Server::HandlerResponse::Unhandled;
    });
    auto handler = [&api](const httplib::Request& req, httplib::Response& res) {
        ApiRequest request;
        request.method = req.method;
        request.path = req.path;
        for (const auto& [name, value] : req.headers) request.headers.emplace(lower(name), value);
        request.body = req.body;
        const ApiResponse response = api.handle(request);
        res.status = response.status;
        for (const auto& [name, value] : response.headers) res.set_header(name, value);
        res.set_content(toCompactJson(response.body), "application/json");
        requestUser = response.userId;
    };
    StaticRoutes::fromEnvironment(ProcessEnvironment()).registerOn(*server_);
    for (const char* pattern : {"/.*", ".*"}) {
        server_->Get(pattern, handler);
        server_->Post(pattern, handler);
        server_->Put(pattern, handler);
        server_->Delete(pattern, handler);
        server_->Patch(pattern, handler);
    }
    server_->set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty()) {
            res.set_content(toCompactJson(Json{{"error", statusMessage(res.status)}}), "application/json");
        }
    });
    server_->set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
        res.status = 500;
        res.set_content(toCompactJson(Json{{"error", "Internal server error"}}), "application/json");
    });
    server_->set_logger([](const httplib::Request& req, const httplib::Response& res) {
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
}

// The packaged cpp-httplib listens with a backlog of 5, so a burst of clients overflows the accept
// queue and the dropped handshakes come back only after a one-second retransmission. Linux lets
// listen() be called again on a listening socket to enlarge the queue; the library does not expose
// its socket, so it is found by its port.
void HttpServer::widenListenBacklog(int port) {
    for (int fd = 3; fd < 4096; ++fd) {
        int accepting = 0;
        socklen_t length = sizeof accepting;
        if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &accepting, &length) != 0 || !accepting) continue;
        sockaddr_storage address{};
        socklen_t addressLength = sizeof address;
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &addressLength) != 0) continue;
        int boundPort = -1;
        if (address.ss_family == AF_INET)
            boundPort = ntohs(reinterpret_cast<sockaddr_in*>(&address)->sin_port);
        if (address.ss_family == AF_INET6)
            boundPort = ntohs(reinterpret_cast<sockaddr_in6*>(&address)->sin6_port);
        if (boundPort == port) ::listen(fd, SOMAXCONN);
    }
}

// The library binds with SO_REUSEPORT, which would let a second vocle-server share the port and take
// half of the requests; a plain bind first tells that the port is taken.
static bool portInUse(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE;
    addrinfo* result = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &result) != 0 || !result)
        return false;
    bool inUse = false;
    const int fd = socket(result->ai_family, result->ai_socktype, result->ai_protocol);
    if (fd >= 0) {
        const int yes = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        inUse = ::bind(fd, result->ai_addr, result->ai_addrlen) != 0 && errno == EADDRINUSE;
        close(fd);
    }
    freeaddrinfo(result);
    return inUse;
}

int HttpServer::bind(const std::string& host, int port) {
    if (port != 0 && portInUse(host, port)) {
        throw std::runtime_error("Cannot listen on " + host + ":" + std::to_string(port) +
                                 ": the port is in use");
    }
    int bound = -1;
    if (port == 0) {
        bound = server_->bind_to_any_port(host);
    } else if (server_->bind_to_port(host, port)) {
        bound = port;
    }
    if (bound <= 0) throw std::runtime_error("Cannot listen on " + host + ":" + std::to_string(port));
    widenListenBacklog(bound);
    return bound;
}

void HttpServer::run() {
    server_->listen_after_bind();
}

void HttpServer::start() {
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // listen_after_bind() flips is_running() once it accepts; wait for that so callers can connect at once.
    for (int i = 0; i < 5000 && !server_->is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void HttpServer::stop() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace vocle::server
