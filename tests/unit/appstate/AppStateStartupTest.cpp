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

class NullIndicator final : public RecordingIndicator {
  public:
    void showIndicator() override {}
    void hideIndicator() override {}
};

// The application state on the service graph: the real mode subsystem and backend client on the scripted
// network, signed out unless a session is stored first. The real wire is the integration tests' business.
// The state is built here rather than by ClientGraph so that the engine hands its recordings to the
// scripted processor.
struct StartupHarness : EngineHarness {
    LocalSettingsStore& modesStore = graph.modesStore;
    SessionStore& sessions = graph.sessions;
    std::unique_ptr<BackendService>& backend = graph.backend;
    std::unique_ptr<SettingsCoordinator>& coordinator = graph.settingsCoordinator;
    std::unique_ptr<ModeManager>& modes = graph.modeManager;
    AutoModeManager autoModes{queue, background, notifications, workspace, scripting, accessibility, graph.random};
    NullIndicator indicator;
    std::unique_ptr<AppState> app;

    // The graph is made before the test stores a session; a client made afterwards, as at the next
    // start, would have read it.
    void build() {
        if (auto session = sessions.load()) {
            backend->setAccessToken(session->accessToken);
            backend->setRefreshToken(session->refreshToken);
        }
        app = std::make_unique<AppState>(AppStateDependencies{queue, *modes, std::move(engine), *systemAudio,
                                                              indicator, screen, alerts, urlOpener, storage,
                                                              sessions, *backend, *coordinator, autoModes});
    }
    ~StartupHarness() { app.reset(); }
    std::filesystem::path settingsFile() const { return data.path() / "Vocle" / "settings.json"; }
};

TEST(AppStateStartupUnit, WithoutASessionTheSignInGateHoldsAndEditsAreKeptInMemoryOnly) {
    StartupHarness h;
    h.build();
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.app->requiresSignIn.get());
    EXPECT_TRUE(h.app->isInitializing.get());
    EXPECT_TRUE(h.logs->contains("AppState: User needs to sign in first"));
    EXPECT_TRUE(h.logs->contains("AppState updated sign-in state. Requires sign-in: true"));
    EXPECT_FALSE(h.logs->contains("Starting app initialization"));

    h.app->vocabulary.set(std::string("Kubernetes"));
    h.app->replacements.set({Replacement::make("sig", "Ada")});
    h.queue.advance(5.0);
    EXPECT_FALSE(std::filesystem::exists(h.settingsFile()));
    EXPECT_FALSE(h.coordinator->hasPendingBackup());
}

TEST(AppStateStartupUnit, PersistingKeepsTheOtherSettingsAndWritesNoneForNilAndNoActiveMode) {
    StartupHarness h;
    AppSettings before;
    before.soundVolume = 0.25;
    before.enableSoundEffects = false;
    before.inputDeviceUID = std::string("alsa_input.usb-mic");
    before.toggleShortcut = std::string(R"({"keyCode":49,"modifiersRaw":524288})");
    before.lastActiveModeId = Uuid::random().string();
    before.vocabularyWords = "old";
    h.storage.saveSettings(before);
    h.build();
    h.app->replacements.set({Replacement::make("new line", "\n"), Replacement::make("sig", "Ada")});
    h.app->vocabulary.set(std::nullopt);
    h.app->persistSettings();

    const auto after = h.storage.loadSettings();
    EXPECT_DOUBLE_EQ(after.soundVolume, 0.25);
    EXPECT_FALSE(after.enableSoundEffects);
    EXPECT_EQ(after.inputDeviceUID, "alsa_input.usb-mic");
    EXPECT_EQ(after.toggleShortcut, before.toggleShortcut);
    EXPECT_EQ(after.vocabularyWords, "");
    EXPECT_FALSE(after.lastActiveModeId.has_value()) << "no active mode";
    ASSERT_EQ(after.textReplacements.size(), 2u);
    EXPECT_EQ(after.textReplacements[1].from, "sig");
    EXPECT_EQ(after.textReplacements[1].to, "Ada");
    EXPECT_FALSE(h.coordinator->hasPendingBackup()) << "no backup while initializing";
    EXPECT_FALSE(readText(h.settingsFile()).find("lastActiveModeId") != std::string::npos);
}

TEST(AppStateStartupUnit, TheBackupDocumentFollowsTheCurrentState) {
    StartupHarness h;
    h.build();
    Mode plain = Mode::fresh("Plain");
    plain.type.reset();
    Mode site = Mode::fresh("Site");
    site.activationWebsite = "example.org";
    site.activationApplication = "firefox";
    h.modesStore.saveModes({plain, site});
    h.modes->loadModes();

    SettingsDoc doc = h.app->settingsDocument();
    ASSERT_TRUE(doc.modes.has_value());
    ASSERT_EQ(doc.modes->size(), 2u);
    EXPECT_EQ((*doc.modes)[0].type, "Custom");
    EXPECT_FALSE((*doc.modes)[0].activationWebsite.has_value());
    EXPECT_EQ((*doc.modes)[1].activationWebsite, "example.org");
    EXPECT_EQ((*doc.modes)[1].activationApplication, "firefox");
    EXPECT_EQ(doc.vocabWords, "") << "construction sets an empty vocabulary";
    EXPECT_FALSE(doc.lastActiveModeId.has_value());
    ASSERT_TRUE(doc.textReplacements.has_value());
    EXPECT_TRUE(doc.textReplacements->empty());

    h.modes->setActiveMode(site);
    h.app->vocabulary.set(std::nullopt);
    doc = h.app->settingsDocument();
    EXPECT_EQ(doc.lastActiveModeId, site.id.string());
    EXPECT_EQ(doc.vocabWords, "");
}

TEST(AppStateStartupUnit, SignOutClearsTheSessionAndTheClientsTokens) {
    StartupHarness h;
    h.sessions.save({"access-1", "refresh-1", "user-42", "ada@example.org"});
    h.build();
    EXPECT_FALSE(h.app->requiresSignIn.get());
    EXPECT_EQ(h.backend->accessToken(), "access-1");
    h.app->initializationError.set(std::string("Please sign in again."));
    h.app->signOut();
    EXPECT_TRUE(h.app->isInitializing.get());
    EXPECT_FALSE(h.app->initializationError.get().has_value());
    EXPECT_EQ(h.backend->accessToken(), "");
    EXPECT_EQ(h.backend->refreshToken(), "");
    EXPECT_FALSE(h.sessions.load().has_value());
    h.queue.runUntilIdle();
    EXPECT_TRUE(h.app->requiresSignIn.get());
    EXPECT_TRUE(h.logs->contains("AppState: Signing out user"));
    EXPECT_TRUE(h.logs->contains("Session cleared"));
    EXPECT_TRUE(h.logs->contains("AppState: Sign out complete - user will see sign-in screen"));
}

const char* kEnvelopeWithTemplates =
    R"({"settings_version": 1, "templates_version": 7, "templates": {"mode_types": [
    {"id": "22222222-2222-2222-2222-222222222222", "name": "Clean", "prompt": "Remove fillers.",
     "language": "English", "display": true}]}})";

TEST(AppStateStartupUnit, ABackendFailureIsShownAfterTheLastRetryAndTryAgainRunsTheWholeStartUp) {
    StartupHarness h;
    h.sessions.save({"access-1", "refresh-1", "user-42", "ada@example.org"});
    for (int i = 0; i < 4; ++i) h.network->replyStatus(503, "down");
    h.build();
    const double start = h.queue.now();
    h.queue.runUntilIdle();
    ASSERT_EQ(h.network->sent().size(), 1u);
    EXPECT_EQ(h.network->sent()[0].path(), "/settings");
    EXPECT_EQ(h.network->sent()[0].request.method, "GET");
    EXPECT_TRUE(h.logs->contains("AppState: Step A - Fetching mode types from backend..."));

    h.queue.advance(6.9);
    EXPECT_FALSE(h.app->initializationError.get().has_value()) << "still retrying";
    h.queue.advance(0.1);
    ASSERT_EQ(h.network->sent().size(), 4u);
    EXPECT_DOUBLE_EQ(h.network->sent()[3].sentAt - start, 7.0);
    EXPECT_EQ(h.app->initializationError.get(),
              "Our servers are having issues. Please try again in a moment.");
    EXPECT_TRUE(h.app->isInitializing.get());
    EXPECT_FALSE(h.app->requiresSignIn.get());
    EXPECT_TRUE(h.sessions.load().has_value()) << "a server failure keeps the user signed in";
    EXPECT_TRUE(
        h.logs->contains("AppState: Initialization failed: serverError(status: 503, message: \"down\")"));
    EXPECT_FALSE(std::filesystem::exists(h.settingsFile())) << "nothing past step A ran";

    // "Try Again": the error goes at once, the new run fetches again and goes on to steps B and C.
    h.network->replyStatus(200, kEnvelopeWithTemplates);
    h.app->retryInitialization();
    EXPECT_FALSE(h.app->initializationError.get().has_value());
    h.queue.runUntilIdle();
    ASSERT_EQ(h.network->sent().size(), 5u);
    EXPECT_FALSE(h.app->isInitializing.get());
    EXPECT_TRUE(std::filesystem::exists(h.settingsFile()));
    EXPECT_TRUE(h.logs->contains("AppState: Cached 1 mode types"));
    EXPECT_TRUE(h.logs->contains("AppState: No local settings - creating defaults"));
    ASSERT_TRUE(h.coordinator->hasPendingBackup());

    // Step C: the complete document, once, one and a half seconds later.
    h.network->replyStatus(200, R"({"settings": {}, "settings_version": 2})");
    h.queue.advance(1.4);
    EXPECT_EQ(h.network->sent().size(), 5u);
    h.queue.advance(0.1);
    ASSERT_EQ(h.network->sent().size(), 6u);
    const auto& backup = h.network->sent()[5];
    EXPECT_EQ(backup.request.method, "POST");
    EXPECT_EQ(backup.path(), "/settings");
    const Json body = Json::parse(backup.body());
    ASSERT_TRUE(body.contains("settings"));
    EXPECT_EQ(body["settings"]["modes"].size(), h.modes->modes.get().size());
    EXPECT_EQ(body["settings"]["text_replacements"].size(), h.app->replacements.get().size());
    EXPECT_FALSE(body.contains("if_match_version"));
    h.queue.advance(10.0);
    EXPECT_EQ(h.network->sent().size(), 6u);
    EXPECT_TRUE(h.logs->contains("SettingsCoordinator: Cloud backup successful, version 2"));
}

TEST(AppStateStartupUnit, AStartUpAndABackupRefusedTogetherSignOutOnce) {
    StartupHarness h;
    h.sessions.save({"access-1", "refresh-1", "user-42", "ada@example.org"});
    h.build();
    h.queue.runUntilIdle();
    h.coordinator->scheduleBackup(h.app->settingsDocument());
    h.queue.advance(1.5);
    ASSERT_EQ(h.network->waiting().size(), 2u);
    int sessionChanges = 0;
    auto watch = h.sessions.sessionDidChange.subscribe([&] { ++sessionChanges; });

    h.network->answer(0, FakeHttpTransport::response(401, R"({"error": "expired"})"));
    h.network->answer(1, FakeHttpTransport::response(401, R"({"error": "expired"})"));
    h.queue.runUntilIdle();
    EXPECT_EQ(h.logs->count("AppState: Signing out user"), 1u);
    EXPECT_EQ(h.logs->count("AppState: Sign out complete - user will see sign-in screen"), 1u);
    EXPECT_EQ(sessionChanges, 1);
    EXPECT_TRUE(h.logs->contains("AppState: Initialization failed: authenticationFailed"));
    EXPECT_TRUE(h.logs->contains("SettingsCoordinator: Cloud backup failed - Please sign in again."));
    EXPECT_TRUE(h.app->requiresSignIn.get());
    EXPECT_TRUE(h.app->isInitializing.get());
    EXPECT_FALSE(h.app->initializationError.get().has_value()) << "sign-out clears the error it followed";
    EXPECT_FALSE(h.sessions.load().has_value());
    EXPECT_EQ(h.backend->accessToken(), "");

    // Edits made while signed out schedule nothing, so no refused backup follows.
    h.app->vocabulary.set(std::string("offline"));
    h.queue.advance(10.0);
    EXPECT_EQ(h.network->sent().size(), 2u);
    EXPECT_EQ(h.logs->count("AppState: Signing out user"), 1u);
}

TEST(AppStateStartupUnit, WithTwoRunsUnderWayTheLastToFinishDecides) {
    StartupHarness h;
    h.sessions.save({"access-1", "refresh-1", "user-42", "ada@example.org"});
    h.build();
    h.queue.runUntilIdle();
    h.app->retryInitialization();
    h.queue.runUntilIdle();
    ASSERT_EQ(h.network->waiting().size(), 2u);

    h.network->answer(1, FakeHttpTransport::response(200, kEnvelopeWithTemplates), 1.0);
    h.network->answer(0, FakeHttpTransport::response(404, R"({"error": "gone"})"), 2.0);
    h.queue.advance(1.0);
    EXPECT_FALSE(h.app->isInitializing.get());
    EXPECT_FALSE(h.app->initializationError.get().has_value());
    h.queue.advance(1.0);
    EXPECT_EQ(h.app->initializationError.get(), "Something went wrong. Please try again.");
    EXPECT_EQ(h.logs->count("AppState: Initialization failed: serverError(status: 404, message: \"gone\")"),
              1u);
}

}  // namespace
