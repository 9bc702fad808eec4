#pragma once

#include <functional>
#include <vector>

#include "platform/alerts.h"

namespace vocle::testing {

// Records every alert; the test answers with respond().
class FakeAlerts final : public Alerts {
  public:
    std::vector<AlertRequest> shown;

    void show(const AlertRequest& request, std::function<void(int)> onResponse) override {
        shown.push_back(request);
        pending_.push_back(std::move(onResponse));
    }
    // Answers the oldest open alert with the button index.
    void respond(int index) {
        if (pending_.empty()) return;
        auto f = std::move(pending_.front());
        pending_.erase(pending_.begin());
        if (f) f(index);
    }

  private:
    std::vector<std::function<void(int)>> pending_;
};

}  // namespace vocle::testing
