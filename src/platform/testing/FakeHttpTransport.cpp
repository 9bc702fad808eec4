#include "platform/testing/FakeHttpTransport.h"

#include <algorithm>
#include <cctype>

namespace vocle::testing {

std::string FakeHttpTransport::Sent::path() const {
    const auto scheme = request.url.find("://");
    const auto slash = request.url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    return slash == std::string::npos ? std::string("/") : request.url.substr(slash);
}

HttpResponse FakeHttpTransport::response(long status, std::string body,
                                         std::map<std::string, std::string> headers) {
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    for (auto& [name, value] : headers) {
        std::string lower = name;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        response.headers[lower] = value;
    }
    return response;
}

HttpResponse FakeHttpTransport::failure(std::string error) {
    HttpResponse response;
    response.transportFailed = true;
    response.transportError = std::move(error);
    return response;
}

uint64_t FakeHttpTransport::send(HttpRequest request, Callback callback) {
    const uint64_t id = nextId_++;
    sent_.push_back(Sent{id, std::move(request), queue_.clock().now()});
    callbacks_.emplace(id, std::move(callback));
    if (!script_.empty()) {
        Reply next = std::move(script_.front());
        script_.pop_front();
        deliver(sent_.size() - 1, std::move(next.response), next.latency);
    }
    return id;
}

void FakeHttpTransport::deliver(size_t index, HttpResponse response, double latency) {
    const uint64_t id = sent_[index].id;
    // Marked at once so that waiting() and a second answer() see it as taken.
    sent_[index].answered = true;
    timers_[id].start(queue_, Seconds(latency), [this, id, response = std::move(response)]() mutable {
        timers_.erase(id);
        auto it = callbacks_.find(id);
        if (it == callbacks_.end()) return;
        Callback callback = std::move(it->second);
        callbacks_.erase(it);
        callback(std::move(response));
    });
}

bool FakeHttpTransport::answer(size_t index, HttpResponse response, double latency) {
    if (index >= sent_.size()) return false;
    const Sent& s = sent_[index];
    if (s.answered || s.cancelled) return false;
    deliver(index, std::move(response), latency);
    return true;
}

std::vector<size_t> FakeHttpTransport::waiting() const {
    std::vector<size_t> indices;
    for (size_t i = 0; i < sent_.size(); ++i) {
        if (!sent_[i].answered && !sent_[i].cancelled) indices.push_back(i);
    }
    return indices;
}

size_t FakeHttpTransport::cancelledCount() const {
    return static_cast<size_t>(
        std::count_if(sent_.begin(), sent_.end(), [](const Sent& s) { return s.cancelled; }));
}

void FakeHttpTransport::cancel(uint64_t id) {
    auto it = callbacks_.find(id);
    if (it == callbacks_.end()) return;
    callbacks_.erase(it);
    timers_.erase(id);
    for (auto& s : sent_) {
        if (s.id == id) s.cancelled = true;
    }
}

}  // namespace vocle::testing
