#pragma once

#include "foundation/MainQueue.h"
#include "platform/alerts.h"

namespace vocle::ui {

// Alerts as application-modal message boxes, opened without blocking the caller; the answer is posted
// to the main queue.
class QtAlerts final : public Alerts {
public:
    explicit QtAlerts(MainQueue& mainQueue) : mainQueue_(mainQueue) {}
    void show(const AlertRequest& request, std::function<void(int response)> onResponse) override;

private:
    MainQueue& mainQueue_;
};

}  // namespace vocle::ui
