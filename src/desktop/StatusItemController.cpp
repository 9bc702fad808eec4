#include "desktop/StatusItemController.h"

#include "foundation/Log.h"

namespace vocle {

StatusItemController::StatusItemController(Observable<bool>& isRecording, Hooks hooks)
    : recordingFlag_(isRecording), hooks_(std::move(hooks)), isRecording_(isRecording.get()) {
    rebuild();
}

void StatusItemController::bind() {
    cancellables_.push_back(recordingFlag_.subscribe([this](const bool& recording) { updateForRecording(recording); }));
    updateForRecording(recordingFlag_.get());
}

void StatusItemController::refreshShortcuts() {
    rebuild();
    changed.emit();
}

void StatusItemController::updateForRecording(bool recording) {
    isRecording_ = recording;
    rebuild();
    changed.emit();
}

void StatusItemController::rebuild() {
    auto text = [](const std::function<std::string()>& f) { return f ? f() : std::string(); };
    menu_ = {
        {false, Action::toggleRecording, isRecording_ ? "Stop Recording" : "Toggle Recording",
         text(hooks_.toggleShortcutText), true},
        {false, Action::cancelRecording, "Cancel Recording", text(hooks_.cancelShortcutText), isRecording_},
        {true, {}, {}, {}, true},
        {false, Action::showPermissions, "Show Permissions", {}, true},
        {false, Action::checkForUpdates, "Check for Updates…", {}, true},
        {true, {}, {}, {}, true},
        {false, Action::openMainWindow, "Open Main Window", {}, true},
        {false, Action::signOut, "Sign Out", {}, true},
        {false, Action::quit, "Quit Vocle", {}, true},
    };
}

void StatusItemController::trigger(Action action) {
    auto call = [](const std::function<void()>& f) {
        if (f) f();
    };
    switch (action) {
        case Action::toggleRecording:
            log("MenuBar toggle recording pressed");
            call(hooks_.toggleRecording);
            break;
        case Action::cancelRecording:
            log("MenuBar cancel recording pressed");
            if (recordingFlag_.get()) call(hooks_.cancelRecording);
            break;
        case Action::showPermissions:
            call(hooks_.showPermissions);
            break;
        case Action::checkForUpdates:
            call(hooks_.checkForUpdates);
            break;
        case Action::openMainWindow:
            call(hooks_.openMainWindow);
            break;
        case Action::signOut:
            log("MenuBar sign out pressed");
            call(hooks_.signOut);
            break;
        case Action::quit:
            call(hooks_.quit);
            break;
    }
}

}  // namespace vocle
