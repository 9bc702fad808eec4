#pragma once

#include <optional>
#include <vector>

#include "core/Mode.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"

namespace vocle {

// The modes as the main window shows them: a mirror of the mode manager's four published values,
// kept in step by the application state.
class ModesViewModel {
  public:
    explicit ModesViewModel(ModeManager& manager);
    ModesViewModel(const ModesViewModel&) = delete;
    ModesViewModel& operator=(const ModesViewModel&) = delete;

    Observable<std::vector<Mode>> modes;
    Observable<std::optional<Mode>> selectedMode;
    Observable<bool> isEditingMode{false};
    Observable<std::optional<Mode>> activeMode;
    ModeManager& modeManager;

    // Fires after any of the four values changed; views redraw on it.
    Signal<> changed;

  private:
    std::vector<Subscription> own_;
};

}  // namespace vocle
