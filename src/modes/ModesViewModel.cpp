#include "modes/ModesViewModel.h"

namespace vocle {

ModesViewModel::ModesViewModel(ModeManager& manager)
    : modes(manager.modes.get()),
      selectedMode(manager.selectedMode.get()),
      isEditingMode(manager.isEditingMode.get()),
      activeMode(manager.activeMode.get()),
      modeManager(manager) {
    own_.push_back(modes.subscribe([this](const auto&) { changed.emit(); }));
    own_.push_back(selectedMode.subscribe([this](const auto&) { changed.emit(); }));
    own_.push_back(isEditingMode.subscribe([this](const auto&) { changed.emit(); }));
    own_.push_back(activeMode.subscribe([this](const auto&) { changed.emit(); }));
}

}  // namespace vocle
