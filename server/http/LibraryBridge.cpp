#include "http/LibraryBridge.h"

#include <httplib.h>

#include <chrono>
#include <cstring>

#include "foundation/Log.h"
#include "http/StaticRoutes.h"

namespace vocle::server {

namespace {

thread_local std::chrono::steady_clock::time_point requestStart;
thread_local std::string requestUser;
thread_local uint64_t currentConnection = 0;

std::string lower(std::string s) {
    for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return s;
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

class LibraryBridge::Dispatcher : public httplib::Server {
  public:
    bool process(httplib::Stream& stream, bool closeConnection, bool& connectionClosed) {
        return process_request(stream, closeConnection, connectionClosed, nullptr);
    }
};

LibraryBridge::LibraryBridge(ApiHandlers& api, size_t maxBodyBytes)
    : dispatcher_(std::make_unique<Dispatcher>()) {
    Dispatcher& server = *dispatcher_;
    server.set_payload_max_length(maxBodyBytes);
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
        for (const auto& [name, value] : req.params) request.query.emplace(name, value);
        request.connection = currentConnection;
        const ApiResponse response = api.handle(request);
        res.status = response.status;
        for (const auto& [name, value] : response.headers) res.set_header(name, value);
        if (response.status != 204) res.set_content(toCompactJson(response.body), "application/json");
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

LibraryBridge::~LibraryBridge() = default;

FinishedRequest LibraryBridge::process(const PendingRequest& request) {
    BufferedStream stream(request.bytes, request.clientAddress, request.clientPort, request.localAddress,
                          request.localPort);
    currentConnection = request.connection;
    bool closed = false;
    const bool ok = dispatcher_->process(stream, request.closeAfter, closed);
    currentConnection = 0;
    return {request.connection, stream.takeOutput(), request.closeAfter || closed || !ok, closed};
}

}  // namespace vocle::server
