#include <gtest/gtest.h>

#include "core/AppState.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeBrowserScripting.h"
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

// The application state with the real mode subsystem and backend client, signed out unless a session is
// stored first. Nothing here reaches a backend: the start-up run against one is an integration test.
struct StartupHarness : EngineHarness {
    LocalSettingsStore modesStore{DataFolder(data.path()), queue};
    SessionStore sessions{storage};
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<SettingsCoordinator> coordinator;
    std::unique_ptr<ModeManager> modes;
    FakeWorkspace workspace;
    FakeBrowserScripting scripting;
    FakeAccessibility accessibility;
    SystemRandomSource random;
    std::unique_ptr<AutoModeManager> autoModes;
    NullIndicator indicator;
    FakeUrlOpener urls;
    std::unique_ptr<AppState> app;

    void build() {
        backend = std::make_unique<BackendService>("http://127.0.0.1:9", "", queue, sessions, storage);
        coordinator = std::make_unique<SettingsCoordinator>(queue, *backend);
        modes = std::make_unique<ModeManager>(queue, notifications, modesStore, storage, *coordinator);
        autoModes = std::make_unique<AutoModeManager>(queue, background, notifications, workspace, scripting,
                                                      accessibility, random);
        app = std::make_unique<AppState>(AppStateDependencies{queue, *modes, std::move(engine), *systemAudio,
                                                              indicator, screen, alerts, urls, storage,
                                                              sessions, *backend, *coordinator, *autoModes});
    }
    ~StartupHarness() {
        app.reset();
        autoModes.reset();
        modes.reset();
        coordinator.reset();
        backend.reset();
    }
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

}  // namespace
