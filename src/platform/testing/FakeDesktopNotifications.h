#pragma once

#include <functional>
#include <vector>

#include "platform/notifications.h"

namespace vocle::testing {

// Records every notice; the test plays the user with choose().
class FakeDesktopNotifications final : public DesktopNotifications {
  public:
    std::vector<DesktopNotice> shown;

    void notify(const DesktopNotice& notice, std::function<void(int)> onAction) override {
        shown.push_back(notice);
        callbacks_.push_back(std::move(onAction));
    }
    // Picks action `index` on the notice shown `which`-th (0 = first).
    void choose(size_t which, int index) {
        if (which < callbacks_.size() && callbacks_[which]) callbacks_[which](index);
    }

  private:
    std::vector<std::function<void(int)>> callbacks_;
};

}  // namespace vocle::testing
