#include "screens/PermissionsViewModel.h"

namespace vocle {

PermissionsViewModel::PermissionsViewModel(MainQueue& main, PermissionProbe& permissions,
                                           UrlOpener& urlOpener, RemoteInput* remoteInput)
    : main_(main), permissions_(permissions), urlOpener_(urlOpener), remoteInput_(remoteInput) {
    if (remoteInput_) {
        remoteInputChanges_ = remoteInput_->observeState(token_.guard([this](RemoteInputState state) {
            remoteInputState.set(state);
            changed.emit();
        }));
    }
    refresh();
}

PermissionsViewModel::~PermissionsViewModel() = default;

void PermissionsViewModel::refresh() {
    microphoneAuthorized.set(permissions_.microphoneAuthorized());
    accessibilityAuthorized.set(permissions_.accessibilityTrusted(false));
    if (remoteInput_) remoteInputState.set(remoteInput_->state());
    changed.emit();
}

std::string PermissionsViewModel::footerText() const {
    const auto application = urlOpener_.settingsApplication();
    if (!application) return kFooter;
    return "You can change these later in " + *application + ".";
}

std::string PermissionsViewModel::accessibilityAlertText() const {
    const auto place = urlOpener_.settingsPlace(kAccessibilitySettingsURL);
    if (!place) return kAlertText;
    return "Turn on assistive technologies in " + *place +
           ". Vocle uses the accessibility bus to read the address of the web page you are on, so that modes "
           "can follow websites.";
}

std::string PermissionsViewModel::remoteInputDescription() const {
    switch (remoteInputState.get().value_or(RemoteInputState::notGranted)) {
        case RemoteInputState::asking:
            return kRemoteInputAsking;
        case RemoteInputState::refused:
            return kRemoteInputRefused;
        case RemoteInputState::notGranted:
        case RemoteInputState::granted:
            break;
    }
    return kRemoteInputDescription;
}

void PermissionsViewModel::enableRemoteInput() {
    if (!remoteInput_ || remoteInput_->state() == RemoteInputState::granted) return;
    remoteInput_->request();
}

void PermissionsViewModel::open(const char* url) {
    openProblem.set(std::nullopt);
    urlOpener_.openURL(url, token_.guard([this](const std::string& message) {
        openProblem.set(message);
        changed.emit();
    }));
}

void PermissionsViewModel::enableMicrophone() {
    open(kMicrophoneSettingsURL);
    scheduleRecheck();
}

void PermissionsViewModel::enableAccessibility() {
    if (!permissions_.accessibilityTrusted(true)) {
        open(kAccessibilitySettingsURL);
        alert.set(PermissionAlert{kAlertTitle, accessibilityAlertText()});
        changed.emit();
    }
    scheduleRecheck();
}

void PermissionsViewModel::dismissAlert() {
    alert.set(std::nullopt);
    changed.emit();
}

void PermissionsViewModel::scheduleRecheck() {
    recheck_.start(main_, kRecheckDelay, token_.guard([this] { refresh(); }));
}

}  // namespace vocle
