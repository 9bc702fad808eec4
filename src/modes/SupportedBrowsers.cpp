#include "modes/SupportedBrowsers.h"

namespace vocle {

const std::map<std::string, SupportedBrowser>& supportedBrowsers() {
    using S = BrowserAddressSource;
    // Chromium has no script dictionary of its own; its tab is read through accessibility.
    static const std::map<std::string, SupportedBrowser> table{
        {"com.apple.Safari", {"Safari", S::safariScript}},
        {"com.google.Chrome", {"Chrome", S::chromeScripts}},
        {"google-chrome", {"Chrome", S::chromeScripts}},
        {"org.mozilla.firefox", {"Firefox", S::accessibilityOnly}},
        {"firefox", {"Firefox", S::accessibilityOnly}},
        {"firefox-esr", {"Firefox", S::accessibilityOnly}},
        {"company.thebrowser.Browser", {"Arc", S::arcScript}},
        {"chromium", {"Chromium", S::accessibilityOnly}},
        {"org.chromium.Chromium", {"Chromium", S::accessibilityOnly}},
    };
    return table;
}

std::optional<SupportedBrowser> supportedBrowser(const std::string& bundleId) {
    const auto& table = supportedBrowsers();
    auto it = table.find(bundleId);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

}  // namespace vocle
