#pragma once

#include <filesystem>
#include <memory>

#include "screens/SignInViewModel.h"
#include "appstate/AppState.h"
#include "core/RecordingIndicator.h"
#include "integration/modes/IntegrationGraph.h"
#include "modes/AutoModeManager.h"
#include "recording/AudioRecordingService.h"

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

// The application state on the service graph: real storage, the real backend client on a loopback
// backend, the real mode subsystem and engine, fakes for the OS services; virtual time. The state is built
// here rather than by ClientGraph so that recordings go nowhere and the indicator is counted.
struct AppStateGraph : IntegrationGraph {
    explicit AppStateGraph(bool signedIn = true) : AppStateGraph(Options{signedIn, {}, {}}) {}
    explicit AppStateGraph(const Options& options) : IntegrationGraph(options) {
        coreAudio.add(1, "alsa_output.pci.analog-stereo", "Built-in Audio Analog Stereo", 0.7f);
        coreAudio.defaultOutput = 1;
    }
    ~AppStateGraph() { appState.reset(); }

    AppState& app() {
        if (!appState) {
            appState = std::make_unique<AppState>(AppStateDependencies{
                queue, *modeManager, graph->makeRecordingService(processor, paster, [] { return 0.5; }),
                *graph->systemAudio, indicator, screen, alerts, urlOpener, files, sessions, *backend,
                *coordinator, autoModes});
        }
        return *appState;
    }

    // Waits for the start-up run to end, in success or failure.
    bool waitForStartup() {
        return runUntil(queue,
                        [&] { return !app().isInitializing.get() || app().initializationError.get(); });
    }
    std::filesystem::path settingsFile() const { return folder.appSupportDirectory() / "settings.json"; }

    CountingIndicator indicator;
    NoProcessor processor;
    NoPaster paster;
    AutoModeManager autoModes{queue, background, center, workspace, scripting, accessibility, graph->random};
    std::unique_ptr<AppState> appState;
};

}  // namespace vocle::testing
