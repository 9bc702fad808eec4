#include "desktop/HttpAppcastFetcher.h"

namespace vocle {

HttpAppcastFetcher::HttpAppcastFetcher(MainQueue& mainQueue, HttpTransport& transport, std::string userAgent)
    : mainQueue_(mainQueue), transport_(transport), userAgent_(std::move(userAgent)) {}

HttpAppcastFetcher::~HttpAppcastFetcher() { *alive_ = false; }

void HttpAppcastFetcher::fetch(const std::string& url, std::function<void(Result<std::string>)> completion) {
    HttpRequest request;
    request.url = url;
    request.timeoutSeconds = 60;
    request.headers = {"Accept: application/rss+xml, application/xml, text/xml", "User-Agent: " + userAgent_};
    MainQueue* queue = &mainQueue_;
    std::weak_ptr<bool> alive = alive_;
    transport_.send(std::move(request), [queue, alive, completion = std::move(completion)](HttpResponse response) {
        if (alive.expired()) return;
        Result<std::string> result = [&]() -> Result<std::string> {
            if (response.transportFailed) return Error{"Appcast", -1, response.transportError};
            if (response.status != 200)
                return Error{"Appcast", static_cast<int>(response.status),
                             "the update feed answered with status " + std::to_string(response.status)};
            if (response.body.empty()) return Error{"Appcast", 0, "the update feed is empty"};
            return std::move(response.body);
        }();
        queue->post([alive, completion, result = std::move(result)] {
            if (!alive.expired()) completion(result);
        });
    });
}

}  // namespace vocle
