#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "appstate/DictationControl.h"
#include "appstate/ModesMirror.h"
#include "appstate/SettingsPersistence.h"
#include "appstate/StartupSequence.h"
#include "appstate/TabMemory.h"
#include "backend/BackendService.h"
#include "backend/SettingsRecords.h"
#include "core/RecordingIndicator.h"
#include "core/Replacement.h"
#include "foundation/MainQueue.h"
#include "foundation/Signal.h"
#include "modes/AutoModeManager.h"
#include "modes/ModeManager.h"
#include "modes/ModesViewModel.h"
#include "modes/SettingsCoordinator.h"
#include "platform/alerts.h"
#include "platform/screen_capture.h"
#include "platform/url_opener.h"
#include "recording/AudioRecordingService.h"
#include "recording/SystemAudioController.h"
#include "storage/FileStorageManager.h"
#include "storage/SessionStore.h"

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
    // Start-up, sign-in and the settings backup.
    SessionStore& sessions;
    BackendService& backend;
    SettingsCoordinator& settingsCoordinator;
    AutoModeManager& autoModeManager;
};

// The application's one observable state and the entry points that start, stop and cancel a
// dictation. The work is its collaborators': the dictation, the start-up and sign-in, the settings file
// and backup, the modes screen's mirror and the remembered tab. Main queue only.
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
    AutoModeManager& autoModeManager() { return d_.autoModeManager; }
    ModesViewModel& modesViewModel() { return *modesViewModel_; }
    // Fires whenever the modes view model changes, so views observing the application state redraw.
    Signal<> changed;

    void toggleRecording();
    void startRecording();
    void stopRecording();
    void cancelRecording();

    // Start-up: steps A (templates), B (local settings or first-run defaults) and C (backup).
    void initializeApp();
    // The loading overlay's "Try Again": clears the error shown and runs the start-up again.
    void retryInitialization();
    void signOut();

    // Writes settings.json from the current state; outside start-up also schedules a backup.
    void persistSettings();
    // The complete backup document of the current state.
    SettingsDoc settingsDocument() const;

    static constexpr Seconds kSettingsSaveDelay = SettingsPersistence::kSaveDelay;
    static inline const char* kScreenCaptureSettingsURL = DictationControl::kScreenCaptureSettingsURL;

private:
    AppStateDependencies d_;
    std::unique_ptr<AudioRecordingService>& engine_ = d_.audioRecordingService;
    std::unique_ptr<ModesViewModel> modesViewModel_;
    DictationControl dictation_;
    SettingsPersistence settings_;
    StartupSequence startup_;
    ModesMirror modesMirror_;
    TabMemory tabs_;
};

}  // namespace vocle
