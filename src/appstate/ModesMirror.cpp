#include "appstate/ModesMirror.h"

#include "foundation/Log.h"

namespace vocle {

ModesMirror::ModesMirror(MainQueue& mainQueue, ModeManager& manager, ModesViewModel& viewModel, Signal<>& changed)
    : mainQueue_(mainQueue), manager_(manager), viewModel_(viewModel), changed_(changed) {}

void ModesMirror::start() {
    auto& viewModel = viewModel_;
    MainQueue* q = &mainQueue_;
    subscriptions_.push_back(manager_.modes.subscribe(token_.guard([&viewModel](const std::vector<Mode>& modes) {
        log("AppState: ModeManager modes changed - ", modes.size(), " modes");
        viewModel.modes.set(modes);
        log("AppState: Updated ModesViewModel - now has ", viewModel.modes.get().size(), " modes");
    }), q));
    subscriptions_.push_back(manager_.selectedMode.subscribe(
        token_.guard([&viewModel](const std::optional<Mode>& mode) { viewModel.selectedMode.set(mode); }), q));
    subscriptions_.push_back(manager_.isEditingMode.subscribe(
        token_.guard([&viewModel](const bool& editing) { viewModel.isEditingMode.set(editing); }), q));
    subscriptions_.push_back(manager_.activeMode.subscribe(token_.guard([&viewModel](const std::optional<Mode>& mode) {
        if (mode) log("Active mode changed to: ", mode->name);
        viewModel.activeMode.set(mode);
    }), q));
    subscriptions_.push_back(viewModel_.changed.subscribe(token_.guard([this] { changed_.emit(); })));
}

}  // namespace vocle
