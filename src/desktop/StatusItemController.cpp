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
    if (failedDictations_ > 0)
        menu_.insert(menu_.begin() + 3,
                     {false, Action::retryFailedDictations, retryTitle(failedDictations_), {}, true});
}

void StatusItemController::setFailedDictations(size_t count) {
    if (count == failedDictations_) return;
    failedDictations_ = count;
    rebuild();
    changed.emit();
}

std::string StatusItemController::retryTitle(size_t count) {
    return "Retry " + std::to_string(count) + (count == 1 ? " failed dictation" : " failed dictations");
}

std::string StatusItemController::tooltip() const {
    if (failedDictations_ == 0) return kTooltip;
    return std::string(kTooltip) + " — " + std::to_string(failedDictations_) +
           (failedDictations_ == 1 ? " dictation" : " dictations") + " not transcribed";
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
        case Action::retryFailedDictations:
            log("MenuBar retry failed dictations pressed");
            call(hooks_.retryFailedDictations);
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
