#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "application/ClientGraph.h"
#include "desktop/StatusItemController.h"
#include "foundation/Signal.h"
#include "platform/control_bus.h"

namespace vocle {

// The process entry's wiring without a toolkit: the launch sequence, the main window's appear and
// disappear hooks, the "ToggleRecording" and "ShowPermissions" entry points, the Dictation menu, the
// tray menu and the session-bus handlers. The desktop application supplies the window-system hooks.
// Main queue only.
class DictationApp {
public:
    struct WindowHooks {
        std::function<void()> activateApplication;  // bring our windows forward, ignoring other applications
        std::function<void()> openMainWindow;       // show and raise the main window (recreating it if closed)
        std::function<void()> quit;
        // Turns the desktop's accessibility bus on; false when that is not possible from here.
        std::function<bool()> enableAccessibility;
    };

    static inline const char* kAccessibilitySettingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

    DictationApp(ClientGraph& graph, WindowHooks hooks);
    ~DictationApp();
    DictationApp(const DictationApp&) = delete;
    DictationApp& operator=(const DictationApp&) = delete;

    ClientGraph& graph() { return graph_; }
    AppState& appState() { return graph_.state(); }
    StatusItemController& statusItem() { return *statusItem_; }

    // Presents the permissions sheet over the main window while true.
    Observable<bool> showPermissionsWindow{false};

    void applicationDidFinishLaunching();
    void mainViewAppeared();
    void mainViewDisappeared();

    // The main window's "Dictation" menu.
    void menuToggleRecording();
    void menuCancelRecording();
    bool canCancelRecording() const;
    void menuShowPermissions();
    void menuCheckForUpdates();
    void menuSignOut();

    // A notice about a refused shortcut asked for its picker (true: toggle). The Settings screen takes the
    // request when it shows or, if shown already, on shortcutPickerRequested.
    std::optional<bool> takeShortcutPickerRequest() { return std::exchange(pendingPicker_, std::nullopt); }
    Signal<> shortcutPickerRequested;

    // The session-bus entry points (vocle-cli toggle/cancel/status, a second launch's Activate).
    ControlHandlers controlHandlers();

    // "Ctrl+Alt+Space"-style text of a shortcut, as the tray shows it.
    static std::string shortcutText(const Shortcut& shortcut);

private:
    void registerAppState();
    void checkAccessibility();
    void showAccessibilityAlert();

    ClientGraph& graph_;
    WindowHooks hooks_;
    std::unique_ptr<StatusItemController> statusItem_;
    bool statusItemBound_ = false;
    Subscription failedDictations_;
    Subscription notificationObserver_;
    Subscription showPermissionsObserver_;
    Subscription pickerRequestObserver_;
    std::optional<bool> pendingPicker_;
    OwnerToken token_;
};

}  // namespace vocle
