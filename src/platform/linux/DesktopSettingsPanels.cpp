#include "platform/linux/DesktopSettingsPanels.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace vocle {

namespace {

enum class Matter { soundInput, soundOutput, accessibility };

std::optional<Matter> matterOf(const std::string& url) {
    if (url.rfind("x-apple.systempreferences:", 0) != 0) return std::nullopt;
    if (url.find("Privacy_Microphone") != std::string::npos) return Matter::soundInput;
    if (url.find("Privacy_ScreenCapture") != std::string::npos) return Matter::soundOutput;
    if (url.find("Privacy_Accessibility") != std::string::npos) return Matter::accessibility;
    return Matter::soundInput;  // an unknown pane of the same scheme: the sound settings are the likeliest
}

std::string uppercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

using Command = std::vector<std::string>;

// The desktop's own panel for a matter; empty when it has none.
Command panelOf(const std::string& desktop, Matter matter) {
    const bool sound = matter != Matter::accessibility;
    auto is = [&](const char* name) {
        std::stringstream parts(desktop);
        std::string part;
        while (std::getline(parts, part, ':'))
            if (part == name) return true;
        return false;
    };
    if (is("X-CINNAMON"))
        return sound ? Command{"cinnamon-settings", "sound"}
                     : Command{"cinnamon-settings", "universal-access"};
    if (is("MATE")) return sound ? Command{"mate-volume-control"} : Command{"mate-at-properties"};
    if (is("KDE"))
        return sound ? Command{"systemsettings", "kcm_pulseaudio"} : Command{"systemsettings", "kcm_access"};
    if (is("XFCE")) return sound ? Command{} : Command{"xfce4-accessibility-settings"};
    if (is("GNOME") || is("UNITY") || is("BUDGIE")) {
        return sound ? Command{"gnome-control-center", "sound"}
                     : Command{"gnome-control-center", "universal-access"};
    }
    return {};
}

}  // namespace

std::string DesktopSettingsPanels::desktop() const {
    return uppercase(env_.get("XDG_CURRENT_DESKTOP").value_or(""));
}

std::string DesktopSettingsPanels::locate(const std::string& program) const {
    std::stringstream path(env_.get("PATH").value_or("/usr/local/bin:/usr/bin:/bin"));
    std::string folder;
    while (std::getline(path, folder, ':')) {
        if (folder.empty()) continue;
        const std::string candidate = folder + "/" + program;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

std::optional<DesktopSettingsPanels::Choice> DesktopSettingsPanels::choose(const std::string& url) const {
    const auto matter = matterOf(url);
    if (!matter) return std::nullopt;
    Choice choice;
    choice.help = *matter == Matter::soundInput    ? kSoundInputHelp
                  : *matter == Matter::soundOutput ? kSoundOutputHelp
                                                   : kAccessibilityHelp;
    Command panel = panelOf(desktop(), *matter);
    if (std::string found = panel.empty() ? "" : locate(panel.front()); !found.empty()) {
        panel.front() = found;
        choice.command = std::move(panel);
    } else if (std::string mixer = *matter == Matter::accessibility ? "" : locate("pavucontrol");
               !mixer.empty()) {
        // Its "Input Devices" and "Output Devices" tabs.
        choice.command = {mixer, *matter == Matter::soundInput ? "--tab=4" : "--tab=3"};
    }
    return choice;
}

}  // namespace vocle
