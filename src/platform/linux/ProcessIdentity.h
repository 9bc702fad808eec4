#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace vocle {

// What the process table tells of a running process, for naming its application.
struct ProcessIdentity {
    // The desktop file the launcher started it from (GLib's launch record, for this very process and
    // not inherited from a parent; or a Flatpak's application id). Empty when unknown.
    std::string desktopId;
    // The file name of its executable ("firefox-esr"), and its command name.
    std::string executable;
    std::string command;
};

// None when the process is gone or its entry cannot be read (another user's process).
std::optional<ProcessIdentity> readProcessIdentity(int processId,
                                                   const std::filesystem::path& procRoot = "/proc");

}  // namespace vocle
