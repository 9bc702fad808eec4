#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/DesktopSession.h"

// Helpers for a DesktopSession of Server::kde: a headless Plasma compositor (a copy of kwin_wayland run
// `--virtual --no-lockscreen`, with XWayland; kglobalaccel runs inside it) and, on the same session bus,
// the KDE portal backend and xdg-desktop-portal with XDG_CURRENT_DESKTOP=KDE.
// The packaged kwin_wayland carries file capabilities that unprivileged containers refuse to execute; the
// copy has none and runs as the test's own user. The session's children log to its workDir().
namespace vocle::testing {

class PortalTestClient;

// The KDE portal backend's program; empty when it is not installed.
std::filesystem::path kdePortalBackend();

// Lets `executable` (an absolute path) bind KWin's restricted Wayland globals (e.g.
// org_kde_plasma_window_management, org_kde_kwin_fake_input) and call its restricted D-Bus interfaces (e.g.
// org.kde.KWin.ScreenShot2), as an installed application's desktop entry does on Plasma: KWin looks the
// client's program up among the desktop entries and reads X-KDE-Wayland-Interfaces and
// X-KDE-DBUS-Restricted-Interfaces.
void grantKWinInterfaces(const DesktopSession& session, const std::filesystem::path& executable,
                         const std::vector<std::string>& waylandInterfaces,
                         const std::vector<std::string>& dbusInterfaces = {});

// Captures the screen through KWin's screenshot service into a PNG file at `png` (ImageMagick converts the
// raw pixels). Grants this test program the service first. False with `error` when it failed.
bool captureScreen(DesktopSession& session, const std::filesystem::path& png, std::string* error = nullptr);

// Grants host applications (`appId` empty) remote control ahead of time, the way Plasma's portal backend
// keeps it for sessions without anyone at the screen: "yes" under kde-authorized / remote-desktop in the
// portals' permission store. Plasma 5.27 asks nothing for keyboard-only sessions; later versions show a
// dialog unless this grant exists. Throws when the permission store refuses.
void allowRemoteControl(PortalTestClient& client, const std::string& appId = "");

// The global interfaces the session's compositor offers to an ordinary client (this process).
std::vector<std::string> compositorGlobals();

}  // namespace vocle::testing
