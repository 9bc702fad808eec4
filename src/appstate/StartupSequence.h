#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "appstate/SettingsPersistence.h"
#include "backend/BackendError.h"
#include "backend/BackendService.h"
#include "backend/SettingsClient.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/AutoModeManager.h"
#include "modes/ModeManager.h"
#include "storage/FileStorageManager.h"
#include "storage/SessionStore.h"

namespace vocle {

// What the start-up shows: the sign-in screen, the loading overlay and its error.
struct StartupStatus {
    Observable<bool>& requiresSignIn;
    Observable<bool>& isInitializing;
    Observable<std::optional<std::string>>& initializationError;
};

// Sign-in and the start-up run: step A fetches the mode types, step B loads the local settings (or
// writes the first-run defaults), step C backs the complete settings up. It runs when the app starts
// signed in and again after each sign-in; a refused session signs out. Main queue only.
class StartupSequence {
public:
    StartupSequence(MainQueue& mainQueue, const FileStorageManager& storage, SessionStore& sessions,
                    BackendService& backend, ModeManager& modeManager, SettingsCoordinator& coordinator,
                    SettingsPersistence& persistence, EditableSettings settings, StartupStatus status);

    // Starts the run when a session is stored; otherwise the sign-in screen stays.
    void setupServices();
    // Follows the stored session and the backend's report of a refused one.
    void watchSession();
    void updateSignInState();

    void initializeApp();
    // The loading overlay's "Try Again": clears the error shown and runs the start-up again.
    void retry();
    void signOut();

private:
    void startAfterSignIn();
    void start();
    void continueAfterTemplates(uint64_t run, const Result<SettingsEnvelope, BackendError>& result);
    void finish();
    void failed(const std::string& debugDescription, const std::string& userMessage);
    void loadLocalSettings();
    void createDefaultSettings();

    MainQueue& mainQueue_;
    const FileStorageManager& storage_;
    SessionStore& sessions_;
    BackendService& backend_;
    SettingsClient settingsClient_{backend_};
    ModeManager& modeManager_;
    SettingsCoordinator& coordinator_;
    SettingsPersistence& persistence_;
    EditableSettings settings_;
    StartupStatus status_;
    Subscription sessionSubscription_;
    Subscription rejectionSubscription_;
    // Runs still waiting for the backend; a "Try Again" during one lets both finish.
    std::map<uint64_t, Subscription> runs_;
    uint64_t nextRun_ = 0;
    OwnerToken token_;
};

}  // namespace vocle
