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

#include "backend/HttpClient.h"

namespace vocle {

// libcurl's multi interface on one worker thread: every transfer of the process shares its connection
// cache, so keep-alive connections are reused. Callbacks run on the worker thread.
class HttpTransport final : public HttpClient {
  public:
    HttpTransport();
    ~HttpTransport() override;  // drops unfinished transfers without calling back
    HttpTransport(const HttpTransport&) = delete;
    HttpTransport& operator=(const HttpTransport&) = delete;

    uint64_t send(HttpRequest request, Callback callback) override;
    void cancel(uint64_t id) override;

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
