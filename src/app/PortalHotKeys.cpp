#include "app/PortalHotKeys.h"

#include "foundation/Log.h"
#include "platform/x11/KeysymTable.h"

// Qt last: its keyword macros would rewrite names in foundation/Signal.h.
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace vocle::app {

namespace {

// The interface's version property, read once at start; 0 when absent. Activating the portal service
// may take a moment; a portal that hangs costs the start five seconds, once.
uint32_t globalShortcutsVersion() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return 0;
    QDBusMessage get = QDBusMessage::createMethodCall(portal::kPortalService, portal::kPortalPath,
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << QString(portal::GlobalShortcutsPortal::kInterface) << QString("version");
    const QDBusMessage reply = bus.call(get, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return 0;
    return reply.arguments().first().value<QDBusVariant>().variant().toUInt();
}

// GNOME Shell's version, when a shell answers on the session bus.
std::optional<std::string> gnomeShellVersion() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return std::nullopt;
    QDBusMessage get = QDBusMessage::createMethodCall("org.gnome.Shell", "/org/gnome/Shell",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << QString("org.gnome.Shell") << QString("ShellVersion");
    const QDBusMessage reply = bus.call(get, QDBus::Block, 2000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return std::nullopt;
    return reply.arguments().first().value<QDBusVariant>().variant().toString().toStdString();
}

}  // namespace

PortalHotKeys::PortalHotKeys(MainQueue& main, uint32_t version)
    : version_(version),
      bus_(main),
      portal_(bus_, [](uint16_t keyCode) { return x11::keysymNameForMacKeyCode(keyCode); },
              {{1, {"toggle", "Start or stop dictation"}}, {2, {"cancel", "Cancel the dictation"}}}) {}

std::unique_ptr<PortalHotKeys> PortalHotKeys::open(MainQueue& main) {
    const uint32_t version = globalShortcutsVersion();
    if (version == 0) {
        logLine("Global shortcuts: the desktop offers no GlobalShortcuts portal; XWayland windows only");
        return nullptr;
    }
    const std::string desktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP").toStdString();
    if (const auto shell = gnomeShellVersion();
        !portal::GlobalShortcutsPortal::desktopServes(desktop, shell)) {
        log("Global shortcuts: the GlobalShortcuts portal is not GNOME's own before GNOME 48 (GNOME Shell ",
            shell.value_or("not running"), "); XWayland windows only");
        return nullptr;
    }
    auto hotKeys = std::make_unique<PortalHotKeys>(main, version);
    log("Global shortcuts: through the desktop portal (GlobalShortcuts version ", version, ")");
    return hotKeys;
}

}  // namespace vocle::app
