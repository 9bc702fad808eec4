#include "core/AppState.h"

#include <filesystem>

#include "backend/SettingsDocument.h"
#include "core/AppConstants.h"
#include "core/InitializationError.h"
#include "foundation/Log.h"

namespace vocle {

AppState::AppState(AppStateDependencies deps) : d_(std::move(deps)) {
    requiresSignIn.set(!d_.sessions.load().has_value());
    modesViewModel_ = std::make_unique<ModesViewModel>(d_.modeManager);
    log("AppState initializing");
    logAppDefaultValues();
    vocabulary.set(std::string());
    restoreSelectedTab();
    setupServices();
    d_.autoModeManager.start();
    subscribeToEngine();
    subscribeToModes();
    subscribeToSettingsChanges();
    sessionCancellable_ =
        d_.sessions.sessionDidChange.subscribe(token_.guard([this] { updateSignInState(); }), &d_.mainQueue);
    // The one path from a refused session to the sign-in screen, whichever request was refused.
    rejectionCancellable_ = d_.backend.sessionRejected.subscribe(token_.guard([this] { signOut(); }));
    updateSignInState();
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
    d_.mainQueue.postAfter(Seconds(0.1), token_.guard([this] {
        log("✨ Explicitly showing floating indicator from startRecording");
        d_.indicator.showIndicator();
        d_.mainQueue.postAfter(Seconds(0.5), token_.guard([this] {
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

// --- Start-up and sign-in ---

namespace {

std::string debugDescription(const BackendError& error) {
    std::string text = kindName(error.kind);
    if (error.kind == BackendError::Kind::serverError) {
        text += "(status: " + std::to_string(error.status) + ", message: \"" + error.message + "\")";
    } else if (!error.underlying.empty()) {
        text += "(\"" + error.underlying + "\")";
    }
    return text;
}

}  // namespace

void AppState::setupServices() {
    log("Setting up services");
    const bool signedIn = d_.sessions.load().has_value();
    requiresSignIn.set(!signedIn);
    if (!signedIn) {
        log("AppState: User needs to sign in first");
        return;
    }
    log("AppState: User already signed in, starting initialization");
    startInitialization();
}

void AppState::updateSignInState() {
    const auto session = d_.sessions.load();
    const bool previous = requiresSignIn.get();
    requiresSignIn.set(!session.has_value());
    log("AppState updated sign-in state. Requires sign-in: ", boolText(requiresSignIn.get()));
    if (previous && session) {
        log("AppState: User just signed in, starting initialization");
        startInitializationAfterSignIn();
    }
}

void AppState::startInitializationAfterSignIn() {
    log("AppState: Starting initialization after successful sign-in");
    if (auto session = d_.sessions.load()) {
        d_.backend.setAccessToken(session->accessToken);
        d_.backend.setRefreshToken(session->refreshToken);
        log("AppState: Updated BackendService access token");
    }
    startInitialization();
}

void AppState::startInitialization() {
    d_.mainQueue.post(token_.guard([this] { initializeApp(); }));
}

void AppState::retryInitialization() {
    initializationError.set(std::nullopt);
    startInitialization();
}

void AppState::initializeApp() {
    log("AppState: Starting app initialization...");
    log("AppState: Step A - Fetching mode types from backend...");
    const uint64_t run = nextInitializationRun_++;
    initializationRuns_.emplace(
        run, d_.backend.fetchSettings(token_.guard([this, run](Result<SettingsEnvelope, BackendError> result) {
            continueAfterTemplates(run, result);
        })));
}

void AppState::continueAfterTemplates(uint64_t run, const Result<SettingsEnvelope, BackendError>& result) {
    // The finished request is released on the next turn; it is still delivering now.
    d_.mainQueue.post(token_.guard([this, run] { initializationRuns_.erase(run); }));
    if (!result.ok()) {
        const auto& error = result.error();
        // A refused session also signs out, through the backend client's report.
        initializationFailed(debugDescription(error), error.errorDescription());
        return;
    }
    const auto& templates = result.value().templates;
    if (!templates) {
        initializationFailed("noTemplates", InitializationError::noTemplates().description());
        return;
    }
    // The settings half of the envelope is ignored on purpose: local files are the source of truth and
    // the backend only ever receives them.
    d_.storage.saveCloudTemplatesCache(toCompactJson(templates->toJson()));
    log("AppState: Cached ", templates->modeTypes.size(), " mode types");

    log("AppState: Step B - Checking local settings...");
    const bool settingsExist = std::filesystem::exists(d_.storage.appSupportDirectory() / "settings.json");
    log("AppState: Settings file exists: ", boolText(settingsExist));
    if (settingsExist) {
        log("AppState: Local settings found - loading them");
        loadLocalSettings();
    } else {
        log("AppState: No local settings - creating defaults");
        createDefaultSettings();
    }
    // Step C on a later turn, after the mode manager's own backup request of step B: the complete
    // document must be the last one the coordinator receives.
    d_.mainQueue.post(token_.guard([this] { finishInitialization(); }));
}

void AppState::finishInitialization() {
    log("AppState: Step C - Backing up settings to cloud...");
    d_.settingsCoordinator.scheduleBackup(settingsDocument());
    log("AppState: Backed up settings to cloud");
    log("AppState: Initialization complete!");
    isInitializing.set(false);
    initializationError.set(std::nullopt);
}

void AppState::initializationFailed(const std::string& debugText, const std::string& userMessage) {
    log("AppState: Initialization failed: ", debugText);
    // The loading overlay stays (isInitializing remains true) and offers "Try Again".
    initializationError.set(userMessage);
}

void AppState::loadLocalSettings() {
    const auto settings = d_.storage.loadSettings();
    std::vector<Replacement> loaded;
    for (const auto& stored : settings.textReplacements) loaded.push_back(stored.toReplacement());
    replacements.set(std::move(loaded));
    vocabulary.set(settings.vocabularyWords.empty() ? std::nullopt : std::optional(settings.vocabularyWords));
    auto& modeManager = d_.modeManager;
    modeManager.loadModes();
    const auto& modes = modeManager.modes.get();
    std::optional<Mode> last;
    if (settings.lastActiveModeId) {
        if (auto id = Uuid::parse(*settings.lastActiveModeId)) {
            for (const auto& m : modes) {
                if (m.id == *id) last = m;
            }
        }
    }
    if (last) {
        modeManager.setActiveMode(*last);
        log("AppState: Restored last active mode: '", last->name, "'");
    } else if (!modes.empty()) {
        // The first in list order, not the one marked default.
        const Mode first = modes.front();
        modeManager.setActiveMode(first);
        log("AppState: Set default mode: '", first.name, "'");
    }
    log("AppState: Loaded local settings");
}

void AppState::createDefaultSettings() {
    log("AppState: Creating default settings...");
    replacements.set(defaultTextReplacements());
    log("AppState: Created ", replacements.get().size(), " default text replacements");
    vocabulary.set(std::nullopt);
    log("AppState: Set default vocabulary: '", vocabulary.get().value_or("nil"), "'");
    log("AppState: Creating default modes...");
    d_.modeManager.createDefaultModesWithBackendTypes();
    log("AppState: ModeManager now has ", d_.modeManager.modes.get().size(), " modes");
    // Still initializing: this writes settings.json and schedules no backup.
    persistSettings();
    log("AppState: Created default settings - ", replacements.get().size(), " replacements, ",
        d_.modeManager.modes.get().size(), " modes");
}

void AppState::signOut() {
    log("AppState: Signing out user");
    d_.sessions.clear();
    d_.backend.setAccessToken("");
    d_.backend.setRefreshToken("");
    isInitializing.set(true);
    initializationError.set(std::nullopt);
    log("AppState: Sign out complete - user will see sign-in screen");
}

// --- Modes mirror and the debounced settings save ---

void AppState::subscribeToModes() {
    auto& manager = d_.modeManager;
    auto& viewModel = *modesViewModel_;
    MainQueue* q = &d_.mainQueue;
    cancellables_.push_back(
        manager.modes.subscribe(token_.guard([&viewModel](const std::vector<Mode>& modes) {
            log("AppState: ModeManager modes changed - ", modes.size(), " modes");
            viewModel.modes.set(modes);
            log("AppState: Updated ModesViewModel - now has ", viewModel.modes.get().size(), " modes");
        }),
                                q));
    cancellables_.push_back(manager.selectedMode.subscribe(
        token_.guard([&viewModel](const std::optional<Mode>& mode) { viewModel.selectedMode.set(mode); }),
        q));
    cancellables_.push_back(manager.isEditingMode.subscribe(
        token_.guard([&viewModel](const bool& editing) { viewModel.isEditingMode.set(editing); }), q));
    cancellables_.push_back(
        manager.activeMode.subscribe(token_.guard([&viewModel](const std::optional<Mode>& mode) {
            if (mode) log("Active mode changed to: ", mode->name);
            viewModel.activeMode.set(mode);
        }),
                                     q));
    modesViewModelCancellable_ = viewModel.changed.subscribe(token_.guard([this] { changed.emit(); }));
}

void AppState::subscribeToSettingsChanges() {
    // Judged when the value changes (always on the main queue), not a turn later, so that the writes
    // of the start-up run itself never schedule a save.
    auto trigger = token_.guard([this] {
        if (!isInitializing.get()) scheduleSettingsSave();
    });
    cancellables_.push_back(
        modesViewModel_->modes.subscribe([trigger](const std::vector<Mode>&) mutable { trigger(); }));
    cancellables_.push_back(
        replacements.subscribe([trigger](const std::vector<Replacement>&) mutable { trigger(); }));
    cancellables_.push_back(
        vocabulary.subscribe([trigger](const std::optional<std::string>&) mutable { trigger(); }));
}

void AppState::scheduleSettingsSave() {
    settingsSaveDebounce_.cancel();
    settingsSaveDebounce_ =
        d_.mainQueue.postAfter(Seconds(kSettingsSaveDelay), token_.guard([this] { persistSettings(); }));
}

void AppState::persistSettings() {
    auto settings = d_.storage.loadSettings();
    settings.textReplacements.clear();
    for (const auto& r : replacements.get())
        settings.textReplacements.push_back(StoredTextReplacement::fromReplacement(r));
    settings.vocabularyWords = vocabulary.get().value_or("");
    const auto& active = d_.modeManager.activeMode.get();
    settings.lastActiveModeId = active ? std::optional(active->id.string()) : std::nullopt;
    d_.storage.saveSettings(settings);
    if (!isInitializing.get()) {
        d_.settingsCoordinator.scheduleBackup(settingsDocument());
        log("AppState: Backed up settings to cloud");
    }
}

SettingsDoc AppState::settingsDocument() const {
    const auto& active = d_.modeManager.activeMode.get();
    return vocle::settingsDocument(d_.modeManager.modes.get(),
                                   active ? std::optional(active->id) : std::nullopt, vocabulary.get(),
                                   replacements.get());
}

}  // namespace vocle
