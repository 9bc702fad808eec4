#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/Environment.h"

namespace vocle {

// Compositors without a global-shortcut service: the user binds the key in the compositor's own
// configuration, and the binding runs vocle-cli.
enum class CompositorFamily { sway, hyprland, river, other };

// From the compositor's program name ("sway", "Hyprland", "river").
CompositorFamily compositorFamily(const std::string& program);

// How the running desktop gets Vocle's shortcuts to it.
enum class ShortcutPath {
    own,              // Vocle binds the keys itself (an X11 grab)
    portal,           // the desktop's global-shortcuts portal
    compositor,       // lines in the compositor's configuration (sway, Hyprland, river)
    gnomeKeybinding,  // GNOME without the portal: a custom keyboard shortcut running vocle-cli
    byHand,           // any other desktop: the user binds the command in its keyboard settings
};

// X11 sessions grab the keys; on Wayland the portal wins where it binds, then the compositor's own
// configuration, then GNOME's custom shortcuts (`currentDesktop`: $XDG_CURRENT_DESKTOP), else by hand.
ShortcutPath shortcutPathFor(bool wayland, bool globalShortcutsPortal, CompositorFamily family,
                             const std::string& currentDesktop);

// The configuration line that runs `command` on the key (an XKB keysym name such as "space") with the
// Shortcut modifier bits, in the compositor's own syntax:
//   sway:     bindsym Mod1+space exec vocle-cli toggle
//   Hyprland: bind = ALT, space, exec, vocle-cli toggle
//   river:    riverctl map normal Alt space spawn 'vocle-cli toggle'
// None for other compositors.
std::optional<std::string> compositorBindingLine(CompositorFamily family, uint64_t modifiers,
                                                 const std::string& keysymName, const std::string& command);

// Where that line goes, for the text beside it.
std::string compositorConfigurationPlace(CompositorFamily family);

// The key with the Shortcut modifier bits in GTK accelerator syntax, as GNOME's keyboard settings store
// it: "<Control><Alt>space".
std::string gtkAccelerator(uint64_t modifiers, const std::string& keysymName);

// Where vocle-cli is for the vocle at `executable`: beside it (installed), in the build tree (app/ and
// tools/vocle-cli/), or on $PATH; plain "vocle-cli" when it is nowhere to be found.
std::string locateVocleCli(const std::string& executable, const Environment& environment);

// `program` and its argument as one command line for a desktop that splits it the way a shell does.
std::string shellCommand(const std::string& program, const std::string& argument);

}  // namespace vocle
