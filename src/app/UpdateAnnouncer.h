#pragma once

#include <functional>

#include "desktop/UpdaterManager.h"
#include "platform/url_opener.h"

class QSystemTrayIcon;

namespace vocle::app {

// How update results reach the user: a message box for the menu's check, a tray message for a version
// found in the background (with a message box when the desktop has no tray).
UpdaterManager::UserDriver makeUpdateAnnouncer(UrlOpener& urlOpener, std::function<QSystemTrayIcon*()> tray,
                                               std::string currentVersion);

}  // namespace vocle::app
