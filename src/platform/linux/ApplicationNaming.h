#pragma once

#include <optional>
#include <string>

#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/ProcessIdentity.h"
#include "platform/workspace.h"

namespace vocle {

// An application as a window names it, through the installed desktop files: the matching file's id and
// name, else `fallbackId` as both. None when nothing matches and there is no fallback. The process id
// is left to the caller.
std::optional<RunningApplication> nameApplication(const DesktopEntryIndex& index, const WindowClassHint& hint,
                                                  const std::string& fallbackId);

// The application of a process that the accessibility bus reports: its launch record, the name it
// gives itself there and its executable, matched as a window's application id, class and instance;
// then its command name. Without a desktop file it is known by its executable.
std::optional<RunningApplication> applicationOfProcess(const DesktopEntryIndex& index, int processId,
                                                       const ProcessIdentity& process,
                                                       const std::string& accessibleName);

}  // namespace vocle
