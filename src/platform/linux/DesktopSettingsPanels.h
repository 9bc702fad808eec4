#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace vocle {

// Where the settings links of the shared code lead on a Linux desktop. The links keep their stored
// form ("x-apple.systempreferences:…?Privacy_Microphone" and so on); this maps each to the running
// desktop's own panel for that matter (from $XDG_CURRENT_DESKTOP), to pavucontrol for sound where no
// desktop panel exists, or to a short text saying what to check when nothing is installed.
class DesktopSettingsPanels {
  public:
    struct Choice {
        std::vector<std::string> command;  // full path first; empty: nothing to start, show `help`
        std::string help;                  // what to check, also shown when the command fails
    };

    explicit DesktopSettingsPanels(const Environment& environment) : env_(environment) {}

    // None for a link that is not a settings link.
    std::optional<Choice> choose(const std::string& url) const;
    // The place a settings link leads to as this desktop names it ("Settings > Sound" on GNOME, "System
    // Settings > Accessibility" on KDE Plasma); none on a desktop we do not know.
    std::optional<std::string> placeName(const std::string& url) const;
    // The desktop's settings application ("Settings", "System Settings"); none on one we do not know.
    std::optional<std::string> applicationName() const;

    static constexpr const char* kSoundInputHelp =
        "Open your desktop's sound settings and check that a microphone is connected, chosen as the input "
        "device and not muted.";
    static constexpr const char* kAccessibilityHelp =
        "Vocle reads the address of the web page you are on through the desktop's accessibility bus "
        "(AT-SPI). Turn on assistive technologies in your desktop's accessibility settings, or install the "
        "at-spi2-core package.";
    static constexpr const char* kSoundOutputHelp =
        "Vocle records the sound of other applications from the sound server's monitor of your output "
        "device. Check in your desktop's sound settings that an output device is active.";

  private:
    // The program's full path on $PATH, or empty.
    std::string locate(const std::string& program) const;
    std::string desktop() const;

    const Environment& env_;
};

}  // namespace vocle
