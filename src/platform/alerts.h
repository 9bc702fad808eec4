#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vocle {

enum class AlertStyle { informational, warning, critical };

struct AlertRequest {
    std::string title;
    std::string text;
    AlertStyle style = AlertStyle::warning;
    std::vector<std::string> buttons;  // in display order; empty means one "OK"
};

// Modal alerts. The response is the index of the chosen button (0 = first), delivered on the main
// queue once the alert is dismissed.
class Alerts {
public:
    virtual ~Alerts() = default;
    virtual void show(const AlertRequest& request, std::function<void(int response)> onResponse) = 0;
};

}  // namespace vocle
