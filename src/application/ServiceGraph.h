#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/AudioFileProcessor.h"
#include "backend/BackendService.h"
#include "backend/HttpClient.h"
#include "backend/StreamingTranscriber.h"
#include "backend/SupportService.h"
#include "desktop/DictationRetry.h"
#include "foundation/DispatchQueue.h"
#include "foundation/Environment.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "modes/ModeManager.h"
#include "modes/RandomSource.h"
#include "modes/SettingsCoordinator.h"
#include "platform/alerts.h"
#include "platform/audio.h"
#include "platform/capture.h"
#include "platform/core_audio.h"
#include "platform/screen_capture.h"
#include "recording/AudioRecordingService.h"
#include "recording/BluetoothAudioRouteManager.h"
#include "recording/SystemAudioController.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/HistoryService.h"
#include "storage/LocalSettingsStore.h"
#include "storage/PendingDictationStore.h"
#include "storage/SessionStore.h"

namespace vocle {

// The operating-system services that need no desktop session: audio and the alerts. vocle-cli passes the
// PulseAudio ones and terminal alerts, tests the fakes. All must outlive the graph.
struct ServicePlatform {
    MainQueue& mainQueue;
    const Environment& environment;
    Capture& capture;
    ScreenCapture& screenCapture;
    CoreAudio& coreAudio;
    AudioPlayback& playback;
    Alerts& alerts;
};

// Where blocking work runs. ThreadQueues owns the production threads; tests pass manual queues.
struct ClientQueues {
    DispatchQueue& background;          // the global queues
    DispatchQueue& audioConversion;     // "audioConversionQueue"
    DispatchQueue& systemAudioSamples;  // "app.vocleapp.Vocle.SCStreamAudioQueue"
    DispatchQueue& routeManager;        // "app.vocleapp.Vocle.BluetoothAudioRouteManager"
};

struct ThreadQueues {
    BackgroundQueue background{2};
    SerialThreadQueue audioConversion{"audioConversionQueue"};
    SerialThreadQueue systemAudioSamples{"app.vocleapp.Vocle.SCStreamAudioQueue"};
    SerialThreadQueue routeManager{"app.vocleapp.Vocle.BluetoothAudioRouteManager"};
    ClientQueues refs() { return {background, audioConversion, systemAudioSamples, routeManager}; }
};

struct ServiceOptions {
    std::string appVersion = "0.0.0";
    // Default: resolveBackendOrigin(environment).
    std::optional<std::string> backendURL;
    // Default: $XDG_DATA_HOME.
    std::optional<std::filesystem::path> dataHome;
    // Default: $TMPDIR, else /tmp.
    std::optional<std::filesystem::path> temporaryDirectory;
    // Default: soundSearchDirectories(environment).
    std::optional<std::vector<std::filesystem::path>> soundDirectories;
    // Default: libcurl (HttpTransport); unit tests pass the scripted network.
    std::shared_ptr<HttpClient> httpClient;
};

// The part of the client that needs no desktop: storage, the session, history, the backend client, the
// mode subsystem, system audio and the upload pipeline, built once in dependency order and torn down in
// reverse. ClientGraph extends it with the desktop pieces; vocle-cli and the test harnesses use it alone.
class ServiceGraph {
  public:
    ServiceGraph(ServicePlatform platform, ClientQueues queues, ServiceOptions options = {});
    virtual ~ServiceGraph();
    ServiceGraph(const ServiceGraph&) = delete;
    ServiceGraph& operator=(const ServiceGraph&) = delete;

    ServicePlatform platform;
    ClientQueues queues;
    const std::string appVersion;
    const std::string backendURL;
    const std::filesystem::path temporaryFolder;
    const std::vector<std::filesystem::path> soundDirectories;

    MainQueue& mainQueue() { return platform.mainQueue; }

    DataFolder folder;
    FileStorageManager files;
    LocalSettingsStore modesStore;
    SessionStore sessions;
    HistoryService history;
    PendingDictationStore pendingDictations;
    NotificationCenter notifications;
    SystemRandomSource random;

    std::unique_ptr<BackendService> backend;
    std::unique_ptr<SupportService> support;
    std::unique_ptr<SettingsCoordinator> settingsCoordinator;
    std::unique_ptr<ModeManager> modeManager;
    std::unique_ptr<SystemAudioController> systemAudio;
    std::unique_ptr<BluetoothAudioRouteManager> routeManager;
    std::unique_ptr<AudioFileProcessor> audioFileProcessor;
    // Keeps what the upload pipeline fails to transcribe and sends it again; copies nothing until the
    // desktop gives it a clipboard.
    std::unique_ptr<DictationRetry> dictationRetry;
    // Streams microphone-only dictations while they are recorded, falling back to audioFileProcessor.
    // Off when $VOCLE_STREAMING is "0".
    std::unique_ptr<StreamingTranscriber> streaming;

    // A recording engine on this graph's audio services, handing its recordings to `processor` (or
    // streaming them to `live`) and its transcripts to `paster`; the caller owns it and must drop it
    // before the graph.
    std::unique_ptr<AudioRecordingService> makeRecordingService(RecordingProcessor& processor,
                                                                TranscriptPaster& paster,
                                                                std::function<double()> random = {},
                                                                LiveTranscriber* live = nullptr);

  private:
    std::optional<Mode> modeForRecoveredDictation();
};

}  // namespace vocle
