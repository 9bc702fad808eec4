#include <gtest/gtest.h>

#include "core/AppConstants.h"
#include "integration/modes/AppStateGraph.h"

using namespace vocle;
using vocle::testing::AppStateGraph;
using vocle::testing::readText;
using vocle::testing::runUntil;

namespace {

Mode namedMode(const std::string& name, bool isDefault = false) {
    Mode m = Mode::fresh(name);
    m.isDefault = isDefault;
    return m;
}

TEST(AppStateStartup, FirstLaunchCreatesDefaultsAndBacksUpTheCompleteDocumentOnce) {
    AppStateGraph g;
    auto& app = g.app();
    EXPECT_FALSE(app.requiresSignIn.get());
    EXPECT_TRUE(app.isInitializing.get());
    EXPECT_EQ(app.selectedTab.get(), Tab::home);
    ASSERT_TRUE(g.waitForStartup());
    const double ready = g.queue.now();
    ASSERT_FALSE(app.initializationError.get().has_value());
    EXPECT_FALSE(app.isInitializing.get());

    // Defaults: templates cached, one "Default" mode typed from the catalogue, ten replacements.
    EXPECT_TRUE(g.files.loadCloudTemplatesCache().has_value());
    EXPECT_TRUE(g.logs->contains("AppState: Cached 2 mode types"));
    ASSERT_EQ(g.modeManager->modes.get().size(), 1u);
    const Mode def = g.modeManager->modes.get()[0];
    EXPECT_EQ(def.type, "Clean");
    EXPECT_EQ(g.modeManager->activeMode.get()->id, def.id);
    EXPECT_EQ(app.replacements.get().size(), 10u);
    EXPECT_FALSE(app.vocabulary.get().has_value());
    EXPECT_TRUE(g.logs->contains("AppState: Set default vocabulary: 'nil'"));
    EXPECT_TRUE(g.logs->contains("AppState: Created default settings - 10 replacements, 1 modes"));
    const auto settings = g.files.loadSettings();
    EXPECT_EQ(settings.textReplacements.size(), 10u);
    EXPECT_EQ(settings.lastActiveModeId, def.id.string());
    EXPECT_EQ(g.modesStore.loadModes()->size(), 1u) << "what `vocle-cli modes` prints";
    EXPECT_EQ(app.modesViewModel().modes.get().size(), 1u);

    // One upload, 1.5 s after start-up, of the complete document.
    g.queue.advance(1.49);
    ASSERT_TRUE(g.waitForUploads(0));
    EXPECT_TRUE(g.server.requests("POST", "/settings").empty());
    g.queue.advance(0.01);
    ASSERT_TRUE(g.waitForUploads(1));
    EXPECT_DOUBLE_EQ(g.queue.now() - ready, 1.5);
    g.queue.advance(10.0);
    ASSERT_TRUE(g.waitForUploads(1));
    const auto uploads = g.server.requests("POST", "/settings");
    ASSERT_EQ(uploads.size(), 1u);
    const Json doc = uploads[0].body.at("settings");
    EXPECT_EQ(doc.at("modes").size(), 1u);
    EXPECT_EQ(doc.at("text_replacements").size(), 10u);
    EXPECT_EQ(doc.at("text_replacements")[0], (Json{{"from", "slack at here"}, {"to", "@here"}}));
    EXPECT_EQ(doc.at("vocab_words"), "");
    EXPECT_EQ(doc.at("last_active_mode_id"), def.id.string());
    EXPECT_EQ(g.server.requests("GET", "/settings").size(), 1u) << "one start-up run";
}

TEST(AppStateStartup, LaterLaunchesRestoreTheLastActiveModeOrFallBackToTheFirst) {
    AppStateGraph g;
    const Mode work = namedMode("Work");
    const Mode def = namedMode("Default", true);
    g.modesStore.saveModes({work, def});
    AppSettings settings;
    settings.vocabularyWords = "Kubernetes, Vocle";
    settings.textReplacements = {StoredTextReplacement::fromReplacement(Replacement::make("new line", "\n"))};
    settings.lastActiveModeId = "not-a-uuid";
    g.files.saveSettings(settings);
    OnboardingState onboarding;
    onboarding.isFirstLaunch = false;
    onboarding.lastSelectedTab = -1;
    g.files.saveOnboardingState(onboarding);

    auto& app = g.app();
    EXPECT_EQ(app.selectedTab.get(), 0) << "a negative saved tab is clamped";
    ASSERT_TRUE(g.waitForStartup());
    EXPECT_EQ(g.modeManager->activeMode.get()->name, "Work") << "the first mode, not the default one";
    EXPECT_TRUE(g.logs->contains("AppState: Set default mode: 'Work'"));
    EXPECT_EQ(app.vocabulary.get(), "Kubernetes, Vocle");
    ASSERT_EQ(app.replacements.get().size(), 1u);
    EXPECT_EQ(app.replacements.get()[0].replacement, "\n");
    EXPECT_EQ(g.modeManager->modes.get().size(), 2u) << "no defaults added";
}

TEST(AppStateStartup, AStoredActiveModeIsRestored) {
    AppStateGraph g;
    const Mode work = namedMode("Work");
    const Mode def = namedMode("Default", true);
    g.modesStore.saveModes({work, def});
    AppSettings settings;
    settings.lastActiveModeId = def.id.string();
    g.files.saveSettings(settings);
    g.app();
    ASSERT_TRUE(g.waitForStartup());
    EXPECT_EQ(g.modeManager->activeMode.get()->id, def.id);
    EXPECT_TRUE(g.logs->contains("AppState: Restored last active mode: 'Default'"));
    EXPECT_FALSE(g.app().vocabulary.get().has_value()) << "an empty stored vocabulary reads as none";
}

TEST(AppStateStartup, AnEnvelopeWithoutTemplatesFailsButKeepsTheUserSignedIn) {
    AppStateGraph g;
    g.server.setTemplates(std::nullopt);
    auto& app = g.app();
    ASSERT_TRUE(g.waitForStartup());
    EXPECT_EQ(app.initializationError.get(), "Failed to load mode types from server");
    EXPECT_TRUE(app.isInitializing.get());
    g.queue.runUntilIdle();
    EXPECT_FALSE(app.requiresSignIn.get());
    EXPECT_TRUE(g.sessions.load().has_value());
    EXPECT_TRUE(g.logs->contains("AppState: Initialization failed: noTemplates"));
    EXPECT_FALSE(std::filesystem::exists(g.settingsFile())) << "nothing past step A ran";

    // "Try Again" once the catalogue is back.
    g.server.setTemplates(vocle::testing::LoopbackBackend::catalogue());
    app.retryInitialization();
    EXPECT_FALSE(app.initializationError.get().has_value());
    ASSERT_TRUE(runUntil(g.queue, [&] { return !app.isInitializing.get(); }));
    EXPECT_EQ(g.modeManager->modes.get().size(), 1u);
}

TEST(AppStateStartup, ARejectedSessionAtStartUpSignsOut) {
    AppStateGraph g;
    g.server.rejectSessions(true);
    auto& app = g.app();
    ASSERT_TRUE(runUntil(g.queue, [&] { return app.requiresSignIn.get(); }));
    EXPECT_TRUE(app.isInitializing.get());
    EXPECT_FALSE(g.sessions.load().has_value());
    EXPECT_EQ(g.backend->accessToken(), "");
    EXPECT_EQ(g.backend->refreshToken(), "");
    EXPECT_TRUE(g.logs->contains("AppState: Initialization failed: authenticationFailed"));
    EXPECT_TRUE(g.logs->contains("AppState: Sign out complete - user will see sign-in screen"));
    EXPECT_EQ(g.server.requests("GET", "/settings").size(), 1u) << "a 401 is not retried";
}

TEST(AppStateStartup, SigningInLaterRunsStartUpOnceWithTheNewTokens) {
    AppStateGraph g(false);
    auto& app = g.app();
    EXPECT_TRUE(app.requiresSignIn.get());
    EXPECT_TRUE(g.logs->contains("AppState: User needs to sign in first"));
    g.queue.advance(5.0);
    EXPECT_TRUE(g.server.requests("GET", "/settings").empty());

    SignInViewModel signIn(g.queue, *g.backend, g.sessions);
    signIn.email.set("ada@example.org");
    signIn.sendCode();
    ASSERT_TRUE(runUntil(g.queue, [&] { return signIn.step.get() == 2; }));
    signIn.code.set("123456");
    signIn.verifyCode();
    ASSERT_TRUE(runUntil(g.queue, [&] { return !app.isInitializing.get(); }));
    EXPECT_FALSE(app.requiresSignIn.get());
    EXPECT_EQ(g.logs->count("AppState: User just signed in, starting initialization"), 1u);
    const auto fetches = g.server.requests("GET", "/settings");
    ASSERT_EQ(fetches.size(), 1u);
    EXPECT_EQ(fetches[0].authorization, "Bearer access-1;refresh=refresh-1");
}

TEST(AppStateStartup, SignOutReturnsToTheSignInScreenAndTheNextSignInReloadsTheSameSettings) {
    AppStateGraph g;
    auto& app = g.app();
    ASSERT_TRUE(g.waitForStartup());
    const Uuid modeId = g.modeManager->modes.get()[0].id;
    app.signOut();
    g.queue.runUntilIdle();
    EXPECT_TRUE(app.requiresSignIn.get());
    EXPECT_TRUE(app.isInitializing.get());
    EXPECT_FALSE(std::filesystem::exists(g.folder.appSupportDirectory() / "session.json"));

    // Edits while signed out are kept in memory only.
    app.vocabulary.set(std::string("offline words"));
    g.queue.advance(3.0);
    EXPECT_EQ(g.files.loadSettings().vocabularyWords, "");

    g.sessions.save({g.server.validAccessToken, "refresh-1", "user-42", "ada@example.org"});
    ASSERT_TRUE(runUntil(g.queue, [&] { return !app.isInitializing.get(); }));
    EXPECT_EQ(g.modeManager->modes.get().size(), 1u);
    EXPECT_EQ(g.modeManager->modes.get()[0].id, modeId) << "the same local modes, no new defaults";
    EXPECT_TRUE(g.logs->contains("AppState: Local settings found - loading them"));
}

TEST(AppStateSettingsSave, ABurstOfEditsWritesOnceAndBacksUpTheCompleteDocument) {
    AppStateGraph g;
    auto& app = g.app();
    ASSERT_TRUE(g.waitForStartup());
    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(1));
    g.logs->clear();

    for (int i = 0; i < 10; ++i) {
        app.vocabulary.set("word" + std::to_string(i));
        g.queue.advance(0.1);
    }
    auto replacements = app.replacements.get();
    replacements.push_back(Replacement::make("sig", "Best, Ada"));
    app.replacements.set(replacements);
    g.queue.advance(1.49);
    EXPECT_EQ(g.logs->count("Settings saved to"), 0u);
    g.queue.advance(0.01);
    EXPECT_EQ(g.logs->count("Settings saved to"), 1u);
    EXPECT_EQ(g.files.loadSettings().vocabularyWords, "word9");
    EXPECT_EQ(g.files.loadSettings().textReplacements.size(), 11u);
    EXPECT_TRUE(g.logs->contains("AppState: Backed up settings to cloud"));

    g.queue.advance(1.5);
    ASSERT_TRUE(g.waitForUploads(2));
    const Json doc = g.server.storedSettings().value();
    EXPECT_EQ(doc.at("vocab_words"), "word9");
    EXPECT_EQ(doc.at("text_replacements").size(), 11u);

    // A cleared vocabulary is written and sent as "".
    app.vocabulary.set(std::nullopt);
    g.queue.advance(3.0);
    ASSERT_TRUE(g.waitForUploads(3));
    EXPECT_EQ(g.files.loadSettings().vocabularyWords, "");
    EXPECT_EQ(g.server.storedSettings()->at("vocab_words"), "");
}

TEST(AppStateSettingsSave, AModeEditReachesTheViewModelAndEndsInACompleteBackup) {
    AppStateGraph g;
    auto& app = g.app();
    ASSERT_TRUE(g.waitForStartup());
    app.vocabulary.set(std::string("Vocle"));
    int redraws = 0;
    auto sub = app.changed.subscribe([&] { ++redraws; });
    g.modeManager->createNewMode();
    Mode mode = *g.modeManager->selectedMode.get();
    mode.name = "Chat";
    g.modeManager->saveMode(mode);
    g.queue.runUntilIdle();
    EXPECT_EQ(app.modesViewModel().modes.get().size(), 2u);
    EXPECT_EQ(app.modesViewModel().activeMode.get()->name, "Chat");
    EXPECT_GT(redraws, 0);
    EXPECT_TRUE(g.logs->contains("AppState: ModeManager modes changed - 2 modes"));
    EXPECT_TRUE(g.logs->contains("AppState: Updated ModesViewModel - now has 2 modes"));
    EXPECT_TRUE(g.logs->contains("Active mode changed to: Chat"));

    // Start-up's backup, the mode manager's and the application state's fall in one burst: one upload.
    g.queue.advance(5.0);
    ASSERT_TRUE(g.waitForUploads(1));
    g.queue.advance(5.0);
    ASSERT_TRUE(g.waitForUploads(1));
    EXPECT_EQ(g.server.requests("POST", "/settings").size(), 1u);
    const Json doc = g.server.storedSettings().value();
    EXPECT_EQ(doc.at("modes").size(), 2u);
    EXPECT_EQ(doc.at("vocab_words"), "Vocle") << "the application state's document is the last one";
    EXPECT_EQ(doc.at("last_active_mode_id"), mode.id.string());
    EXPECT_EQ(g.files.loadSettings().lastActiveModeId, mode.id.string());
}

}  // namespace
