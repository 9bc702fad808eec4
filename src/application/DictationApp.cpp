#include "application/DictationApp.h"

#include "desktop/KeyCaps.h"

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

DictationApp::DictationApp(ClientGraph& graph, WindowHooks hooks) : graph_(graph), hooks_(std::move(hooks)) {
    StatusItemController::Hooks h;
    h.toggleRecording = [this] { appState().toggleRecording(); };
    h.cancelRecording = [this] { appState().cancelRecording(); };
    h.signOut = [this] { appState().signOut(); };
    h.retryFailedDictations = [this] { graph_.dictationRetry->retryAll(); };
    h.showPermissions = [this] {
        if (hooks_.activateApplication) hooks_.activateApplication();
        graph_.notifications.post(Notifications::showPermissions);
    };
    h.checkForUpdates = [this] { graph_.updaterManager().checkForUpdates(); };
    h.openMainWindow = [this] {
        if (hooks_.openMainWindow) hooks_.openMainWindow();
    };
    h.quit = [this] {
        if (hooks_.quit) hooks_.quit();
    };
    h.toggleShortcutText = [this] { return shortcutText(graph_.shortcuts->currentShortcut); };
    h.cancelShortcutText = [this] { return shortcutText(graph_.shortcuts->cancelShortcut); };
    statusItem_ = std::make_unique<StatusItemController>(appState().isRecording, std::move(h));
    failedDictations_ = graph_.dictationRetry->offeredCount.subscribe(
        [this](const size_t& count) { statusItem_->setFailedDictations(count); });
    statusItem_->setFailedDictations(graph_.dictationRetry->offeredCount.get());

    pickerRequestObserver_ = graph_.shortcutPickerRequested.subscribe(token_.guard([this](bool toggle) {
        pendingPicker_ = toggle;
        appState().selectedTab.set(Tab::settings);
        if (hooks_.openMainWindow) hooks_.openMainWindow();
        shortcutPickerRequested.emit();
    }));
}

DictationApp::~DictationApp() {
    pickerRequestObserver_.reset();
    // The shortcut handlers point at this object.
    graph_.shortcuts->toggleRecordingHandler = [] {};
    graph_.shortcuts->cancelRecordingHandler = [] {};
}

std::string DictationApp::shortcutText(const Shortcut& shortcut) {
    return joinKeyCaps(ShortcutManager::displayParts(shortcut.keyCode, shortcut.modifiers));
}

void DictationApp::applicationDidFinishLaunching() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("Application did finish launching");
    graph_.updaterManager();
    log("UpdaterManager initialized for automatic updates");
    log("Setting up keyboard monitors...");
    log("Keyboard shortcut monitoring delegated to ShortcutManager");
    checkAccessibility();
    // The permissions sheet opens from anywhere (tray, screens) through this notification.
    showPermissionsObserver_ = graph_.notifications.addObserver(
        Notifications::showPermissions,
        token_.guard([this](const Notification&) {
            showPermissionsWindow.set(true);
            if (hooks_.activateApplication) hooks_.activateApplication();
        }),
        &graph_.mainQueue());
}

void DictationApp::checkAccessibility() {
    const bool trusted = graph_.services.accessibility.isProcessTrusted(true);
    if (trusted) {
        log("Accessibility permissions granted");
        return;
    }
    log("WARNING: Accessibility permissions not granted. Global shortcuts won't work.");
    graph_.mainQueue().post(token_.guard([this] { showAccessibilityAlert(); }));
}

void DictationApp::showAccessibilityAlert() {
    AlertRequest request;
    request.title = "Accessibility Is Off";
    // The desktop's own name for the place where it knows one ("Settings > Accessibility").
    const auto place = graph_.services.urlOpener.settingsPlace(kAccessibilitySettingsURL);
    request.text =
        "Vocle uses the desktop's accessibility bus to see which website you are on, so that modes can "
        "follow websites. Turn on assistive technologies in " +
        place.value_or("your desktop's accessibility settings") + ".";
    request.style = AlertStyle::informational;
    request.buttons = {"Turn On", "Cancel"};
    graph_.services.alerts.show(request, token_.guard([this](int response) {
        if (response != 0) return;
        // Where the desktop lets us, switch the accessibility bus on directly; otherwise open its settings.
        if (hooks_.enableAccessibility && hooks_.enableAccessibility()) {
            log("Accessibility enabled on the session bus");
            return;
        }
        graph_.services.urlOpener.openURL(kAccessibilitySettingsURL,
                                          token_.guard([this](const std::string& message) {
                                              AlertRequest problem;
                                              problem.title = "Accessibility settings did not open";
                                              problem.text = message;
                                              problem.style = AlertStyle::warning;
                                              problem.buttons = {"OK"};
                                              graph_.services.alerts.show(problem, [](int) {});
                                          }));
    }));
}

void DictationApp::mainViewAppeared() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("MainView appeared");
    graph_.indicator->setup(appState().isRecording, appState().isProcessing);
    graph_.livePreview->setup(appState().isRecording, appState().audioRecordingService().partialText);
    if (!statusItemBound_) {
        statusItemBound_ = true;
        statusItem_->bind();
    }
    notificationObserver_.reset();
    notificationObserver_ = graph_.notifications.addObserver(
        Notifications::toggleRecording,
        token_.guard([this](const Notification&) {
            log("Received toggleRecording notification in global observer");
            appState().toggleRecording();
        }),
        &graph_.mainQueue());
    registerAppState();
    graph_.shortcuts->toggleRecordingHandler = token_.guard([this] { appState().toggleRecording(); });
    graph_.shortcuts->cancelRecordingHandler = token_.guard([this] {
        if (appState().isRecording.get()) appState().cancelRecording();
    });
}

void DictationApp::registerAppState() {
    log("AppDelegate registered app state toggle handler");
}

void DictationApp::mainViewDisappeared() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("MainView disappeared but keeping notification observer active");
}

void DictationApp::menuToggleRecording() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("Menu command: Toggle Recording");
    appState().toggleRecording();
}

void DictationApp::menuCancelRecording() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("Menu command: Cancel Recording");
    if (appState().isRecording.get()) appState().cancelRecording();
}

bool DictationApp::canCancelRecording() const { return graph_.appState->isRecording.get(); }

void DictationApp::menuShowPermissions() { showPermissionsWindow.set(true); }

void DictationApp::menuCheckForUpdates() { graph_.updaterManager().checkForUpdates(); }

void DictationApp::menuSignOut() {
    VOCLE_ASSERT_MAIN_QUEUE(graph_.mainQueue());
    log("Menu command: Sign Out");
    appState().signOut();
}

ControlHandlers DictationApp::controlHandlers() {
    ControlHandlers handlers;
    handlers.toggle = token_.guard([this] { appState().toggleRecording(); });
    handlers.cancel = token_.guard([this] {
        if (appState().isRecording.get()) appState().cancelRecording();
    });
    handlers.activate = token_.guard([this] {
        if (hooks_.openMainWindow) hooks_.openMainWindow();
    });
    handlers.state = [this]() -> std::string {
        if (appState().isRecording.get()) return kControlStateRecording;
        if (appState().isProcessing.get()) return kControlStateProcessing;
        return kControlStateIdle;
    };
    return handlers;
}

}  // namespace vocle
