#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vocle {

struct DesktopNotice {
    std::string title;
    std::string body;
    std::vector<std::string> actions;  // button labels in display order; may be empty
};

// Passive notices through the desktop's notification service. Unlike Alerts they never take the focus
// from the window the user is in, so they suit things the user must learn while working elsewhere.
// onAction runs on the main queue with the index of the chosen action, if the user picks one.
class DesktopNotifications {
public:
    virtual ~DesktopNotifications() = default;
    virtual void notify(const DesktopNotice& notice, std::function<void(int action)> onAction = {}) = 0;
};

}  // namespace vocle
