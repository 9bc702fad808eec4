// The desktop application: Qt's event loop as the main queue, the X11/PulseAudio/Qt platform services,
// the client graph, and the widgets bound to it.

#include "app/RemoteDesktopPaste.h"
#include "app/PortalHotKeys.h"
#include "app/ScreenFactory.h"
#include "app/UpdateAnnouncer.h"
#include "application/ClientGraph.h"
#include "application/DictationApp.h"
#include "desktop/PasteChain.h"
#include "foundation/Environment.h"
#include "foundation/Log.h"
#include "foundation/ProcessExit.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/linux/DisplaySession.h"
#include "platform/linux/FrontmostCrossCheck.h"
#include "platform/linux/NoBrowserScripting.h"
#include "platform/linux/PulseAudioPlayback.h"
#include "platform/linux/PulseCapture.h"
#include "platform/linux/PulseConnection.h"
#include "platform/linux/PulseCoreAudio.h"
#include "platform/linux/PulseScreenCapture.h"
#include "platform/linux/XdgUrlOpener.h"
#include "platform/wayland/WaylandDesktop.h"
#include "platform/x11/AtspiAccessibility.h"
#include "platform/x11/AtspiWorkspace.h"
#include "platform/x11/GSettingsKeybindings.h"
#include "platform/x11/KeysymTable.h"
#include "platform/x11/QtDBusControlBus.h"
#include "platform/x11/QtDBusNotifications.h"
#include "platform/x11/QtLocalKeyMonitor.h"
#include "platform/x11/QtMainQueue.h"
#include "platform/x11/QtPasteboard.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/X11Workspace.h"
#include "platform/x11/XErrorTrap.h"
#include "platform/x11/XInputKeyMonitor.h"
#include "platform/x11/XTestSyntheticKeys.h"
#include "ui/MainView.h"
#include "ui/QtAlerts.h"
#include "ui/QtIndicatorPanels.h"
#include "ui/Theme.h"
#include "ui/TrayIcon.h"

#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <unistd.h>

// Qt last: its keyword macros (emit, slots) would rewrite names in foundation/Signal.h.
#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QTimer>

#ifndef VOCLE_VERSION
#define VOCLE_VERSION "0.0.0"
#endif

using namespace vocle;
using namespace vocle::x11;

namespace {

// Stands in when the X server cannot be watched: no application is ever in front, so no mode switches.
class NoWorkspace final : public Workspace {
public:
    std::optional<RunningApplication> frontmostApplication() const override { return std::nullopt; }
    std::vector<RunningApplication> runningApplications() const override { return {}; }
    Subscription observeActivations(ActivationHandler) override { return {}; }
};

// Whether the desktop portal answers on the session bus (running or activatable).
std::string portalsOffered() {
    auto* bus = QDBusConnection::sessionBus().interface();
    if (!bus) return "no session bus";
    const QString portal = "org.freedesktop.portal.Desktop";
    if (bus->isServiceRegistered(portal)) return "xdg-desktop-portal";
    const QDBusReply<QStringList> activatable = bus->call("ListActivatableNames");
    return activatable.isValid() && activatable.value().contains(portal) ? "xdg-desktop-portal (activatable)"
                                                                         : "none";
}

}  // namespace

int main(int argc, char** argv) {
    // A write to a session bus or X server that has just gone away must come back as an error that ends
    // us cleanly, not as SIGPIPE killing the process at logout.
    std::signal(SIGPIPE, SIG_IGN);
    const DisplaySession displaySession = detectDisplaySession(ProcessEnvironment());
    // On Wayland our windows stay on XWayland: the indicator is an override-redirect X window there, which
    // no compositor focuses, and the X11 grab keeps serving X windows. The user's explicit choice wins.
    if (displaySession == DisplaySession::wayland && qEnvironmentVariableIsSet("DISPLAY") &&
        !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    QApplication qtApp(argc, argv);
    QApplication::setApplicationName("Vocle");
    QApplication::setApplicationVersion(VOCLE_VERSION);
    QApplication::setDesktopFileName("vocle");
    // The window may close; dictation, shortcuts, tray and indicator keep running until Quit.
    QApplication::setQuitOnLastWindowClosed(false);
    setLogSink(std::make_shared<StdoutLogSink>());
    // After Qt's X connection is open: its I/O error handler would call exit() from any thread.
    XErrorTrap::endProcessOnConnectionLoss();

    // One instance per session: a second launch brings the first one's window forward and leaves.
    QtDBusControlBus controlBus;
    DictationApp* running = nullptr;
    ControlHandlers forward;
    forward.toggle = [&] { if (running) running->controlHandlers().toggle(); };
    forward.cancel = [&] { if (running) running->controlHandlers().cancel(); };
    forward.activate = [&] { if (running) running->controlHandlers().activate(); };
    forward.state = [&]() -> std::string { return running ? running->controlHandlers().state() : kControlStateIdle; };
    const auto published = controlBus.publish(forward);
    if (published == ControlBus::PublishResult::alreadyRunning) {
        const auto result = controlBus.callRunningInstance(ControlMethod::activate);
        if (result.ok()) {
            log("Vocle is already running; brought its window to the front");
            return 0;
        }
        std::cerr << "vocle: another instance owns " << kControlBusName << " but did not answer: " << result.message
                  << "\n";
        return 1;
    }
    if (published == ControlBus::PublishResult::unavailable)
        log("Session bus unavailable: vocle-cli toggle and single-instance hand-over are off");

    ui::Theme::apply(qtApp);
    QApplication::setWindowIcon(ui::Theme::originalIcon("vocle"));

    SystemClock clock;
    QtMainQueue mainQueue(clock);
    ProcessEnvironment env;

    PulseConnection pulse("Vocle");
    if (auto error = pulse.ensureConnected()) log("❌ Sound server not reachable: ", error->description);
    PulseCapture capture(pulse, mainQueue);
    PulseScreenCapture screenCapture(pulse, mainQueue);
    PulseCoreAudio coreAudio(pulse);
    PulseAudioPlayback playback(pulse);
    ui::QtAlerts alerts(mainQueue);
    XdgUrlOpener urlOpener(mainQueue, env);
    auto desktopEntries = std::make_shared<const DesktopEntryIndex>(DesktopEntryIndex::fromEnvironment(env));
    // On Wayland the X server is XWayland: it sees only its own windows, so it tells whether an X window
    // has the focus while the compositor's protocols serve the rest.
    std::unique_ptr<X11Workspace> x11Workspace =
        qEnvironmentVariableIsSet("DISPLAY") ? X11Workspace::open(mainQueue, desktopEntries) : nullptr;
    std::unique_ptr<wayland::WaylandDesktop> waylandDesktop;
    if (displaySession == DisplaySession::wayland) {
        waylandDesktop = wayland::WaylandDesktop::open(mainQueue, desktopEntries);
        log("Desktop session: wayland (",
            waylandDesktop ? waylandDesktop->summary() : std::string("the compositor did not answer"),
            "; portals: ", portalsOffered(), ")");
    }
    // On Wayland the accessibility bus names the focused application where the compositor lists no
    // windows (GNOME, Plasma), and cross-checks the list where it does.
    std::unique_ptr<AtspiWorkspace> atspiWorkspace;
    if (displaySession == DisplaySession::wayland)
        atspiWorkspace = std::make_unique<AtspiWorkspace>(mainQueue, desktopEntries, getpid());
    std::unique_ptr<FrontmostCrossCheck> frontmostCheck;
    NoWorkspace noWorkspace;
    Workspace* workspace = &noWorkspace;
    if (waylandDesktop && waylandDesktop->workspace()) {
        workspace = waylandDesktop->workspace();
        frontmostCheck = std::make_unique<FrontmostCrossCheck>(mainQueue, *workspace, *atspiWorkspace);
    } else if (atspiWorkspace)
        workspace = atspiWorkspace.get();
    else if (x11Workspace && displaySession != DisplaySession::wayland)
        workspace = x11Workspace.get();
    NoBrowserScripting browserScripting;
    AtspiAccessibility accessibility;
    auto grabbed = std::make_shared<GrabbedCombinations>();
    X11HotKeys hotKeys(mainQueue, grabbed);
    XInputKeyMonitor keyMonitor(mainQueue, grabbed);
    // Wayland: the desktop's GlobalShortcuts portal where it has one; the X server sees only XWayland's windows.
    std::unique_ptr<app::PortalHotKeys> portalHotKeys;
    std::optional<app::XWaylandKeyMonitor> xwaylandKeys;
    if (displaySession == DisplaySession::wayland) {
        portalHotKeys = app::PortalHotKeys::open(mainQueue);
        xwaylandKeys.emplace(keyMonitor);
    }
    QtLocalKeyMonitor localKeyMonitor;
    XTestSyntheticKeys xtestKeys;
    QtPasteboard qtPasteboard;
    Pasteboard& pasteboard = waylandDesktop && waylandDesktop->clipboard()
                                 ? static_cast<Pasteboard&>(*waylandDesktop->clipboard())
                                 : qtPasteboard;
    std::unique_ptr<PasteChain> pasteChain;
    if (displaySession == DisplaySession::wayland) {
        wayland::WaylandWorkspace* toplevels = waylandDesktop ? waylandDesktop->workspace() : nullptr;
        pasteChain = std::make_unique<PasteChain>(
            waylandDesktop ? waylandDesktop->virtualKeyboard() : nullptr, x11Workspace ? &xtestKeys : nullptr,
            [&] { return x11Workspace && x11Workspace->frontmostApplication().has_value(); },
            [toplevels, atspi = atspiWorkspace.get()]() -> std::optional<std::string> {
                if (toplevels) return toplevels->focusedAppId();
                auto front = atspi ? atspi->frontmostApplication() : std::nullopt;
                return front ? front->bundleIdentifier : std::nullopt;
            });
    }
    // GNOME and KDE Plasma offer no virtual keyboard: keys go through their RemoteDesktop portal.
    std::unique_ptr<app::RemoteDesktopPaste> remoteDesktop;
    if (pasteChain && !(waylandDesktop && waylandDesktop->virtualKeyboard()))
        remoteDesktop = std::make_unique<app::RemoteDesktopPaste>(mainQueue, DataFolder::fromEnvironment(env), clock,
                                                                  *pasteChain);
    SyntheticKeys& syntheticKeys = pasteChain ? static_cast<SyntheticKeys&>(*pasteChain) : xtestKeys;
    ui::QtIndicatorPanels indicatorPanels;
    QtDBusNotifications desktopNotifications;

    ThreadQueues threads;
    ClientOptions options;
    options.appVersion = VOCLE_VERSION;
    ClientGraph graph(
        PlatformServices{mainQueue, env, capture, screenCapture, coreAudio, playback, alerts, urlOpener,
                         *workspace, browserScripting, accessibility,
                         portalHotKeys ? portalHotKeys->hotKeys() : static_cast<HotKeys&>(hotKeys),
                         xwaylandKeys ? static_cast<KeyMonitor&>(*xwaylandKeys) : keyMonitor, localKeyMonitor,
                         syntheticKeys, pasteboard, indicatorPanels, nullptr, &desktopNotifications},
        threads.refs(), options);

    std::unique_ptr<ui::MainView> mainWindow;
    std::unique_ptr<ui::TrayIcon> tray;
    auto raiseMainWindow = [&] {
        if (!mainWindow) return;
        mainWindow->show();
        mainWindow->setWindowState((mainWindow->windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
        mainWindow->raise();
        mainWindow->activateWindow();
    };
    DictationApp app(graph, DictationApp::WindowHooks{
                                [&] {
                                    if (mainWindow && mainWindow->isVisible()) raiseMainWindow();
                                },
                                raiseMainWindow, [&] { QApplication::quit(); },
                                [&] { return accessibility.isProcessTrusted(true); }});
    running = &app;

    tray = std::make_unique<ui::TrayIcon>(app.statusItem());
    std::vector<InstalledApplication> installed;
    for (const auto& entry : desktopEntries->installedApplications())
        installed.push_back({entry.id, entry.name});
    app::ScreenServices screens(app, localKeyMonitor, pasteboard, std::move(installed),
                                QCoreApplication::applicationFilePath().toStdString());
    if (waylandDesktop)
        screens.compositorShortcuts = {compositorFamily(waylandDesktop->connection().compositor()),
                                       [](uint16_t keyCode) { return keysymNameForMacKeyCode(keyCode); },
                                       &pasteboard};
    // Desktops that run the toggle through vocle-cli: GNOME's custom shortcuts, or the command by hand.
    GSettingsKeybindings gnomeKeybindings;
    screens.compositorShortcuts.keysymName = [](uint16_t keyCode) { return keysymNameForMacKeyCode(keyCode); };
    screens.compositorShortcuts.pasteboard = &pasteboard;
    screens.compositorShortcuts.keybindings = &gnomeKeybindings;
    screens.compositorShortcuts.path = shortcutPathFor(displaySession == DisplaySession::wayland,
                                                       /* the global-shortcuts portal serves */ portalHotKeys != nullptr,
                                                       screens.compositorShortcuts.family,
                                                       env.get("XDG_CURRENT_DESKTOP").value_or(""));
    // The RemoteDesktop portal's grant: a permission on the Home checklist and the permissions screen.
    if (remoteDesktop) screens.remoteInput = &remoteDesktop->grant();
    mainWindow = std::make_unique<ui::MainView>(app, app::makeScreenFactory(screens),
                                                [&]() { return pasteboard.string(); });

    // The launch sequence runs once the event loop turns, then the main window appears.
    mainQueue.post([&] {
        app.applicationDidFinishLaunching();
        graph.updaterManager().setUserDriver(
            app::makeUpdateAnnouncer(urlOpener, [&] { return tray ? tray->trayIcon() : nullptr; }, VOCLE_VERSION));
        mainWindow->show();
    });

    // The session bus goes away when the session ends: leave as on a lost X server. Qt reports a lost bus
    // only through the connection's state.
    QTimer busWatch;
    if (published == ControlBus::PublishResult::published) {
        QObject::connect(&busWatch, &QTimer::timeout, [] {
            if (QDBusConnection::sessionBus().isConnected()) return;
            logLine("❌ Lost the session bus");
            endProcessNow(1);
        });
        busWatch.start(500);
    }

    guardUnplannedExit();
    const int code = QApplication::exec();
    busWatch.stop();
    running = nullptr;
    mainWindow.reset();
    tray.reset();
    markOrderlyExit();
    return code;
}
