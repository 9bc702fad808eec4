#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "foundation/Environment.h"

namespace vocle {

// "Start Vocle at login": an XDG autostart entry, $XDG_CONFIG_HOME/autostart/vocle.desktop.
class AutostartEntry {
  public:
    // `executable` is what the entry runs (the application's own path).
    AutostartEntry(const Environment& env, std::string executable);

    // Follows the environment, so a changed $XDG_CONFIG_HOME is honoured.
    std::filesystem::path path() const;
    // Present and not switched off by the desktop ("Hidden=true", "X-GNOME-Autostart-enabled=false").
    bool isEnabled() const;
    // Writes or removes the entry; the error text when that failed.
    std::optional<std::string> setEnabled(bool enabled);

    std::string contents() const;
    // Desktop-entry quoting of one Exec argument.
    static std::string quoteExecArgument(const std::string& argument);

  private:
    const Environment& env_;
    std::string executable_;
};

}  // namespace vocle
