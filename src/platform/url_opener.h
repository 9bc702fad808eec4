#pragma once

#include <functional>
#include <string>

namespace vocle {

// Opens a link with the desktop (settings panels, help pages).
class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    virtual void openURL(const std::string& url) = 0;
    // Like openURL, and tells the caller when nothing opened it: `onFailure` runs on the main queue with
    // a sentence for the user (for a settings panel this desktop lacks, what to check instead).
    virtual void openURL(const std::string& url, std::function<void(const std::string& message)> onFailure) {
        (void)onFailure;
        openURL(url);
    }
};

}  // namespace vocle
