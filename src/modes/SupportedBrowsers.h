#pragma once

#include <map>
#include <optional>
#include <string>

namespace vocle {

// How a browser's address is read.
enum class BrowserAddressSource { safariScript, chromeScripts, arcScript, accessibilityOnly };

struct SupportedBrowser {
    std::string name;
    BrowserAddressSource source;
};

// The browsers whose active tab is followed, by application id: the macOS bundle identifiers and the
// Linux desktop-file ids of the same browsers.
const std::map<std::string, SupportedBrowser>& supportedBrowsers();
std::optional<SupportedBrowser> supportedBrowser(const std::string& bundleId);

}  // namespace vocle
