#include "appstate/StartupSequence.h"

#include <filesystem>

#include "core/InitializationError.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

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

StartupSequence::StartupSequence(MainQueue& mainQueue, const FileStorageManager& storage, SessionStore& sessions,
                                 BackendService& backend, ModeManager& modeManager,
                                 SettingsCoordinator& coordinator, SettingsPersistence& persistence,
                                 EditableSettings settings, StartupStatus status)
    : mainQueue_(mainQueue),
      storage_(storage),
      sessions_(sessions),
      backend_(backend),
      modeManager_(modeManager),
      coordinator_(coordinator),
      persistence_(persistence),
      settings_(settings),
      status_(status) {}

void StartupSequence::setupServices() {
    log("Setting up services");
    const bool signedIn = sessions_.load().has_value();
    status_.requiresSignIn.set(!signedIn);
    if (!signedIn) {
        log("AppState: User needs to sign in first");
        return;
    }
    log("AppState: User already signed in, starting initialization");
    start();
}

void StartupSequence::watchSession() {
    sessionSubscription_ =
        sessions_.sessionDidChange.subscribe(token_.guard([this] { updateSignInState(); }), &mainQueue_);
    // The one path from a refused session to the sign-in screen, whichever request was refused.
    rejectionSubscription_ = backend_.sessionRejected.subscribe(token_.guard([this] { signOut(); }));
}

void StartupSequence::updateSignInState() {
    const auto session = sessions_.load();
    const bool previous = status_.requiresSignIn.get();
    status_.requiresSignIn.set(!session.has_value());
    log("AppState updated sign-in state. Requires sign-in: ", boolText(status_.requiresSignIn.get()));
    if (previous && session) {
        log("AppState: User just signed in, starting initialization");
        startAfterSignIn();
    }
}

void StartupSequence::startAfterSignIn() {
    log("AppState: Starting initialization after successful sign-in");
    if (auto session = sessions_.load()) {
        backend_.setAccessToken(session->accessToken);
        backend_.setRefreshToken(session->refreshToken);
        log("AppState: Updated BackendService access token");
    }
    start();
}

void StartupSequence::start() {
    mainQueue_.post(token_.guard([this] { initializeApp(); }));
}

void StartupSequence::retry() {
    status_.initializationError.set(std::nullopt);
    start();
}

void StartupSequence::initializeApp() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("AppState: Starting app initialization...");
    log("AppState: Step A - Fetching mode types from backend...");
    const uint64_t run = nextRun_++;
    runs_.emplace(run, settingsClient_.fetchSettings(
                           token_.guard([this, run](Result<SettingsEnvelope, BackendError> result) {
                               continueAfterTemplates(run, result);
                           })));
}

void StartupSequence::continueAfterTemplates(uint64_t run, const Result<SettingsEnvelope, BackendError>& result) {
    // The finished request is released on the next turn; it is still delivering now.
    mainQueue_.post(token_.guard([this, run] { runs_.erase(run); }));
    if (!result.ok()) {
        const auto& error = result.error();
        // A refused session also signs out, through the backend client's report.
        failed(debugDescription(error), error.errorDescription());
        return;
    }
    const auto& templates = result.value().templates;
    if (!templates) {
        failed("noTemplates", InitializationError::noTemplates().description());
        return;
    }
    // The settings half of the envelope is ignored on purpose: local files are the source of truth and
    // the backend only ever receives them.
    storage_.saveCloudTemplatesCache(toCompactJson(templates->toJson()));
    log("AppState: Cached ", templates->modeTypes.size(), " mode types");

    log("AppState: Step B - Checking local settings...");
    const bool settingsExist = std::filesystem::exists(storage_.appSupportDirectory() / "settings.json");
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
    mainQueue_.post(token_.guard([this] { finish(); }));
}

void StartupSequence::finish() {
    log("AppState: Step C - Backing up settings to cloud...");
    coordinator_.scheduleBackup(persistence_.document());
    log("AppState: Backed up settings to cloud");
    log("AppState: Initialization complete!");
    status_.isInitializing.set(false);
    status_.initializationError.set(std::nullopt);
}

void StartupSequence::failed(const std::string& debugText, const std::string& userMessage) {
    log("AppState: Initialization failed: ", debugText);
    // The loading overlay stays (isInitializing remains true) and offers "Try Again".
    status_.initializationError.set(userMessage);
}

void StartupSequence::loadLocalSettings() {
    const auto settings = storage_.loadSettings();
    std::vector<Replacement> loaded;
    for (const auto& stored : settings.textReplacements) loaded.push_back(stored.toReplacement());
    settings_.replacements.set(std::move(loaded));
    settings_.vocabulary.set(settings.vocabularyWords.empty() ? std::nullopt
                                                              : std::optional(settings.vocabularyWords));
    modeManager_.loadModes();
    const auto& modes = modeManager_.modes.get();
    std::optional<Mode> last;
    if (settings.lastActiveModeId) {
        if (auto id = Uuid::parse(*settings.lastActiveModeId)) {
            for (const auto& m : modes) {
                if (m.id == *id) last = m;
            }
        }
    }
    if (last) {
        modeManager_.setActiveMode(*last);
        log("AppState: Restored last active mode: '", last->name, "'");
    } else if (!modes.empty()) {
        // The first in list order, not the one marked default.
        const Mode first = modes.front();
        modeManager_.setActiveMode(first);
        log("AppState: Set default mode: '", first.name, "'");
    }
    log("AppState: Loaded local settings");
}

void StartupSequence::createDefaultSettings() {
    log("AppState: Creating default settings...");
    settings_.replacements.set(defaultTextReplacements());
    log("AppState: Created ", settings_.replacements.get().size(), " default text replacements");
    settings_.vocabulary.set(std::nullopt);
    log("AppState: Set default vocabulary: '", settings_.vocabulary.get().value_or("nil"), "'");
    log("AppState: Creating default modes...");
    modeManager_.createDefaultModesWithBackendTypes();
    log("AppState: ModeManager now has ", modeManager_.modes.get().size(), " modes");
    // Still initializing: this writes settings.json and schedules no backup.
    persistence_.persist();
    log("AppState: Created default settings - ", settings_.replacements.get().size(), " replacements, ",
        modeManager_.modes.get().size(), " modes");
}

void StartupSequence::signOut() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    log("AppState: Signing out user");
    sessions_.clear();
    backend_.setAccessToken("");
    backend_.setRefreshToken("");
    status_.isInitializing.set(true);
    status_.initializationError.set(std::nullopt);
    log("AppState: Sign out complete - user will see sign-in screen");
}

}  // namespace vocle
