#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/RecordingIndicator.h"
#include "core/Replacement.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
#include "platform/alerts.h"
#include "platform/screen_capture.h"
#include "platform/url_opener.h"
#include "recording/AudioRecordingService.h"
#include "recording/SystemAudioController.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The app state's view of one dictation.
struct DictationStatus {
    Observable<bool>& isRecording;
    Observable<bool>& isProcessing;
    Observable<std::string>& transcribedText;
    const Observable<std::vector<Replacement>>& replacements;
    const Observable<std::optional<std::string>>& vocabulary;
};

// What a dictation needs besides the engine.
struct DictationServices {
    MainQueue& mainQueue;
    ModeManager& modeManager;
    SystemAudioController& systemAudio;
    RecordingIndicator& indicator;
    ScreenCapture& screenCapture;  // the screen-recording preflight
    Alerts& alerts;
    UrlOpener& urlOpener;
    const FileStorageManager& storage;
};

// Starts, stops and cancels a dictation with the active mode's context, and mirrors the engine's state
// into the app state. Main queue only.
class DictationControl {
public:
    static inline const char* kScreenCaptureSettingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";
    static inline const char* kMicrophoneSettingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";

    DictationControl(DictationServices services, AudioRecordingService& engine, DictationStatus status);

    void followEngine();
    void toggle();
    void start();
    void stop();
    void cancel();

private:
    void showSystemAudioPermissionAlert();
    void showCannotHearAlert(const std::string& text);
    void offerSoundSettings(AlertRequest request, const std::string& settingsURL);

    DictationServices s_;
    AudioRecordingService& engine_;
    DictationStatus status_;
    std::vector<Subscription> subscriptions_;
    OwnerToken token_;
};

}  // namespace vocle
