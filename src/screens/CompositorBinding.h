#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vocle {

// Compositors without a global-shortcut service: the user binds the key in the compositor's own
// configuration, and the binding runs vocle-cli.
enum class CompositorFamily { sway, hyprland, river, other };

// From the compositor's program name ("sway", "Hyprland", "river").
CompositorFamily compositorFamily(const std::string& program);

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

}  // namespace vocle
