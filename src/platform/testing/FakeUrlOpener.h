#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/url_opener.h"

namespace vocle::testing {

// Records every link; with `failWith` set the desktop opens nothing and says so at once.
class FakeUrlOpener final : public UrlOpener {
  public:
    std::vector<std::string> opened;
    std::optional<std::string> failWith;
    // The desktop's names for its settings places (by link) and application; none: an unknown desktop.
    std::map<std::string, std::string> places;
    std::optional<std::string> application;

    void openURL(const std::string& url) override { opened.push_back(url); }
    void openURL(const std::string& url, std::function<void(const std::string&)> onFailure) override {
        opened.push_back(url);
        if (failWith && onFailure) onFailure(*failWith);
    }
    std::optional<std::string> settingsPlace(const std::string& url) const override {
        auto it = places.find(url);
        if (it == places.end()) return std::nullopt;
        return it->second;
    }
    std::optional<std::string> settingsApplication() const override { return application; }
};

}  // namespace vocle::testing
