#include "screens/CompositorBinding.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <sstream>
#include <vector>

#include "platform/events.h"

namespace vocle {

namespace {

struct ModifierNames {
    const char* command;
    const char* control;
    const char* option;
    const char* shift;
};

std::vector<std::string> modifierNames(uint64_t modifiers, const ModifierNames& names) {
    std::vector<std::string> out;
    if (modifiers & kModifierCommand) out.emplace_back(names.command);
    if (modifiers & kModifierControl) out.emplace_back(names.control);
    if (modifiers & kModifierOption) out.emplace_back(names.option);
    if (modifiers & kModifierShift) out.emplace_back(names.shift);
    return out;
}

std::string join(const std::vector<std::string>& parts, const std::string& separator) {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) out += (i ? separator : "") + parts[i];
    return out;
}

}  // namespace

CompositorFamily compositorFamily(const std::string& program) {
    std::string name = program;
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    if (name == "sway") return CompositorFamily::sway;
    if (name == "hyprland" || name == ".hyprland-wrapped") return CompositorFamily::hyprland;
    if (name == "river") return CompositorFamily::river;
    return CompositorFamily::other;
}

ShortcutPath shortcutPathFor(bool wayland, bool globalShortcutsPortal, CompositorFamily family,
                             const std::string& currentDesktop) {
    if (!wayland) return ShortcutPath::own;
    if (globalShortcutsPortal) return ShortcutPath::portal;
    if (family != CompositorFamily::other) return ShortcutPath::compositor;
    std::string desktops = ":" + currentDesktop + ":";
    std::transform(desktops.begin(), desktops.end(), desktops.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    if (desktops.find(":GNOME:") != std::string::npos) return ShortcutPath::gnomeKeybinding;
    return ShortcutPath::byHand;
}

std::optional<std::string> compositorBindingLine(CompositorFamily family, uint64_t modifiers,
                                                 const std::string& keysymName, const std::string& command) {
    switch (family) {
        case CompositorFamily::sway: {
            auto parts = modifierNames(modifiers, {"Mod4", "Ctrl", "Mod1", "Shift"});
            parts.push_back(keysymName);
            return "bindsym " + join(parts, "+") + " exec " + command;
        }
        case CompositorFamily::hyprland:
            return "bind = " + join(modifierNames(modifiers, {"SUPER", "CTRL", "ALT", "SHIFT"}), " ") + ", " +
                   keysymName + ", exec, " + command;
        case CompositorFamily::river: {
            const auto mods = modifierNames(modifiers, {"Super", "Control", "Alt", "Shift"});
            return "riverctl map normal " + (mods.empty() ? std::string("None") : join(mods, "+")) + " " +
                   keysymName + " spawn '" + command + "'";
        }
        case CompositorFamily::other:
            return std::nullopt;
    }
    return std::nullopt;
}

std::string compositorConfigurationPlace(CompositorFamily family) {
    switch (family) {
        case CompositorFamily::sway:
            return "~/.config/sway/config";
        case CompositorFamily::hyprland:
            return "~/.config/hypr/hyprland.conf";
        case CompositorFamily::river:
            return "~/.config/river/init";
        case CompositorFamily::other:
            return "your compositor's configuration";
    }
    return {};
}

std::string gtkAccelerator(uint64_t modifiers, const std::string& keysymName) {
    std::string out;
    for (const auto& name : modifierNames(modifiers, {"<Super>", "<Control>", "<Alt>", "<Shift>"}))
        out += name;
    return out + keysymName;
}

std::string locateVocleCli(const std::string& executable, const Environment& environment) {
    namespace fs = std::filesystem;
    auto runnable = [](const fs::path& p) {
        std::error_code error;
        const auto status = fs::status(p, error);
        return !error && fs::is_regular_file(status) &&
               (status.permissions() &
                (fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec)) != fs::perms::none;
    };
    const fs::path folder = fs::path(executable).parent_path();
    if (!folder.empty()) {
        for (const fs::path& candidate :
             {folder / "vocle-cli", folder.parent_path() / "tools" / "vocle-cli" / "vocle-cli"})
            if (runnable(candidate)) return fs::weakly_canonical(candidate).string();
    }
    std::stringstream path(environment.get("PATH").value_or("/usr/local/bin:/usr/bin:/bin"));
    std::string entry;
    while (std::getline(path, entry, ':'))
        if (fs::path(entry).is_absolute() && runnable(fs::path(entry) / "vocle-cli"))
            return (fs::path(entry) / "vocle-cli").string();
    return "vocle-cli";
}

std::string shellCommand(const std::string& program, const std::string& argument) {
    const bool plain =
        !program.empty() && program.find_first_not_of(
                                "abcdefghijklmnopqrstuvwxyz"
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+") == std::string::npos;
    if (plain) return program + " " + argument;
    std::string quoted = "'";
    for (char c : program) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "' " + argument;
}

}  // namespace vocle
