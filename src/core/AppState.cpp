#include "core/AppState.h"

#include "core/AppConstants.h"
#include "foundation/Log.h"

namespace vocle {

AppState::AppState(AppStateDependencies deps) : d_(std::move(deps)) {
    log("AppState initializing");
    logAppDefaultValues();
    vocabulary.set(std::string());
    restoreSelectedTab();
    // The start-up sequence (sign-in gate, settings load) hooks in here.
    subscribeToEngine();
    subscribeToSelectedTab();
}

AppState::~AppState() = default;

void AppState::restoreSelectedTab() {
    const auto onboarding = d_.storage.loadOnboardingState();
    if (onboarding.isFirstLaunch) {
        selectedTab.set(Tab::home);
    } else {
        selectedTab.set(onboarding.lastSelectedTab < 0 ? 0 : onboarding.lastSelectedTab);
    }
    log("AppState: Initial selectedTab = ", selectedTab.get(),
        ", isFirstLaunch = ", boolText(onboarding.isFirstLaunch));
}

void AppState::subscribeToEngine() {
    auto& engine = *engine_;
    MainQueue* q = &d_.mainQueue;
    // The text current at subscription time is skipped: subscribe() only delivers later values.
    cancellables_.push_back(engine.processedText.subscribe(token_.guard([this](const std::string& text) {
        if (!text.empty()) transcribedText.set(text);
    }), q));
    cancellables_.push_back(
        engine.isRecording.subscribe(token_.guard([this](const bool& value) { isRecording.set(value); }), q));
    cancellables_.push_back(
        engine.isProcessing.subscribe(token_.guard([this](const bool& value) { isProcessing.set(value); }), q));
    cancellables_.push_back(engine.errorMessage.subscribe(
        token_.guard([](const std::optional<std::string>& message) {
            if (message) log("Backend transcription error: ", *message);
        }),
        q));
}

void AppState::subscribeToSelectedTab() {
    tabSubscription_ = selectedTab.subscribe(token_.guard([this](const int& tab) {
        if (isInitializing.get() || tab < 0) return;
        persistSelectedTab(tab);
    }), &d_.mainQueue);
}

void AppState::persistSelectedTab(int tab) {
    auto state = d_.storage.loadOnboardingState();
    state.lastSelectedTab = tab;
    d_.storage.saveOnboardingState(state);
    // Leaving the first chosen tab ends the first-launch state.
    state = d_.storage.loadOnboardingState();
    state.isFirstLaunch = false;
    d_.storage.saveOnboardingState(state);
}

void AppState::toggleRecording() {
    log("AppState - toggleRecording called, current isRecording: ", boolText(isRecording.get()));
    if (!isRecording.get()) {
        log("Will start recording");
        startRecording();
    } else {
        log("Will stop recording");
        // Played here, not in stopRecording(): a stop from the engine's own timeout makes no sound
        // from this layer.
        d_.systemAudio.playSoundEffect("stop");
        stopRecording();
    }
}

void AppState::startRecording() {
    log("AppState - startRecording called");
    log("Recording mode check:");
    const auto mode = d_.modeManager.activeMode.get();
    if (mode && mode->recordSystemAudio && !d_.screenCapture.preflightAccess()) {
        log("🚫 Cancelling start: 'Record system audio' is ON but Screen Recording permission is not granted.");
        d_.mainQueue.post(token_.guard([this] { showSystemAudioPermissionAlert(); }));
        return;
    }
    if (!mode) {
        log("  - Recording mode: nil");
    } else {
        log("  - Recording mode: ", mode->name, " (ID: ", mode->id.string(), ")");
    }
    // Queued before the no-mode check and not undone by it.
    d_.mainQueue.post(token_.guard([this] { isRecording.set(true); }));

    const auto active = d_.modeManager.activeMode.get();
    if (!active) {
        log("ERROR: No mode available for recording");
        return;
    }
    log("Using mode: ", active->name);
    log("Mode details:");
    log("  - ID: ", active->id.string());
    log("  - Name: ", active->name);
    log("  - Type: ", active->type.value_or("Unknown"));
    log("  - Prompt: ", active->prompt);
    log("  - Language: ", active->language);

    const auto vocab = vocabulary.get();
    engine_->setRecordingContext(*active, vocab.value_or(""), replacements.get());
    const auto& list = replacements.get();
    log("Configured ", list.size(), " text replacements:");
    for (size_t i = 0; i < list.size(); ++i) {
        log("  ", i + 1, ". \"", list[i].original, "\" → \"", list[i].replacement, "\"");
    }
    if (vocab && !vocab->empty()) {
        log("Configured vocabulary words: ", *vocab);
    } else {
        log("No vocabulary words configured");
    }
    engine_->startRecording();

    // Shown twice on purpose: the panel can fail to appear when another application became active.
    d_.mainQueue.postAfter(0.1, token_.guard([this] {
        log("✨ Explicitly showing floating indicator from startRecording");
        d_.indicator.showIndicator();
        d_.mainQueue.postAfter(0.5, token_.guard([this] {
            log("✨ Double-checking floating indicator visibility");
            d_.indicator.showIndicator();
        }));
    }));
}

void AppState::stopRecording() {
    log("AppState - stopRecording called");
    auto onboarding = d_.storage.loadOnboardingState();
    onboarding.firstRecordingComplete = true;
    d_.storage.saveOnboardingState(onboarding);
    d_.mainQueue.post(token_.guard([this] {
        isRecording.set(false);
        isProcessing.set(true);
    }));
    log("Stopping audio recording service");
    engine_->stopRecording();
}

void AppState::cancelRecording() {
    log("AppState - cancelRecording called");
    d_.mainQueue.post(token_.guard([this] {
        isRecording.set(false);
        isProcessing.set(false);
    }));
    d_.systemAudio.playSoundEffect("stop");
    engine_->cancelRecording();
    d_.indicator.hideIndicator();
}

void AppState::showSystemAudioPermissionAlert() {
    AlertRequest request;
    request.title = "Unable to record system audio";
    request.text =
        "Screen Recording permission is required to capture app audio. Open System Settings to enable it for "
        "Vocle. To stop this dialog, turn off 'Record system audio' in the active mode's settings.";
    request.style = AlertStyle::warning;
    request.buttons = {"Open System Settings", "Close"};
    d_.alerts.show(request, token_.guard([this](int response) {
        if (response == 0) d_.urlOpener.openURL(kScreenCaptureSettingsURL);
    }));
}

}  // namespace vocle
