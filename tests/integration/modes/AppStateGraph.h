#pragma once

#include <filesystem>
#include <memory>

#include "screens/SignInViewModel.h"
#include "appstate/AppState.h"
#include "core/RecordingIndicator.h"
#include "integration/modes/IntegrationGraph.h"
#include "modes/AutoModeManager.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeAlerts.h"
#include "platform/testing/FakeAudioPlayback.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeCoreAudio.h"
#include "platform/testing/FakeScreenCapture.h"
#include "platform/testing/FakeUrlOpener.h"
#include "platform/testing/FakeWorkspace.h"
#include "recording/AudioRecordingService.h"
#include "recording/BluetoothAudioRouteManager.h"
#include "recording/SystemAudioController.h"

namespace vocle::testing {

class CountingIndicator final : public RecordingIndicator {
  public:
    void showIndicator() override { ++shown; }
    void hideIndicator() override { ++hidden; }
    int shown = 0;
    int hidden = 0;
};

class NoProcessor final : public RecordingProcessor {
  public:
    void processRecording(const std::filesystem::path&, const Mode&, const std::string&,
                          const std::vector<Replacement>&,
                          std::function<void(Result<std::string>)>) override {}
};

class NoPaster final : public TranscriptPaster {
  public:
    void copyAndPaste(const std::string&) override {}
};

// The application state as the composition root builds it: real storage, the real backend client on a
// loopback backend, the real mode subsystem and engine, fakes for the OS services; virtual time.
struct AppStateGraph : IntegrationGraph {
    explicit AppStateGraph(bool signedIn = true) : AppStateGraph(Options{signedIn, {}, {}}) {}
    explicit AppStateGraph(const Options& options) : IntegrationGraph(options) {
        coreAudio.add(1, "alsa_output.pci.analog-stereo", "Built-in Audio Analog Stereo", 0.7f);
        coreAudio.defaultOutput = 1;
        systemAudio = std::make_unique<SystemAudioController>(queue, background, coreAudio, playback, files,
                                                              std::vector<std::filesystem::path>{});
        route = std::make_unique<BluetoothAudioRouteManager>(coreAudio, inlineQueue);
        autoModes = std::make_unique<AutoModeManager>(queue, background, center, workspace, scripting,
                                                      accessibility, random);
    }
    ~AppStateGraph() {
        appState.reset();
        autoModes.reset();
    }

    AppState& app() {
        if (!appState) {
            auto engine = std::make_unique<AudioRecordingService>(AudioRecordingServiceDependencies{
                queue, capture, screen, *systemAudio, *route, processor, paster, alerts, files, center,
                inlineQueue, dir.path() / "tmp", [] { return 0.5; }});
            appState = std::make_unique<AppState>(
                AppStateDependencies{queue, *modeManager, std::move(engine), *systemAudio, indicator, screen,
                                     alerts, urlOpener, files, sessions, *backend, *coordinator, *autoModes});
        }
        return *appState;
    }

    // Waits for the start-up run to end, in success or failure.
    bool waitForStartup() {
        return runUntil(queue,
                        [&] { return !app().isInitializing.get() || app().initializationError.get(); });
    }
    std::filesystem::path settingsFile() const { return folder.appSupportDirectory() / "settings.json"; }

    ManualDispatchQueue background;
    InlineDispatchQueue inlineQueue;
    FakeCapture capture;
    FakeScreenCapture screen;
    FakeCoreAudio coreAudio;
    FakeAudioPlayback playback;
    FakeAlerts alerts;
    FakeUrlOpener urlOpener;
    FakeWorkspace workspace;
    FakeBrowserScripting scripting;
    FakeAccessibility accessibility;
    SystemRandomSource random;
    CountingIndicator indicator;
    NoProcessor processor;
    NoPaster paster;
    std::unique_ptr<SystemAudioController> systemAudio;
    std::unique_ptr<BluetoothAudioRouteManager> route;
    std::unique_ptr<AutoModeManager> autoModes;
    std::unique_ptr<AppState> appState;
};

}  // namespace vocle::testing
