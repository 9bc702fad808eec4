#pragma once

#include <string>

#include "platform/url_opener.h"

namespace vocle {

// Hands links to the desktop through `xdg-open` (spawned directly, no shell). The call returns at once;
// a thread reaps the child and logs a failure, since xdg-open may wait for the program it starts.
class XdgUrlOpener final : public UrlOpener {
  public:
    explicit XdgUrlOpener(std::string program = "xdg-open") : program_(std::move(program)) {}
    void openURL(const std::string& url) override;

  private:
    std::string program_;
};

}  // namespace vocle
