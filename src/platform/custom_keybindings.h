#pragma once

#include <optional>
#include <string>

namespace vocle {

// A key the desktop itself binds to a command (GNOME's custom keyboard shortcuts).
struct DesktopKeybinding {
    std::string name;     // as the desktop's keyboard settings list it
    std::string command;  // what the desktop runs
    std::string binding;  // accelerator syntax: "<Control><Alt>space"
    friend bool operator==(const DesktopKeybinding&, const DesktopKeybinding&) = default;
};

// The desktop's list of custom keyboard shortcuts, holding at most one entry of ours.
class CustomKeybindings {
  public:
    virtual ~CustomKeybindings() = default;
    // Why the list cannot be written here (its settings schema is not installed); none when it can.
    virtual std::optional<std::string> unavailableReason() const = 0;
    // Our entry, when the list holds it.
    virtual std::optional<DesktopKeybinding> find() const = 0;
    // Adds our entry, or rewrites it where the list holds it already; the user's other entries stay as
    // they are. An error for the user when it could not be written.
    virtual std::optional<std::string> write(const DesktopKeybinding& binding) = 0;
};

}  // namespace vocle
