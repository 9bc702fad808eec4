#include "platform/linux/DesktopSettingsPanels.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
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

// Whether $XDG_CURRENT_DESKTOP (a colon-separated list) names `name`.
bool listed(const std::string& desktop, const char* name) {
    std::stringstream parts(desktop);
    std::string part;
    while (std::getline(parts, part, ':'))
        if (part == name) return true;
    return false;
}

// The desktop's own panel for a matter; empty when it has none.
Command panelOf(const std::string& desktop, Matter matter) {
    const bool sound = matter != Matter::accessibility;
    auto is = [&](const char* name) { return listed(desktop, name); };
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

namespace {

struct Names {
    const char* application;
    const char* sound;  // null: the desktop has no sound panel of its own
    const char* accessibility;
};

// The names the desktops give their settings application and panels, as shown in their own windows.
std::optional<Names> namesOf(const std::string& desktop, int kdeVersion) {
    auto is = [&](const char* name) { return listed(desktop, name); };
    if (is("X-CINNAMON")) return Names{"System Settings", "Sound", "Accessibility"};
    if (is("MATE")) return Names{"Control Center", "Sound", "Assistive Technologies"};
    // Plasma 6 renamed its "Audio" page to "Sound".
    if (is("KDE")) return Names{"System Settings", kdeVersion >= 6 ? "Sound" : "Audio", "Accessibility"};
    if (is("XFCE")) return Names{"Settings Manager", nullptr, "Accessibility"};
    // These open GNOME's settings application (see panelOf).
    if (is("GNOME") || is("UNITY") || is("BUDGIE")) return Names{"Settings", "Sound", "Accessibility"};
    return std::nullopt;
}

}  // namespace

std::optional<std::string> DesktopSettingsPanels::applicationName() const {
    const auto names = namesOf(desktop(), 0);
    if (!names) return std::nullopt;
    return std::string(names->application);
}

std::optional<std::string> DesktopSettingsPanels::placeName(const std::string& url) const {
    const auto matter = matterOf(url);
    if (!matter) return std::nullopt;
    int kdeVersion = 0;
    if (auto v = env_.get("KDE_SESSION_VERSION")) kdeVersion = std::atoi(v->c_str());
    const auto names = namesOf(desktop(), kdeVersion);
    if (!names) return std::nullopt;
    const char* panel = *matter == Matter::accessibility ? names->accessibility : names->sound;
    if (!panel) return std::nullopt;
    return std::string(names->application) + " > " + panel;
}

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
