#pragma once

#include <string>
#include <vector>

#include "foundation/MainQueue.h"
#include "platform/linux/DesktopSettingsPanels.h"
#include "platform/url_opener.h"

namespace vocle {

// Hands links to the desktop through `xdg-open`, and settings links to the desktop's own panel
// (DesktopSettingsPanels), spawned directly, no shell. The call returns at once; a thread reaps the
// child, since it may wait for the program it starts, and a failure goes to the log and, posted to the
// main queue, to the caller.
class XdgUrlOpener final : public UrlOpener {
  public:
    XdgUrlOpener(MainQueue& mainQueue, const Environment& environment, std::string program = "xdg-open")
        : mainQueue_(mainQueue), panels_(environment), program_(std::move(program)) {}
    void openURL(const std::string& url) override { openURL(url, {}); }
    void openURL(const std::string& url, std::function<void(const std::string&)> onFailure) override;
    std::optional<std::string> settingsPlace(const std::string& url) const override {
        return panels_.placeName(url);
    }
    std::optional<std::string> settingsApplication() const override { return panels_.applicationName(); }

  private:
    void run(std::vector<std::string> argv, const std::string& url, std::string help,
             std::function<void(const std::string&)> onFailure);

    MainQueue& mainQueue_;
    DesktopSettingsPanels panels_;
    std::string program_;
};

}  // namespace vocle
