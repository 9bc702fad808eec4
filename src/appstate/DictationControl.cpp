#include "appstate/DictationControl.h"

#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

DictationControl::DictationControl(DictationServices services, AudioRecordingService& engine,
                                   DictationStatus status)
    : s_(services), engine_(engine), status_(status) {}

void DictationControl::followEngine() {
    MainQueue* q = &s_.mainQueue;
    // The text current at subscription time is skipped: subscribe() only delivers later values.
    subscriptions_.push_back(engine_.processedText.subscribe(token_.guard([this](const std::string& text) {
        if (!text.empty()) status_.transcribedText.set(text);
    }),
                                                             q));
    subscriptions_.push_back(engine_.isRecording.subscribe(
        token_.guard([this](const bool& value) { status_.isRecording.set(value); }), q));
    subscriptions_.push_back(engine_.isProcessing.subscribe(
        token_.guard([this](const bool& value) { status_.isProcessing.set(value); }), q));
    subscriptions_.push_back(
        engine_.errorMessage.subscribe(token_.guard([](const std::optional<std::string>& message) {
            if (message) log("Backend transcription error: ", *message);
        }),
                                       q));
}

void DictationControl::toggle() {
    VOCLE_ASSERT_MAIN_QUEUE(s_.mainQueue);
    log("AppState - toggleRecording called, current isRecording: ", boolText(status_.isRecording.get()));
    if (!status_.isRecording.get()) {
        log("Will start recording");
        start();
    } else {
        log("Will stop recording");
        // Played here, not in stop(): a stop from the engine's own timeout makes no sound from this layer.
        s_.systemAudio.playSoundEffect("stop");
        stop();
    }
}

void DictationControl::start() {
    VOCLE_ASSERT_MAIN_QUEUE(s_.mainQueue);
    log("AppState - startRecording called");
    log("Recording mode check:");
    const auto mode = s_.modeManager.activeMode.get();
    // Nothing to hear: say so now, instead of an indicator and a recording of silence.
    if (auto problem = engine_.inputProblem()) {
        log("🚫 Cancelling start: ", *problem);
        engine_.errorMessage.set(*problem);
        s_.mainQueue.post(token_.guard([this, text = *problem] { showCannotHearAlert(text); }));
        return;
    }
    if (mode && mode->recordSystemAudio && !s_.screenCapture.preflightAccess()) {
        log("🚫 Cancelling start: 'Record system audio' is ON but Screen Recording permission is not "
            "granted.");
        s_.mainQueue.post(token_.guard([this] { showSystemAudioPermissionAlert(); }));
        return;
    }
    if (!mode) {
        log("  - Recording mode: nil");
    } else {
        log("  - Recording mode: ", mode->name, " (ID: ", mode->id.string(), ")");
    }
    // Queued before the no-mode check and not undone by it.
    s_.mainQueue.post(token_.guard([this] { status_.isRecording.set(true); }));

    const auto active = s_.modeManager.activeMode.get();
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

    const auto vocab = status_.vocabulary.get();
    const auto& list = status_.replacements.get();
    engine_.setRecordingContext(*active, vocab.value_or(""), list);
    log("Configured ", list.size(), " text replacements:");
    for (size_t i = 0; i < list.size(); ++i) {
        log("  ", i + 1, ". \"", list[i].original, "\" → \"", list[i].replacement, "\"");
    }
    if (vocab && !vocab->empty()) {
        log("Configured vocabulary words: ", *vocab);
    } else {
        log("No vocabulary words configured");
    }
    engine_.startRecording();

    // Shown twice on purpose: the panel can fail to appear when another application became active.
    s_.mainQueue.postAfter(Seconds(0.1), token_.guard([this] {
        log("✨ Explicitly showing floating indicator from startRecording");
        s_.indicator.showIndicator();
        s_.mainQueue.postAfter(Seconds(0.5), token_.guard([this] {
            log("✨ Double-checking floating indicator visibility");
            s_.indicator.showIndicator();
        }));
    }));
}

void DictationControl::stop() {
    VOCLE_ASSERT_MAIN_QUEUE(s_.mainQueue);
    log("AppState - stopRecording called");
    auto onboarding = s_.storage.loadOnboardingState();
    onboarding.firstRecordingComplete = true;
    s_.storage.saveOnboardingState(onboarding);
    s_.mainQueue.post(token_.guard([this] {
        status_.isRecording.set(false);
        status_.isProcessing.set(true);
    }));
    log("Stopping audio recording service");
    engine_.stopRecording();
}

void DictationControl::cancel() {
    VOCLE_ASSERT_MAIN_QUEUE(s_.mainQueue);
    log("AppState - cancelRecording called");
    s_.mainQueue.post(token_.guard([this] {
        status_.isRecording.set(false);
        status_.isProcessing.set(false);
    }));
    s_.systemAudio.playSoundEffect("stop");
    engine_.cancelRecording();
    s_.indicator.hideIndicator();
}

void DictationControl::showCannotHearAlert(const std::string& text) {
    AlertRequest request;
    request.title = "Vocle cannot hear anything";
    request.text = text;
    request.style = AlertStyle::warning;
    offerSoundSettings(std::move(request), kMicrophoneSettingsURL);
}

void DictationControl::showSystemAudioPermissionAlert() {
    AlertRequest request;
    request.title = "Unable to record system audio";
    // The desktop's own name for its sound settings where it has one ("Settings > Sound").
    const auto place = s_.urlOpener.settingsPlace(kScreenCaptureSettingsURL);
    request.text =
        "Vocle cannot capture the sound of other applications: the sound server offers no monitor of your "
        "output device. Check " +
        place.value_or("your sound settings") +
        ". To stop this dialog, turn off 'Record system audio' in the active mode's settings.";
    request.style = AlertStyle::warning;
    offerSoundSettings(std::move(request), kScreenCaptureSettingsURL);
}

// The alert's first button opens the desktop's sound settings; a panel that does not open is said, not
// swallowed.
void DictationControl::offerSoundSettings(AlertRequest request, const std::string& settingsURL) {
    request.buttons = {"Open Sound Settings", "Close"};
    s_.alerts.show(request, token_.guard([this, settingsURL](int response) {
        if (response != 0) return;
        s_.urlOpener.openURL(settingsURL, token_.guard([this](const std::string& message) {
            AlertRequest problem;
            problem.title = "Sound settings did not open";
            problem.text = message;
            problem.style = AlertStyle::warning;
            problem.buttons = {"OK"};
            s_.alerts.show(problem, [](int) {});
        }));
    }));
}

}  // namespace vocle
