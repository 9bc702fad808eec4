#pragma once

#include <optional>
#include <string>

#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Timer.h"
#include "modes/BrowserAddressReader.h"
#include "modes/RandomSource.h"
#include "platform/accessibility.h"
#include "platform/workspace.h"

namespace vocle {

// Follows the frontmost application and, in a supported browser, the address of its active tab, and
// asks for a mode switch through "AutoSwitchModeForApplication" / "AutoSwitchModeForWebsite".
class AutoModeManager {
  public:
    AutoModeManager(MainQueue& main, DispatchQueue& background, NotificationCenter& center,
                    Workspace& workspace, BrowserScripting& scripting, Accessibility& accessibility,
                    RandomSource& random);
    ~AutoModeManager();
    AutoModeManager(const AutoModeManager&) = delete;
    AutoModeManager& operator=(const AutoModeManager&) = delete;

    void start();

    const std::optional<RunningApplication>& currentApplication() const { return currentApplication_; }
    const std::optional<std::string>& currentURL() const { return currentURL_; }
    bool isMonitoring() const { return urlCheckTimer_.isActive(); }

    static constexpr Seconds kURLCheckInterval{0.75};

  private:
    void applicationActivated(const std::optional<RunningApplication>& app);
    void startURLMonitoring();
    void checkURL();
    void handleURLResult(const std::string& bundleId, const std::optional<std::string>& url);
    void processURLChange(const std::string& url);

    MainQueue& main_;
    NotificationCenter& center_;
    Workspace& workspace_;
    RandomSource& random_;
    BrowserAddressReader reader_;
    Timer urlCheckTimer_;
    std::optional<RunningApplication> currentApplication_;
    std::optional<std::string> currentURL_;
    Subscription activationObserver_;
    OwnerToken token_;
};

}  // namespace vocle
