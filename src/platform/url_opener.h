#pragma once

#include <string>

namespace vocle {

// Opens a link with the desktop (settings panels, help pages).
class UrlOpener {
public:
    virtual ~UrlOpener() = default;
    virtual void openURL(const std::string& url) = 0;
};

}  // namespace vocle
