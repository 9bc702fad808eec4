#include "appstate/AppState.h"

#include "core/AppConstants.h"
#include "foundation/Log.h"

namespace vocle {

AppState::AppState(AppStateDependencies deps)
    : d_(std::move(deps)),
      modesViewModel_(std::make_unique<ModesViewModel>(d_.modeManager)),
      dictation_({d_.mainQueue, d_.modeManager, d_.systemAudio, d_.indicator, d_.screenCapture, d_.alerts,
                  d_.urlOpener, d_.storage},
                 *engine_, {isRecording, isProcessing, transcribedText, replacements, vocabulary}),
      settings_(d_.mainQueue, d_.storage, d_.modeManager, *modesViewModel_, d_.settingsCoordinator,
                {replacements, vocabulary, isInitializing}),
      startup_(d_.mainQueue, d_.storage, d_.sessions, d_.backend, d_.modeManager, d_.settingsCoordinator, settings_,
               {replacements, vocabulary, isInitializing}, {requiresSignIn, isInitializing, initializationError}),
      modesMirror_(d_.mainQueue, d_.modeManager, *modesViewModel_, changed),
      tabs_(d_.mainQueue, d_.storage, selectedTab, isInitializing) {
    requiresSignIn.set(!d_.sessions.load().has_value());
    log("AppState initializing");
    logAppDefaultValues();
    vocabulary.set(std::string());
    tabs_.restore();
    startup_.setupServices();
    d_.autoModeManager.start();
    dictation_.followEngine();
    modesMirror_.start();
    settings_.startWatching();
    startup_.watchSession();
    startup_.updateSignInState();
    tabs_.startPersisting();
}

AppState::~AppState() = default;

void AppState::toggleRecording() { dictation_.toggle(); }
void AppState::startRecording() { dictation_.start(); }
void AppState::stopRecording() { dictation_.stop(); }
void AppState::cancelRecording() { dictation_.cancel(); }

void AppState::initializeApp() { startup_.initializeApp(); }
void AppState::retryInitialization() { startup_.retry(); }
void AppState::signOut() { startup_.signOut(); }

void AppState::persistSettings() { settings_.persist(); }
SettingsDoc AppState::settingsDocument() const { return settings_.document(); }

}  // namespace vocle
