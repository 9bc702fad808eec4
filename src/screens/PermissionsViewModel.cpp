#include "screens/PermissionsViewModel.h"

namespace vocle {

PermissionsViewModel::PermissionsViewModel(MainQueue& main, PermissionProbe& permissions, UrlOpener& urlOpener)
    : main_(main), permissions_(permissions), urlOpener_(urlOpener) {
    refresh();
}

PermissionsViewModel::~PermissionsViewModel() = default;

void PermissionsViewModel::refresh() {
    microphoneAuthorized.set(permissions_.microphoneAuthorized());
    accessibilityAuthorized.set(permissions_.accessibilityTrusted(false));
    changed.emit();
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
        alert.set(PermissionAlert{kAlertTitle, kAlertText});
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
