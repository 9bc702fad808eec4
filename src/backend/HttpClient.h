#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vocle {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::vector<std::string> headers;         // "Name: value"
    std::shared_ptr<const std::string> body;  // none: no body; shared so retries re-send without a copy
    long timeoutSeconds = 60;                 // whole request
    long inactivitySeconds = 45;              // no byte moved for this long

    // The value of the first header with this name (compared without regard to case).
    std::optional<std::string> header(const std::string& name) const;
};

struct HttpResponse {
    bool transportFailed = false;
    std::string transportError;                  // the transport's description when the transfer failed
    long status = 0;                             // 0 when the answer was not HTTP
    std::map<std::string, std::string> headers;  // names lower-cased; last value wins
    std::string body;

    std::optional<std::string> header(const std::string& lowerCaseName) const;
};

// Where the backend client's requests go: libcurl in the application (HttpTransport), a scripted fake in
// unit tests. The callback may run on any thread, at most once per transfer.
class HttpClient {
  public:
    using Callback = std::function<void(HttpResponse)>;

    virtual ~HttpClient() = default;

    // Thread-safe. Returns an id for cancel().
    virtual uint64_t send(HttpRequest request, Callback callback) = 0;
    // The callback of a cancelled transfer is not called (unless it is already running).
    virtual void cancel(uint64_t id) = 0;
};

}  // namespace vocle
