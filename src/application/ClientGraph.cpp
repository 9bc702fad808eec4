#include "application/ClientGraph.h"

#include <random>

#include "backend/BackendOrigin.h"
#include "desktop/HttpAppcastFetcher.h"
#include "recording/SoundEffectLocator.h"

namespace vocle {

namespace {
std::string resolveBackend(const ClientOptions& o, const Environment& env) {
    return o.backendURL ? normalizeOrigin(*o.backendURL) : resolveBackendOrigin(env).url;
}
std::optional<std::string> feedFromEnvironment(const ClientOptions& o, const Environment& env) {
    if (o.updateFeedURL) return o.updateFeedURL;
    if (auto v = env.get("VOCLE_UPDATE_FEED_URL"); v && !v->empty()) return v;
    return std::nullopt;
}
}  // namespace

ClientGraph::ClientGraph(PlatformServices s, ClientQueues q, ClientOptions o)
    : services(s),
      queues(q),
      appVersion(o.appVersion),
      backendURL(resolveBackend(o, s.environment)),
      productWebOrigin(o.productWebOrigin ? normalizeOrigin(*o.productWebOrigin) : backendURL),
      folder(o.dataHome ? DataFolder(*o.dataHome) : DataFolder::fromEnvironment(s.environment)),
      files(folder, s.mainQueue.clock()),
      modesStore(folder, s.mainQueue.clock()),
      sessions(files),
      history(folder, s.mainQueue.clock()) {
    MainQueue& main = s.mainQueue;
    const auto tmp = o.temporaryDirectory.value_or(temporaryDirectory(s.environment));

    backend = std::make_unique<BackendService>(backendURL, appVersion, main, sessions, files.deviceId());
    support = std::make_unique<SupportService>(*backend);
    settingsCoordinator = std::make_unique<SettingsCoordinator>(main, *backend);
    modeManager = std::make_unique<ModeManager>(main, notifications, modesStore, files, *settingsCoordinator);
    systemAudio = std::make_unique<SystemAudioController>(
        main, q.background, s.coreAudio, s.playback, files,
        o.soundDirectories.value_or(soundSearchDirectories(s.environment)));
    routeManager = std::make_unique<BluetoothAudioRouteManager>(s.coreAudio, q.routeManager);
    autoModeManager = std::make_unique<AutoModeManager>(main, q.background, notifications, s.workspace,
                                                        s.browserScripting, s.accessibility, random);
    clipboard = std::make_unique<ClipboardManager>(main, s.pasteboard, s.syntheticKeys, history, notifications);
    // The backend client reports a rejected session once and AppState signs out on that report, so the
    // upload's own sign-out step has nothing left to do here.
    audioFileProcessor = std::make_unique<AudioFileProcessor>(*backend, main, q.audioConversion, s.alerts,
                                                              [] {}, tmp);
    shortcuts = std::make_unique<ShortcutManager>(main, files, s.hotKeys, s.keyMonitor, s.localKeyMonitor);

    auto engine = std::make_shared<std::mt19937_64>(std::random_device{}());
    recordingView = std::make_unique<FloatingRecordingView>(main, notifications, [engine] {
        return std::uniform_real_distribution<double>(0.0, 1.0)(*engine);
    });
    indicator = std::make_unique<FloatingIndicatorManager>(main, s.indicatorPanels, *recordingView);

    auto recording = std::make_unique<AudioRecordingService>(AudioRecordingServiceDependencies{
        main, s.capture, s.screenCapture, *systemAudio, *routeManager, *audioFileProcessor, *clipboard, s.alerts,
        files, notifications, q.systemAudioSamples, tmp});
    appState = std::make_unique<AppState>(AppStateDependencies{
        main, *modeManager, std::move(recording), *systemAudio, *indicator, s.screenCapture, s.alerts,
        s.urlOpener, files, sessions, *backend, *settingsCoordinator, *autoModeManager});

    fetcher_ = s.appcastFetcher;
    feedURL_ = feedFromEnvironment(o, s.environment);
}

UpdaterManager& ClientGraph::updaterManager() {
    if (!updater_) {
        if (!fetcher_) {
            transport = std::make_unique<HttpTransport>();
            ownFetcher = std::make_unique<HttpAppcastFetcher>(services.mainQueue, *transport, "Vocle/" + appVersion);
            fetcher_ = ownFetcher.get();
        }
        updater_ = std::make_unique<UpdaterManager>(services.mainQueue, *fetcher_,
                                                    UpdaterManager::Config{appVersion, feedURL_, productWebOrigin});
    }
    return *updater_;
}

ClientGraph::~ClientGraph() {
    // Reverse order of construction; the state goes first so nothing it owns calls into a dead component.
    updater_.reset();
    appState.reset();
    indicator.reset();
    recordingView.reset();
    shortcuts.reset();
    audioFileProcessor.reset();
    clipboard.reset();
    autoModeManager.reset();
    routeManager.reset();
    systemAudio.reset();
    modeManager.reset();
    settingsCoordinator.reset();
    support.reset();
    backend.reset();
    ownFetcher.reset();
    transport.reset();
}

}  // namespace vocle
