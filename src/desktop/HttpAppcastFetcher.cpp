#include "desktop/HttpAppcastFetcher.h"

#include "foundation/BindToMain.h"

namespace vocle {

HttpAppcastFetcher::HttpAppcastFetcher(MainQueue& mainQueue, HttpTransport& transport, std::string userAgent)
    : mainQueue_(mainQueue), transport_(transport), userAgent_(std::move(userAgent)) {}

void HttpAppcastFetcher::fetch(const std::string& url, std::function<void(Result<std::string>)> completion) {
    HttpRequest request;
    request.url = url;
    request.timeoutSeconds = 60;
    request.headers = {"Accept: application/rss+xml, application/xml, text/xml", "User-Agent: " + userAgent_};
    auto answer = [completion = std::move(completion)](HttpResponse response) {
        Result<std::string> result = [&]() -> Result<std::string> {
            if (response.transportFailed) return Error{"Appcast", -1, response.transportError};
            if (response.status != 200)
                return Error{"Appcast", static_cast<int>(response.status),
                             "the update feed answered with status " + std::to_string(response.status)};
            if (response.body.empty()) return Error{"Appcast", 0, "the update feed is empty"};
            return std::move(response.body);
        }();
        completion(result);
    };
    transport_.send(std::move(request), bindToMain(mainQueue_, owner_, std::move(answer)));
}

}  // namespace vocle
