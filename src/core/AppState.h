#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/RecordingIndicator.h"
#include "core/Replacement.h"
#include "foundation/MainQueue.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
#include "platform/alerts.h"
#include "platform/screen_capture.h"
#include "platform/url_opener.h"
#include "recording/AudioRecordingService.h"
#include "recording/SystemAudioController.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// What AppState is built from; the composition root passes the process-wide instances.
struct AppStateDependencies {
    MainQueue& mainQueue;
    ModeManager& modeManager;
    std::unique_ptr<AudioRecordingService> audioRecordingService;
    SystemAudioController& systemAudio;
    RecordingIndicator& indicator;
    ScreenCapture& screenCapture;  // the screen-recording preflight
    Alerts& alerts;
    UrlOpener& urlOpener;
    const FileStorageManager& storage;
};

// The application's one observable state and the entry points that start, stop and cancel a
// dictation. Main queue only.
class AppState {
public:
    explicit AppState(AppStateDependencies deps);
    ~AppState();
    AppState(const AppState&) = delete;
    AppState& operator=(const AppState&) = delete;

    Observable<bool> isRecording{false};
    Observable<bool> isProcessing{false};
    Observable<int> selectedTab{-1};
    Observable<std::vector<Replacement>> replacements;
    Observable<std::string> transcribedText{""};
    Observable<std::optional<std::string>> vocabulary;
    Observable<bool> requiresSignIn{true};
    Observable<bool> isInitializing{true};
    Observable<std::optional<std::string>> initializationError;

    AudioRecordingService& audioRecordingService() { return *engine_; }
    ModeManager& modeManager() { return d_.modeManager; }

    void toggleRecording();
    void startRecording();
    void stopRecording();
    void cancelRecording();

    static inline const char* kScreenCaptureSettingsURL =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";

private:
    void restoreSelectedTab();
    void subscribeToEngine();
    void subscribeToSelectedTab();
    void persistSelectedTab(int tab);
    void showSystemAudioPermissionAlert();

    AppStateDependencies d_;
    std::unique_ptr<AudioRecordingService>& engine_ = d_.audioRecordingService;
    std::vector<Subscription> cancellables_;
    Subscription tabSubscription_;
    OwnerToken token_;
};

}  // namespace vocle
