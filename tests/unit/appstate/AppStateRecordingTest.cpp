#include <gtest/gtest.h>

#include "appstate/AppState.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeHttpTransport.h"
#include "platform/testing/FakeUrlOpener.h"
#include "platform/testing/FakeWorkspace.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class CountingIndicator final : public RecordingIndicator {
  public:
    std::vector<std::pair<std::string, double>> calls;
    const Clock* clock = nullptr;
    void showIndicator() override { calls.emplace_back("show", clock->now()); }
    void hideIndicator() override { calls.emplace_back("hide", clock->now()); }
};

struct AppHarness : EngineHarness {
    // The mode subsystem, signed out: start-up never runs and backups fail without touching the network.
    LocalSettingsStore& modesStore = graph.modesStore;
    SessionStore& sessions = graph.sessions;
    BackendService& backend = *graph.backend;
    SettingsCoordinator& coordinator = *graph.settingsCoordinator;
    ModeManager& modes = *graph.modeManager;
    AutoModeManager autoModes{queue, background, notifications, workspace, scripting, accessibility, graph.random};
    CountingIndicator indicator;
    std::unique_ptr<AppState> app;

    explicit AppHarness(std::optional<OnboardingState> onboarding = std::nullopt) {
        if (onboarding) storage.saveOnboardingState(*onboarding);
        indicator.clock = &queue;
        app = std::make_unique<AppState>(AppStateDependencies{queue, modes, std::move(engine), *systemAudio,
                                                              indicator, screen, alerts, urlOpener, storage,
                                                              sessions, backend, coordinator, autoModes});
        app->isInitializing.set(false);
        queue.runUntilIdle();
    }
    ~AppHarness() { app.reset(); }
    AudioRecordingService& eng() { return app->audioRecordingService(); }
    void activate(Mode m) { modes.activeMode.set(m); }
};

TEST(AppStateRecording, ToggleStartsWithTheActiveModeAndShowsTheIndicatorTwice) {
    AppHarness h;
    Mode mode = h.mode();
    mode.type.reset();
    h.activate(mode);
    h.app->replacements.set({Replacement::make("new line", "\n")});
    h.app->vocabulary.set(std::string("Kubernetes"));
    h.app->toggleRecording();
    EXPECT_TRUE(h.logs->contains("AppState - toggleRecording called, current isRecording: false"));
    EXPECT_TRUE(h.logs->contains("  - Type: Unknown"));
    EXPECT_TRUE(h.logs->contains("  1. \"new line\" → \"\n\""));
    EXPECT_TRUE(h.logs->contains("Configured vocabulary words: Kubernetes"));
    EXPECT_FALSE(h.app->isRecording.get());  // posted, not immediate
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.app->isRecording.get());

    h.queue.advance(1.0);
    ASSERT_EQ(h.indicator.calls.size(), 2u);
    EXPECT_NEAR(h.indicator.calls[0].second - h.t0(), 0.1, 1e-3);
    EXPECT_NEAR(h.indicator.calls[1].second - h.t0(), 0.6, 1e-3);
    ASSERT_EQ(h.capture.sessions.size(), 1u);

    h.speak(-20.0f);
    h.queue.advance(1.0);
    h.app->toggleRecording();
    EXPECT_EQ(h.sounds(), (std::vector<std::string>{"start", "stop"}));
    EXPECT_TRUE(h.storage.loadOnboardingState().firstRecordingComplete);
    h.queue.runUntilIdle();
    EXPECT_FALSE(h.app->isRecording.get());
    ASSERT_EQ(h.processor.calls.size(), 1u);
    EXPECT_EQ(h.processor.calls[0].vocab, "Kubernetes");
    EXPECT_TRUE(h.app->isProcessing.get());

    h.processor.calls[0].completion(std::string("kubectl get pods"));
    h.queue.runUntilIdle();
    EXPECT_EQ(h.app->transcribedText.get(), "kubectl get pods");
    EXPECT_FALSE(h.app->isProcessing.get());
}

TEST(AppStateRecording, EngineTimeoutStopMakesNoSoundFromThisLayer) {
    AppHarness h;
    h.activate(h.mode());
    h.app->startRecording();
    h.queue.advance(0.5);
    h.speak(-20.0f);
    h.queue.advance(601.0);
    EXPECT_FALSE(h.app->isRecording.get());
    EXPECT_EQ(h.sounds(), (std::vector<std::string>{"start", "stop"}));  // the engine's own "stop" only
}

TEST(AppStateRecording, SystemAudioWithoutPermissionAsksInsteadOfRecording) {
    AppHarness h;
    h.screen.preflight = false;
    h.activate(h.mode(true));
    h.app->toggleRecording();
    EXPECT_TRUE(h.alerts.shown.empty());  // scheduled, not shown inside the call
    h.queue.advance(1.0);
    ASSERT_EQ(h.alerts.shown.size(), 1u);
    const auto& alert = h.alerts.shown[0];
    EXPECT_EQ(alert.title, "Unable to record system audio");
    EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Open Sound Settings", "Close"}));
    EXPECT_EQ(alert.style, AlertStyle::warning);
    EXPECT_NE(alert.text.find("Check your sound settings."), std::string::npos) << alert.text;
    EXPECT_FALSE(h.app->isRecording.get());
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_TRUE(h.screen.streams.empty());
    EXPECT_TRUE(h.indicator.calls.empty());

    h.alerts.respond(1);
    EXPECT_TRUE(h.urlOpener.opened.empty());
    h.app->toggleRecording();
    h.queue.runUntilIdle();
    h.alerts.respond(0);
    EXPECT_EQ(h.urlOpener.opened,
              std::vector<std::string>{
                  "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture"});

    // On a desktop whose panels we know, the alert names the place as that desktop does.
    h.urlOpener.places["x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture"] =
        "System Settings > Audio";
    h.app->toggleRecording();
    h.queue.runUntilIdle();
    ASSERT_EQ(h.alerts.shown.size(), 3u);
    EXPECT_NE(h.alerts.shown[2].text.find("Check System Settings > Audio. To stop"), std::string::npos)
        << h.alerts.shown[2].text;
}

// Nothing to hear: the start is refused at once with the reason, and nothing shows as recording.
TEST(AppStateRecording, WithoutASoundServerOrAMicrophoneTheStartIsRefusedWithTheReason) {
    AppHarness h;
    h.activate(h.mode(false));
    h.capture.soundServer = false;
    h.app->toggleRecording();
    h.queue.advance(1.0);
    EXPECT_FALSE(h.app->isRecording.get());
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_TRUE(h.indicator.calls.empty());
    EXPECT_TRUE(h.sounds().empty()) << "no start sound for a recording that cannot hear";
    ASSERT_EQ(h.alerts.shown.size(), 1u);
    EXPECT_EQ(h.alerts.shown[0].title, "Vocle cannot hear anything");
    EXPECT_EQ(h.alerts.shown[0].text, AudioRecordingService::kNoSoundServerMessage);
    EXPECT_TRUE(
        h.logs->contains("🚫 Cancelling start: Vocle cannot hear anything: no sound server is running."));
    h.alerts.respond(0);
    EXPECT_EQ(h.urlOpener.opened,
              std::vector<std::string>{
                  "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone"});

    h.capture.soundServer = true;
    h.capture.deviceList.clear();
    h.app->toggleRecording();
    h.queue.advance(1.0);
    EXPECT_FALSE(h.app->isRecording.get());
    ASSERT_EQ(h.alerts.shown.size(), 2u);
    EXPECT_EQ(h.alerts.shown[1].text, AudioRecordingService::kNoInputDeviceMessage);

    // The microphone is back: the next press records.
    h.capture.deviceList = {{"alsa_input.usb-mic", "USB Microphone"}};
    h.app->toggleRecording();
    h.queue.advance(1.0);
    EXPECT_TRUE(h.app->isRecording.get());
}

TEST(AppStateRecording, NoActiveModeTurnsTheFlagOnButRecordsNothing) {
    AppHarness h;
    h.app->startRecording();
    h.queue.advance(1.0);
    EXPECT_TRUE(h.logs->contains("  - Recording mode: nil"));
    EXPECT_TRUE(h.logs->contains("ERROR: No mode available for recording"));
    EXPECT_TRUE(h.app->isRecording.get());
    EXPECT_TRUE(h.capture.sessions.empty());
    EXPECT_TRUE(h.indicator.calls.empty());
}

TEST(AppStateRecording, CancelClearsFlagsPlaysStopAndHidesTheIndicator) {
    AppHarness h;
    h.activate(h.mode());
    h.app->startRecording();
    h.queue.advance(1.0);
    h.app->cancelRecording();
    EXPECT_EQ(h.sounds(), (std::vector<std::string>{"start", "stop"}));
    EXPECT_TRUE(h.logs->contains("❌ cancelRecording() called"));
    ASSERT_FALSE(h.indicator.calls.empty());
    EXPECT_EQ(h.indicator.calls.back().first, "hide");
    h.queue.advance(2.0);
    EXPECT_FALSE(h.app->isRecording.get());
    EXPECT_FALSE(h.app->isProcessing.get());
    EXPECT_TRUE(h.processor.calls.empty());
}

TEST(AppStateRecording, MirrorsSkipEmptyTextsAndLogErrors) {
    AppHarness h;
    h.app->transcribedText.set("earlier");
    h.eng().processedText.set("");
    h.eng().errorMessage.set(std::nullopt);
    h.eng().errorMessage.set(std::string("Network error"));
    h.queue.runUntilIdle();
    EXPECT_EQ(h.app->transcribedText.get(), "earlier");
    EXPECT_EQ(h.logs->count("Backend transcription error: "), 1u);
    EXPECT_TRUE(h.logs->contains("Backend transcription error: Network error"));
}

TEST(AppStateRecording, TabIsRestoredAtConstructionAndPersistedWhenChosen) {
    {
        AppHarness first;
        EXPECT_EQ(first.app->selectedTab.get(), -1);
        first.app->selectedTab.set(-1);
        first.queue.runUntilIdle();
        EXPECT_TRUE(first.storage.loadOnboardingState().isFirstLaunch);
        first.app->selectedTab.set(2);
        first.queue.runUntilIdle();
        const auto saved = first.storage.loadOnboardingState();
        EXPECT_EQ(saved.lastSelectedTab, 2);
        EXPECT_FALSE(saved.isFirstLaunch);
    }
    OnboardingState later;
    later.isFirstLaunch = false;
    later.lastSelectedTab = 5;
    EXPECT_EQ(AppHarness(later).app->selectedTab.get(), 5);
    later.lastSelectedTab = -1;
    EXPECT_EQ(AppHarness(later).app->selectedTab.get(), 0);

    // Nothing is persisted while start-up is still running.
    AppHarness booting;
    booting.app->isInitializing.set(true);
    booting.app->selectedTab.set(4);
    booting.queue.runUntilIdle();
    EXPECT_EQ(booting.storage.loadOnboardingState().lastSelectedTab, -1);
}

}  // namespace
