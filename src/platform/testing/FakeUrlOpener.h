#pragma once

#include <string>
#include <vector>

#include "platform/url_opener.h"

namespace vocle::testing {

class FakeUrlOpener final : public UrlOpener {
  public:
    std::vector<std::string> opened;
    void openURL(const std::string& url) override { opened.push_back(url); }
};

}  // namespace vocle::testing
