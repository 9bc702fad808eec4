#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "application/ServiceGraph.h"
#include "appstate/AppState.h"
#include "backend/HttpTransport.h"
#include "desktop/ClipboardManager.h"
#include "desktop/FloatingIndicatorManager.h"
#include "desktop/FloatingRecordingView.h"
#include "desktop/IndicatorPanel.h"
#include "desktop/LivePreview.h"
#include "desktop/ShortcutConflictNotice.h"
#include "desktop/ShortcutManager.h"
#include "desktop/UpdaterManager.h"
#include "foundation/Environment.h"
#include "foundation/MainQueue.h"
#include "modes/AutoModeManager.h"
#include "platform/accessibility.h"
#include "platform/alerts.h"
#include "platform/audio.h"
#include "platform/capture.h"
#include "platform/core_audio.h"
#include "platform/events.h"
#include "platform/notifications.h"
#include "platform/screen_capture.h"
#include "platform/url_opener.h"
#include "platform/workspace.h"

namespace vocle {

// The operating-system services the client runs on. Production passes the X11/PulseAudio/Qt ones,
// tests pass the fakes of platform/testing. All must outlive the graph.
struct PlatformServices {
    MainQueue& mainQueue;
    const Environment& environment;
    Capture& capture;
    ScreenCapture& screenCapture;
    CoreAudio& coreAudio;
    AudioPlayback& playback;
    Alerts& alerts;
    UrlOpener& urlOpener;
    Workspace& workspace;
    BrowserScripting& browserScripting;
    Accessibility& accessibility;
    HotKeys& hotKeys;
    KeyMonitor& keyMonitor;
    LocalKeyMonitor& localKeyMonitor;
    SyntheticKeys& syntheticKeys;
    Pasteboard& pasteboard;
    IndicatorPanelFactory& indicatorPanels;
    // The update feed; production uses HttpAppcastFetcher over the graph's own transport when null.
    AppcastFetcher* appcastFetcher = nullptr;
    // Passive notices (the paste's "press Ctrl+V" when no keys can reach the window); none: log only.
    DesktopNotifications* desktopNotifications = nullptr;

    ServicePlatform servicePlatform() const {
        return {mainQueue, environment, capture, screenCapture, coreAudio, playback, alerts};
    }
};

struct ClientOptions {
    std::string appVersion = "0.0.0";
    // Default: resolveBackendOrigin(environment).
    std::optional<std::string> backendURL;
    // Default: the backend origin.
    std::optional<std::string> productWebOrigin;
    // Default: $VOCLE_UPDATE_FEED_URL, else the product web origin plus "/appcast.xml".
    std::optional<std::string> updateFeedURL;
    // Default: $XDG_DATA_HOME.
    std::optional<std::filesystem::path> dataHome;
    // Default: $TMPDIR, else /tmp.
    std::optional<std::filesystem::path> temporaryDirectory;
    // Default: soundSearchDirectories(environment).
    std::optional<std::vector<std::filesystem::path>> soundDirectories;
    // Default: libcurl (HttpTransport).
    std::shared_ptr<HttpClient> httpClient;

    ServiceOptions serviceOptions() const {
        return {appVersion, backendURL, dataHome, temporaryDirectory, soundDirectories, httpClient};
    }
};

// The composition root of the client: the service graph plus the desktop pieces and the application state,
// built once, in dependency order, and torn down in reverse. Toolkit-free: the desktop application adds
// only its widgets and window-system services. Constructing it constructs AppState, which starts the
// sign-in check and the start-up sequence.
class ClientGraph : public ServiceGraph {
public:
    ClientGraph(PlatformServices services, ClientQueues queues, ClientOptions options = {});
    ~ClientGraph() override;

    PlatformServices services;
    const std::string productWebOrigin;
    // The product web origin plus "/docs".
    std::string docsURL() const { return productWebOrigin + "/docs"; }

    std::unique_ptr<HttpTransport> transport;  // the update feed's; the backend keeps its own
    std::unique_ptr<AppcastFetcher> ownFetcher;
    std::unique_ptr<AutoModeManager> autoModeManager;
    std::unique_ptr<ClipboardManager> clipboard;
    std::unique_ptr<ShortcutManager> shortcuts;
    std::unique_ptr<ShortcutConflictNotice> shortcutNotice;  // only with a notification service
    // The user asked, from a notice, to choose another toggle (true) or cancel (false) shortcut.
    Signal<bool> shortcutPickerRequested;
    std::unique_ptr<FloatingRecordingView> recordingView;
    std::unique_ptr<FloatingIndicatorManager> indicator;
    // The recogniser's words beside the indicator; DictationApp connects it to the engine.
    std::unique_ptr<LivePreview> livePreview;
    std::unique_ptr<AppState> appState;

    AppState& state() { return *appState; }
    // Created on first use, which starts it (the first check follows 5 s later).
    UpdaterManager& updaterManager();
    bool hasUpdaterManager() const { return updater_ != nullptr; }

private:
    AppcastFetcher* fetcher_ = nullptr;
    std::optional<std::string> feedURL_;
    std::unique_ptr<UpdaterManager> updater_;
};

}  // namespace vocle
