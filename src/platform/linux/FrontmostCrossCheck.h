#pragma once

#include <optional>
#include <string>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/workspace.h"

namespace vocle {

// Two views of one desktop's front (the compositor's window list and the accessibility bus), compared a
// moment after either reports an activation; a disagreement is logged once, so a user's report shows
// which source was wrong. Lives on the main queue.
class FrontmostCrossCheck {
  public:
    FrontmostCrossCheck(MainQueue& main, Workspace& compositor, Workspace& accessibility);
    ~FrontmostCrossCheck();

    // Both sources report within this of each other.
    static constexpr double kSettleSeconds = 1.0;

  private:
    void schedule();
    void compare();

    MainQueue& main_;
    Workspace& compositor_;
    Workspace& accessibility_;
    Subscription compositorSubscription_;
    Subscription accessibilitySubscription_;
    TimerHandle pending_;
    std::optional<std::string> lastReported_;
    OwnerToken owner_;
};

}  // namespace vocle
