#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backend/HttpClient.h"
#include "foundation/MainQueue.h"
#include "foundation/Timer.h"

namespace vocle::testing {

// The network as a script: every request is recorded, and answered on the main queue with the next
// scripted reply after that reply's latency (virtual seconds). A request that finds the script empty
// waits until the test answers it, so completion order is the test's to choose.
class FakeHttpTransport final : public HttpClient {
  public:
    struct Reply {
        HttpResponse response;
        double latency = 0;
    };
    struct Sent {
        uint64_t id = 0;
        HttpRequest request;
        double sentAt = 0;  // on the queue's clock
        bool answered = false;
        bool cancelled = false;

        std::string body() const { return request.body ? *request.body : std::string(); }
        // The URL without the origin: "/settings".
        std::string path() const;
    };

    explicit FakeHttpTransport(MainQueue& queue) : queue_(queue) {}

    // Answers for the next requests, in order.
    void reply(HttpResponse response, double latency = 0) {
        script_.push_back({std::move(response), latency});
    }
    void replyStatus(long status, std::string body = {}, std::map<std::string, std::string> headers = {},
                     double latency = 0) {
        reply(response(status, std::move(body), std::move(headers)), latency);
    }
    void replyFailure(std::string error = "Couldn't connect to server", double latency = 0) {
        reply(failure(std::move(error)), latency);
    }
    size_t scriptedLeft() const { return script_.size(); }

    // Answers a waiting request (by its index in sent()) after `latency`; false if it cannot be answered.
    bool answer(size_t index, HttpResponse response, double latency = 0);
    // Indices of the requests that wait for answer().
    std::vector<size_t> waiting() const;

    const std::vector<Sent>& sent() const { return sent_; }
    size_t cancelledCount() const;

    static HttpResponse response(long status, std::string body = {},
                                 std::map<std::string, std::string> headers = {});
    static HttpResponse failure(std::string error);

    uint64_t send(HttpRequest request, Callback callback) override;
    void cancel(uint64_t id) override;

  private:
    void deliver(size_t index, HttpResponse response, double latency);

    MainQueue& queue_;
    std::deque<Reply> script_;
    std::vector<Sent> sent_;
    std::map<uint64_t, Callback> callbacks_;  // requests not yet answered or cancelled
    std::map<uint64_t, Timer> timers_;
    uint64_t nextId_ = 1;
};

}  // namespace vocle::testing
