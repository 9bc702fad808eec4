#pragma once

#include <vector>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
#include "modes/ModesViewModel.h"

namespace vocle {

// Keeps the modes screen's view model equal to the mode manager, and forwards the view model's changes
// so that views observing the application state redraw. Main queue only.
class ModesMirror {
public:
    ModesMirror(MainQueue& mainQueue, ModeManager& manager, ModesViewModel& viewModel, Signal<>& changed);
    void start();

private:
    MainQueue& mainQueue_;
    ModeManager& manager_;
    ModesViewModel& viewModel_;
    Signal<>& changed_;
    std::vector<Subscription> subscriptions_;
    OwnerToken token_;
};

}  // namespace vocle
