#pragma once

#include <functional>
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

    void openURL(const std::string& url) override { opened.push_back(url); }
    void openURL(const std::string& url, std::function<void(const std::string&)> onFailure) override {
        opened.push_back(url);
        if (failWith && onFailure) onFailure(*failWith);
    }
};

}  // namespace vocle::testing
