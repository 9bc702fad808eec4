#pragma once

#include <memory>

#include "backend/HttpTransport.h"
#include "desktop/UpdaterManager.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"

namespace vocle {

// Fetches the feed with libcurl on the transport's worker thread and hands the body to the main queue.
// Anything but a 200 with a body is an error.
class HttpAppcastFetcher final : public AppcastFetcher {
public:
    HttpAppcastFetcher(MainQueue& mainQueue, HttpTransport& transport, std::string userAgent);

    void fetch(const std::string& url, std::function<void(Result<std::string>)> completion) override;

private:
    MainQueue& mainQueue_;
    HttpTransport& transport_;
    std::string userAgent_;
    OwnerToken owner_;
};

}  // namespace vocle
