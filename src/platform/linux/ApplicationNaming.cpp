#include "platform/linux/ApplicationNaming.h"

namespace vocle {

std::optional<RunningApplication> nameApplication(const DesktopEntryIndex& index, const WindowClassHint& hint,
                                                  const std::string& fallbackId) {
    RunningApplication app;
    if (auto id = index.applicationIdFor(hint)) {
        app.bundleIdentifier = *id;
        app.localizedName = index.name(*id);
    } else if (!fallbackId.empty()) {
        app.bundleIdentifier = fallbackId;
        app.localizedName = fallbackId;
    } else {
        return std::nullopt;
    }
    return app;
}

std::optional<RunningApplication> applicationOfProcess(const DesktopEntryIndex& index, int processId,
                                                       const ProcessIdentity& process,
                                                       const std::string& accessibleName) {
    const std::string fallback = !process.executable.empty() ? process.executable : process.command;
    auto app =
        nameApplication(index, WindowClassHint{process.desktopId, process.executable, accessibleName}, {});
    // The command name is the executable's, cut to 15 characters, or what a script set for itself.
    if (!app && !process.command.empty())
        app = nameApplication(index, WindowClassHint{{}, process.command, {}}, {});
    if (!app) {
        app = nameApplication(index, WindowClassHint{}, fallback.empty() ? accessibleName : fallback);
        if (app && !accessibleName.empty()) app->localizedName = accessibleName;
    }
    if (app) app->processIdentifier = processId;
    return app;
}

}  // namespace vocle
