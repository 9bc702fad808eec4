#pragma once

#include <optional>
#include <string>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "platform/remote_input.h"
#include "platform/url_opener.h"
#include "screens/PermissionProbe.h"

namespace vocle {

struct PermissionAlert {
    std::string title;
    std::string text;
    friend bool operator==(const PermissionAlert&, const PermissionAlert&) = default;
};

// The permissions sheet: both flags are read when shown and again 1 s after an "Enable". Where keys reach
// other windows only with the desktop's consent (`remoteInput` given), that grant is a third permission,
// followed live.
class PermissionsViewModel {
  public:
    PermissionsViewModel(MainQueue& main, PermissionProbe& permissions, UrlOpener& urlOpener,
                         RemoteInput* remoteInput = nullptr);
    ~PermissionsViewModel();
    PermissionsViewModel(const PermissionsViewModel&) = delete;
    PermissionsViewModel& operator=(const PermissionsViewModel&) = delete;

    static constexpr Seconds kRecheckDelay{1.0};
    static constexpr const char* kTitle = "Required Permissions";
    static constexpr const char* kText =
        "The Dictation app needs the following permissions to work properly:";
    static constexpr const char* kFooter = "You can change these later in your desktop's settings.";
    static constexpr const char* kAlertTitle = "Accessibility Permission Required";
    static constexpr const char* kAlertText =
        "Turn on assistive technologies in your desktop's accessibility settings. Vocle uses the "
        "accessibility "
        "bus to read the address of the web page you are on, so that modes can follow websites.";
    static constexpr const char* kRemoteInputTitle = "Remote input";
    static constexpr const char* kRemoteInputDescription =
        "To paste the text into the window you dictate into";
    static constexpr const char* kRemoteInputAsking = "Answer your desktop's dialog to allow it";
    static constexpr const char* kRemoteInputRefused =
        "Not allowed: each dictation stays on the clipboard for you to paste with Ctrl+V";

    Observable<bool> microphoneAuthorized{false};
    Observable<bool> accessibilityAuthorized{false};
    // None where the desktop needs no consent for keys.
    Observable<std::optional<RemoteInputState>> remoteInputState;
    Observable<std::optional<PermissionAlert>> alert;
    // Why a settings panel did not open (or what to check where the desktop has none).
    Observable<std::optional<std::string>> openProblem;
    Signal<> changed;

    // "You can change these later in System Settings." with the running desktop's names.
    std::string footerText() const;
    std::string accessibilityAlertText() const;
    std::string remoteInputDescription() const;

    void refresh();
    void enableMicrophone();
    void enableAccessibility();
    // Asks the desktop again; its dialog answers through the observed state.
    void enableRemoteInput();
    void dismissAlert();

  private:
    void scheduleRecheck();
    void open(const char* url);

    MainQueue& main_;
    PermissionProbe& permissions_;
    UrlOpener& urlOpener_;
    RemoteInput* remoteInput_;
    Subscription remoteInputChanges_;
    Timer recheck_;
    OwnerToken token_;
};

}  // namespace vocle
