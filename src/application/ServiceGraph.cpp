#include "application/ServiceGraph.h"

#include "backend/BackendOrigin.h"
#include "recording/SoundEffectLocator.h"

namespace vocle {

namespace {
std::string resolveBackend(const ServiceOptions& o, const Environment& env) {
    return o.backendURL ? normalizeOrigin(*o.backendURL) : resolveBackendOrigin(env).url;
}
}  // namespace

ServiceGraph::ServiceGraph(ServicePlatform p, ClientQueues q, ServiceOptions o)
    : platform(p),
      queues(q),
      appVersion(o.appVersion),
      backendURL(resolveBackend(o, p.environment)),
      temporaryFolder(o.temporaryDirectory.value_or(temporaryDirectory(p.environment))),
      soundDirectories(o.soundDirectories.value_or(soundSearchDirectories(p.environment))),
      folder(o.dataHome ? DataFolder(*o.dataHome) : DataFolder::fromEnvironment(p.environment)),
      files(folder, p.mainQueue.clock()),
      modesStore(folder, p.mainQueue.clock()),
      sessions(files),
      history(folder, p.mainQueue.clock()),
      pendingDictations(folder, p.mainQueue.clock()) {
    MainQueue& main = p.mainQueue;
    backend = std::make_unique<BackendService>(backendURL, appVersion, main, sessions, files.deviceId(),
                                               std::move(o.httpClient));
    support = std::make_unique<SupportService>(*backend);
    settingsCoordinator = std::make_unique<SettingsCoordinator>(main, *backend);
    modeManager = std::make_unique<ModeManager>(main, notifications, modesStore, files, *settingsCoordinator);
    systemAudio = std::make_unique<SystemAudioController>(main, q.background, p.coreAudio, p.playback, files,
                                                          soundDirectories);
    routeManager = std::make_unique<BluetoothAudioRouteManager>(p.coreAudio, q.routeManager);
    // The backend client reports a rejected session once and whoever holds the session signs out on that
    // report, so the upload's own sign-out step has nothing left to do here.
    audioFileProcessor = std::make_unique<AudioFileProcessor>(
        *backend, main, q.audioConversion, p.alerts, [] {}, temporaryFolder);
    dictationRetry = std::make_unique<DictationRetry>(
        DictationRetry::Dependencies{main,
                                     *backend,
                                     pendingDictations,
                                     history,
                                     {},
                                     [this] { return modeForRecoveredDictation(); },
                                     &p.alerts});
    audioFileProcessor->setFailedDictationKeeper(dictationRetry.get());
    streaming = std::make_unique<StreamingTranscriber>(main, *backend, *audioFileProcessor);
    streaming->setEnabled(p.environment.get("VOCLE_STREAMING").value_or("1") != "0");
}

// A recording found without its record is sent with the mode in use, else the stored default.
std::optional<Mode> ServiceGraph::modeForRecoveredDictation() {
    if (auto selected = modeManager->selectedMode.get()) return selected;
    auto stored = modesStore.loadModes();
    if (!stored || stored->empty()) return std::nullopt;
    for (const auto& mode : *stored)
        if (mode.isDefault) return mode;
    return stored->front();
}

std::unique_ptr<AudioRecordingService> ServiceGraph::makeRecordingService(RecordingProcessor& processor,
                                                                          TranscriptPaster& paster,
                                                                          std::function<double()> random,
                                                                          LiveTranscriber* live) {
    return std::make_unique<AudioRecordingService>(AudioRecordingServiceDependencies{
        platform.mainQueue, platform.capture, platform.screenCapture, *systemAudio, *routeManager, processor,
        paster, platform.alerts, files, notifications, queues.systemAudioSamples, temporaryFolder,
        std::move(random), live});
}

ServiceGraph::~ServiceGraph() {
    streaming.reset();
    audioFileProcessor.reset();
    dictationRetry.reset();
    routeManager.reset();
    systemAudio.reset();
    modeManager.reset();
    settingsCoordinator.reset();
    support.reset();
    backend.reset();
}

}  // namespace vocle
