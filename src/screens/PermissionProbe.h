#pragma once

#include "platform/accessibility.h"
#include "platform/capture.h"

namespace vocle {

// The two permissions the home checklist and the permissions screen show.
class PermissionProbe {
  public:
    virtual ~PermissionProbe() = default;
    // On Linux: a capture source exists and can be opened.
    virtual bool microphoneAuthorized() = 0;
    // On Linux: the desktop's accessibility bus is reachable; with `prompt` it is asked to come up.
    virtual bool accessibilityTrusted(bool prompt) = 0;
};

class SystemPermissionProbe final : public PermissionProbe {
  public:
    SystemPermissionProbe(Capture& capture, Accessibility& accessibility)
        : capture_(capture), accessibility_(accessibility) {}

    bool microphoneAuthorized() override;
    bool accessibilityTrusted(bool prompt) override { return accessibility_.isProcessTrusted(prompt); }

  private:
    Capture& capture_;
    Accessibility& accessibility_;
};

// Settings links, kept in their stored form; the desktop's URL opener maps them to its own panels.
inline constexpr const char* kMicrophoneSettingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";
inline constexpr const char* kAccessibilitySettingsURL =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

}  // namespace vocle
