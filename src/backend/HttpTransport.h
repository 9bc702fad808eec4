#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vocle {

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    std::vector<std::string> headers;         // "Name: value"
    std::shared_ptr<const std::string> body;  // none: no body; shared so retries re-send without a copy
    long timeoutSeconds = 60;                 // whole request
    long inactivitySeconds = 45;              // no byte moved for this long
};

struct HttpResponse {
    bool transportFailed = false;
    std::string transportError;                  // curl's description when the transfer failed
    long status = 0;                             // 0 when the answer was not HTTP
    std::map<std::string, std::string> headers;  // names lower-cased; last value wins
    std::string body;

    std::optional<std::string> header(const std::string& lowerCaseName) const;
};

// libcurl's multi interface on one worker thread: every transfer of the process shares its connection
// cache, so keep-alive connections are reused. Callbacks run on the worker thread.
class HttpTransport {
  public:
    using Callback = std::function<void(HttpResponse)>;

    HttpTransport();
    ~HttpTransport();  // drops unfinished transfers without calling back
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;

    // Thread-safe. Returns an id for cancel().
    uint64_t send(HttpRequest request, Callback callback);
    // The callback of a cancelled transfer is not called (unless it is already running).
    void cancel(uint64_t id);

    // Checks that the text is an absolute http(s) URL libcurl can use.
    static bool isValidURL(const std::string& url);

  private:
    struct Transfer;
    void loop();
    void startPending();

    void* multi_ = nullptr;  // CURLM*
    std::mutex mutex_;
    std::vector<std::unique_ptr<Transfer>> pending_;
    std::vector<uint64_t> cancels_;
    std::map<uint64_t, std::unique_ptr<Transfer>> running_;  // worker thread only
    uint64_t nextId_ = 1;
    std::atomic<bool> stopping_{false};
    std::thread worker_;
};

}  // namespace vocle
