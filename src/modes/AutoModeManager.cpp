#include "modes/AutoModeManager.h"

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "modes/ExtractDomain.h"
#include "modes/SupportedBrowsers.h"

namespace vocle {

namespace {
bool isSupportedBrowser(const std::optional<std::string>& bundleId) {
    return bundleId && supportedBrowser(*bundleId).has_value();
}
}  // namespace

AutoModeManager::AutoModeManager(MainQueue& main, DispatchQueue& background, NotificationCenter& center,
                                 Workspace& workspace, BrowserScripting& scripting,
                                 Accessibility& accessibility, RandomSource& random)
    : main_(main),
      center_(center),
      workspace_(workspace),
      random_(random),
      reader_(main, background, workspace, scripting, accessibility, random) {
    activationObserver_ = workspace_.observeActivations(
        token_.guard([this](const std::optional<RunningApplication>& app) { applicationActivated(app); }));
    currentApplication_ = workspace_.frontmostApplication();
}

AutoModeManager::~AutoModeManager() {
    log("AutoModeManager: Stopping automatic mode switching");
    activationObserver_.reset();
}

void AutoModeManager::start() {
    log("AutoModeManager: Starting automatic mode switching");
    auto front = workspace_.frontmostApplication();
    if (front && isSupportedBrowser(front->bundleIdentifier)) {
        currentApplication_ = front;
        startURLMonitoring();
    }
}

void AutoModeManager::applicationActivated(const std::optional<RunningApplication>& app) {
    if (!app || !app->bundleIdentifier) return;
    const std::string bundleId = *app->bundleIdentifier;
    log("AutoModeManager: Application switched to ", app->localizedName.value_or("Unknown"), " (", bundleId,
        ")");
    currentApplication_ = app;
    if (isSupportedBrowser(bundleId)) {
        currentURL_.reset();
    } else {
        center_.post(Notifications::autoSwitchModeForApplication, nullptr, {{"bundleId", bundleId}});
    }
    // Keeps polling while a non-browser is in front; those ticks end at once.
    startURLMonitoring();
}

void AutoModeManager::startURLMonitoring() {
    log("AutoModeManager: Starting URL monitoring for browser");
    main_.post(token_.guard([this] {
        urlCheckTimer_.startRepeating(main_, kURLCheckInterval, token_.guard([this] { checkURL(); }));
        checkURL();
    }));
}

void AutoModeManager::checkURL() {
    auto front = workspace_.frontmostApplication();
    if (!front || !isSupportedBrowser(front->bundleIdentifier)) return;
    const std::string bundleId = *front->bundleIdentifier;
    if (!currentApplication_ || currentApplication_->bundleIdentifier != bundleId) {
        currentApplication_ = front;
        log("AutoModeManager: Switched to different browser: ", front->localizedName.value_or(bundleId));
    }
    reader_.read(bundleId, currentApplication_->processIdentifier,
                 token_.guard([this, bundleId](const std::optional<std::string>& url) {
                     handleURLResult(bundleId, url);
                 }));
}

void AutoModeManager::handleURLResult(const std::string& bundleId, const std::optional<std::string>& url) {
    if (!url) {
        // The poll runs every 0.75 s; one failure in ten is enough to see that reads fail.
        if (random_.next(9) == 0) log("AutoModeManager: URL check failed for ", bundleId);
        return;
    }
    if (url == currentURL_) return;
    log("AutoModeManager: URL changed to: ", *url);
    currentURL_ = url;
    processURLChange(*url);
}

void AutoModeManager::processURLChange(const std::string& url) {
    log("AutoModeManager: Processing URL change to: ", url);
    auto domain = extractDomain(url);
    if (!domain) {
        log("AutoModeManager: Failed to extract domain from URL: ", url);
        return;
    }
    log("AutoModeManager: Extracted domain: ", *domain);
    std::string fallback;
    if (currentApplication_ && currentApplication_->bundleIdentifier)
        fallback = *currentApplication_->bundleIdentifier;
    center_.post(Notifications::autoSwitchModeForWebsite, nullptr,
                 {{"domain", *domain}, {"fallbackBundleId", fallback}});
}

}  // namespace vocle
