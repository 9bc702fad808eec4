#include "desktop/UpdaterManager.h"

#include "backend/HttpTransport.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

UpdaterManager::UpdaterManager(MainQueue& mainQueue, AppcastFetcher& fetcher, Config config, UserDriver driver)
    : mainQueue_(mainQueue), fetcher_(fetcher), config_(std::move(config)), driver_(std::move(driver)) {
    log("🔄 Initializing Sparkle UpdaterManager...");
    if (!config_.configuredFeedURL || config_.configuredFeedURL->empty()) {
        log("⚠️ Feed URL was not set in Info.plist, setting programmatically");
        feedURL_ = config_.productWebOrigin + "/appcast.xml";
    } else {
        feedURL_ = *config_.configuredFeedURL;
        log("✅ Feed URL configured: ", feedURL_.empty() ? "unknown" : feedURL_);
    }
    if (!HttpTransport::isValidURL(feedURL_)) {
        log("❌ Failed to access Sparkle updater");
        return;
    }
    started_ = true;
    automaticallyChecks_ = true;
    automaticallyDownloads_ = true;
    checkInterval_ = kCheckInterval;
    log("✅ Automatic updates configured:");
    log("   - Auto check: ", boolText(automaticallyChecks_));
    log("   - Auto download: ", boolText(automaticallyDownloads_));
    log("   - Check interval: ", std::to_string(checkInterval_.count())
                                     .substr(0, std::to_string(checkInterval_.count()).find('.') + 2));
    initialCheck_.start(mainQueue_, kInitialCheckDelay, token_.guard([this] {
        log("🔍 Performing initial background update check...");
        checkForUpdatesInBackground();
        scheduledChecks_.startRepeating(mainQueue_, checkInterval_, token_.guard([this] {
            if (automaticallyChecks_) checkForUpdatesInBackground();
        }));
    }));
}

UpdaterManager::~UpdaterManager() = default;

void UpdaterManager::checkForUpdates() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("🔍 Manual update check requested by user");
    if (!started_) return;
    check(true);
}

void UpdaterManager::checkForUpdatesInBackground() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (!started_) return;
    check(false);
}

void UpdaterManager::check(bool userInitiated) {
    if (userInitiated) pendingUserCheck_ = true;
    // One fetch at a time; a user check during a background one takes over its outcome.
    if (checking_) return;
    checking_ = true;
    fetcher_.fetch(feedURL_, token_.guard([this](Result<std::string> result) { finish(result); }));
}

void UpdaterManager::finish(const Result<std::string>& result) {
    checking_ = false;
    const bool userInitiated = pendingUserCheck_;
    pendingUserCheck_ = false;
    auto fail = [&](const std::string& message) {
        log("⚠️ Update check failed: ", message);
        if (userInitiated && driver_.showUpdateError) driver_.showUpdateError(message);
    };
    if (!result.ok()) return fail(result.error().description);
    auto parsed = parseAppcast(result.value());
    if (!parsed.ok()) return fail(parsed.error().description);
    auto newest = newestItem(parsed.value());
    if (!newest || compareVersions(newest->version, config_.currentVersion) <= 0) {
        log("✅ Vocle is up to date (", config_.currentVersion, ")");
        available_.reset();
        if (userInitiated && driver_.showUpToDate) driver_.showUpToDate();
        return;
    }
    log("✅ Update available: ", newest->displayVersion(), " (current ", config_.currentVersion, ")");
    available_ = newest;
    // Background checks announce a version once; the user's own check always answers.
    if (!userInitiated && lastAnnouncedVersion_ == newest->version) return;
    lastAnnouncedVersion_ = newest->version;
    if (driver_.showUpdateFound) driver_.showUpdateFound(*newest, userInitiated);
}

}  // namespace vocle
