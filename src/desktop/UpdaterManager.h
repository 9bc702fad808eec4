#pragma once

#include <functional>
#include <optional>
#include <string>

#include "desktop/Appcast.h"
#include "foundation/MainQueue.h"
#include "foundation/Timer.h"
#include "foundation/OwnerToken.h"
#include "foundation/Error.h"

namespace vocle {

// Fetches the update feed. The completion runs on the main queue, exactly once.
class AppcastFetcher {
public:
    virtual ~AppcastFetcher() = default;
    virtual void fetch(const std::string& url, std::function<void(Result<std::string>)> completion) = 0;
};

// Checks the update feed 5 s after launch, then every hour, and when the user asks; a newer version is
// announced with its notes and a link. Nothing is installed: the user updates through their packages or
// the download page. Main queue only.
class UpdaterManager {
public:
    static constexpr Seconds kInitialCheckDelay{5.0};
    static constexpr Seconds kCheckInterval{3600.0};

    struct Config {
        std::string currentVersion;
        // A feed chosen by the operator; otherwise the product web origin plus "/appcast.xml".
        std::optional<std::string> configuredFeedURL;
        std::string productWebOrigin;
    };

    // How results reach the user. `userInitiated` is true for the menu's "Check for Updates…".
    struct UserDriver {
        std::function<void(const AppcastItem& item, bool userInitiated)> showUpdateFound;
        std::function<void()> showUpToDate;            // user-initiated checks only
        std::function<void(const std::string&)> showUpdateError;  // user-initiated checks only
    };

    UpdaterManager(MainQueue& mainQueue, AppcastFetcher& fetcher, Config config, UserDriver driver = {});
    ~UpdaterManager();
    UpdaterManager(const UpdaterManager&) = delete;
    UpdaterManager& operator=(const UpdaterManager&) = delete;

    void setUserDriver(UserDriver driver) { driver_ = std::move(driver); }

    // The menu's check: always reports its outcome to the user.
    void checkForUpdates();
    void checkForUpdatesInBackground();

    const std::string& feedURL() const { return feedURL_; }
    bool automaticallyChecksForUpdates() const { return automaticallyChecks_; }
    bool automaticallyDownloadsUpdates() const { return automaticallyDownloads_; }
    Seconds updateCheckInterval() const { return checkInterval_; }
    bool isStarted() const { return started_; }
    bool isChecking() const { return checking_; }
    // The newest version seen that is newer than ours.
    const std::optional<AppcastItem>& availableUpdate() const { return available_; }

private:
    void check(bool userInitiated);
    void finish(const Result<std::string>& result);

    MainQueue& mainQueue_;
    AppcastFetcher& fetcher_;
    Config config_;
    UserDriver driver_;
    std::string feedURL_;
    bool started_ = false;
    bool automaticallyChecks_ = false;
    bool automaticallyDownloads_ = false;
    Seconds checkInterval_{0};
    bool checking_ = false;
    bool pendingUserCheck_ = false;
    std::optional<AppcastItem> available_;
    std::string lastAnnouncedVersion_;
    Timer initialCheck_;
    Timer scheduledChecks_;
    OwnerToken token_;
};

}  // namespace vocle
