#pragma once

#include <functional>
#include <optional>
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
    // How the desktop names the place a settings link opens ("Settings > Sound"), for texts that send the
    // user there; none where it has no name we know (the texts then speak of "your desktop's settings").
    virtual std::optional<std::string> settingsPlace(const std::string& url) const {
        (void)url;
        return std::nullopt;
    }
    // The desktop's settings application ("Settings", "System Settings"); none where we do not know it.
    virtual std::optional<std::string> settingsApplication() const { return std::nullopt; }
};

}  // namespace vocle
