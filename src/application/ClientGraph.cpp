#include "application/ClientGraph.h"

#include <random>

#include "backend/BackendOrigin.h"
#include "desktop/HttpAppcastFetcher.h"

namespace vocle {

namespace {
std::optional<std::string> feedFromEnvironment(const ClientOptions& o, const Environment& env) {
    if (o.updateFeedURL) return o.updateFeedURL;
    if (auto v = env.get("VOCLE_UPDATE_FEED_URL"); v && !v->empty()) return v;
    return std::nullopt;
}
}  // namespace

ClientGraph::ClientGraph(PlatformServices s, ClientQueues q, ClientOptions o)
    : ServiceGraph(s.servicePlatform(), q, o.serviceOptions()),
      services(s),
      productWebOrigin(o.productWebOrigin ? normalizeOrigin(*o.productWebOrigin) : backendURL) {
    MainQueue& main = s.mainQueue;

    autoModeManager = std::make_unique<AutoModeManager>(main, q.background, notifications, s.workspace,
                                                        s.browserScripting, s.accessibility, random);
    clipboard =
        std::make_unique<ClipboardManager>(main, s.pasteboard, s.syntheticKeys, history, notifications,
                                           "TranscriptionCompleted", s.desktopNotifications);
    // A retried transcript only goes on the clipboard: the user is elsewhere by now.
    dictationRetry->setCopyToClipboard([&pasteboard = s.pasteboard](const std::string& text) {
        pasteboard.clearContents();
        pasteboard.setString(text);
    });
    shortcuts = std::make_unique<ShortcutManager>(main, files, s.hotKeys, s.keyMonitor, s.localKeyMonitor);
    if (s.desktopNotifications) {
        shortcutNotice = std::make_unique<ShortcutConflictNotice>(
            *shortcuts, *s.desktopNotifications, [this](bool toggle) { shortcutPickerRequested.emit(toggle); });
    }

    auto engine = std::make_shared<std::mt19937_64>(std::random_device{}());
    recordingView = std::make_unique<FloatingRecordingView>(
        main, notifications, [engine] { return std::uniform_real_distribution<double>(0.0, 1.0)(*engine); });
    indicator = std::make_unique<FloatingIndicatorManager>(main, s.indicatorPanels, *recordingView);
    livePreview = std::make_unique<LivePreview>(s.indicatorPanels,
                                                [this] { return files.loadSettings().showLivePreview; });

    appState = std::make_unique<AppState>(AppStateDependencies{
        main, *modeManager, makeRecordingService(*audioFileProcessor, *clipboard, {}, streaming.get()),
        *systemAudio, *indicator, s.screenCapture, s.alerts, s.urlOpener, files, sessions, *backend,
        *settingsCoordinator, *autoModeManager});
    shortcuts->followRecording(appState->isRecording);

    fetcher_ = s.appcastFetcher;
    feedURL_ = feedFromEnvironment(o, s.environment);
}

UpdaterManager& ClientGraph::updaterManager() {
    if (!updater_) {
        if (!fetcher_) {
            transport = std::make_unique<HttpTransport>();
            ownFetcher =
                std::make_unique<HttpAppcastFetcher>(services.mainQueue, *transport, "Vocle/" + appVersion);
            fetcher_ = ownFetcher.get();
        }
        updater_ = std::make_unique<UpdaterManager>(
            services.mainQueue, *fetcher_, UpdaterManager::Config{appVersion, feedURL_, productWebOrigin});
    }
    return *updater_;
}

ClientGraph::~ClientGraph() {
    // Reverse order of construction; the state goes first so nothing it owns calls into a dead component.
    // The services below go with the base.
    updater_.reset();
    livePreview.reset();  // it follows the state's observables
    appState.reset();
    indicator.reset();
    recordingView.reset();
    shortcutNotice.reset();
    shortcuts.reset();
    clipboard.reset();
    autoModeManager.reset();
    ownFetcher.reset();
    transport.reset();
}

}  // namespace vocle
