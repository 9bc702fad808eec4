#pragma once

#include "screens/SettingsViewModel.h"

#include <memory>
#include <vector>

#include "application/DictationApp.h"
#include "platform/events.h"
#include "platform/remote_input.h"
#include "screens/AutostartEntry.h"
#include "screens/ModeDetailViewModel.h"
#include "screens/PermissionProbe.h"
#include "screens/ShortcutManagerControl.h"
#include "ui/MainView.h"

namespace vocle::app {

// What the screens share for the life of the application; each screen's view model is made with its
// widget and dies with it.
struct ScreenServices {
    ScreenServices(DictationApp& app, LocalKeyMonitor& localKeyMonitor, Pasteboard& pasteboard,
                   std::vector<InstalledApplication> installedApplications, std::string executable);

    DictationApp& app;
    LocalKeyMonitor& localKeyMonitor;
    Pasteboard& pasteboard;
    std::vector<InstalledApplication> installedApplications;
    SystemPermissionProbe permissions;
    ShortcutManagerControl<ShortcutManager> shortcuts;
    AutostartEntry autostart;
    // Set on compositors where the user binds the shortcuts in the compositor's configuration, and on
    // desktops that run the toggle through vocle-cli (its `path`).
    SettingsViewModel::CompositorShortcuts compositorShortcuts;
    // vocle-cli by its absolute path: beside this executable, in the build tree, or on $PATH.
    std::string cliProgram;
    // The desktop's consent for keys into other windows (the RemoteDesktop portal of GNOME and KDE
    // Plasma); null where keys need none. A permission on the Home checklist and the permissions screen.
    RemoteInput* remoteInput = nullptr;
};

ui::ScreenFactory makeScreenFactory(ScreenServices& services);

}  // namespace vocle::app
