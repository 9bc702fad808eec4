#include <gtest/gtest.h>

#include "core/AppConstants.h"
#include "unit/desktop/DesktopRig.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

TEST(DictationApp, LaunchRunsInOrderAndStartsTheUpdaterOnlyThen) {
    DesktopRig rig;
    // AppState exists (its own start-up ran) before the launch sequence; the updater does not yet.
    EXPECT_GE(rig.lineOf("AppState initializing"), 0);
    EXPECT_FALSE(rig.graph->hasUpdaterManager());

    rig.app->applicationDidFinishLaunching();
    const char* order[] = {"AppState initializing",
                           "Application did finish launching",
                           "🔄 Initializing Sparkle UpdaterManager...",
                           "UpdaterManager initialized for automatic updates",
                           "Setting up keyboard monitors...",
                           "Keyboard shortcut monitoring delegated to ShortcutManager",
                           "Accessibility permissions granted"};
    long previous = -1;
    for (const char* line : order) {
        const long at = rig.lineOf(line);
        EXPECT_GT(at, previous) << line;
        previous = at;
    }
    EXPECT_TRUE(rig.alerts.shown.empty());

    rig.app->mainViewAppeared();
    const char* appear[] = {"MainView appeared", "💡 FloatingIndicatorManager: Setting up with AppState",
                            "💡 FloatingIndicatorManager setup complete",
                            "AppDelegate registered app state toggle handler"};
    for (const char* line : appear) {
        const long at = rig.lineOf(line);
        EXPECT_GT(at, previous) << line;
        previous = at;
    }
}

TEST(DictationApp, UntrustedLaunchShowsTheAlertOnceAndItsButtonEnablesAccessibilityOrOpensSettings) {
    DesktopRig rig(false);
    rig.app->applicationDidFinishLaunching();
    EXPECT_TRUE(rig.logs->contains("WARNING: Accessibility permissions not granted. Global shortcuts won't work."));
    EXPECT_TRUE(rig.alerts.shown.empty());  // asynchronous
    rig.queue.runUntilIdle();
    ASSERT_EQ(rig.alerts.shown.size(), 1u);
    EXPECT_EQ(rig.alerts.shown[0].title, "Accessibility Is Off");
    EXPECT_EQ(rig.alerts.shown[0].buttons, (std::vector<std::string>{"Turn On", "Cancel"}));
    EXPECT_EQ(rig.alerts.shown[0].text.find("System Settings"), std::string::npos);
    rig.urlOpener.failWith = "Could not open gnome-control-center (exit status 1).";
    rig.alerts.respond(0);
    EXPECT_EQ(rig.urlOpener.opened,
              (std::vector<std::string>{"x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"}));
    // A panel that did not open is not swallowed.
    ASSERT_EQ(rig.alerts.shown.size(), 2u);
    EXPECT_EQ(rig.alerts.shown[1].title, "Accessibility settings did not open");
    EXPECT_EQ(rig.alerts.shown[1].text, "Could not open gnome-control-center (exit status 1).");

    DesktopRig enabling(false);
    enabling.enableAccessibilityResult = true;
    enabling.app->applicationDidFinishLaunching();
    enabling.queue.runUntilIdle();
    enabling.alerts.respond(0);
    EXPECT_TRUE(enabling.urlOpener.opened.empty());

    DesktopRig cancelled(false);
    cancelled.app->applicationDidFinishLaunching();
    cancelled.queue.runUntilIdle();
    cancelled.alerts.respond(1);
    EXPECT_TRUE(cancelled.urlOpener.opened.empty());
}

TEST(DictationApp, TheAccessibilityAlertNamesTheDesktopsOwnPlace) {
    DesktopRig rig(false);
    rig.urlOpener.places["x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility"] =
        "System Settings > Accessibility";
    rig.app->applicationDidFinishLaunching();
    rig.queue.runUntilIdle();
    ASSERT_EQ(rig.alerts.shown.size(), 1u);
    const std::string& text = rig.alerts.shown[0].text;
    const std::string ending = "Turn on assistive technologies in System Settings > Accessibility.";
    ASSERT_GE(text.size(), ending.size());
    EXPECT_EQ(text.substr(text.size() - ending.size()), ending);
}

TEST(DictationApp, ToggleRecordingNotificationStillWorksAfterTheWindowCloses) {
    DesktopRig rig;
    rig.app->applicationDidFinishLaunching();
    rig.app->mainViewAppeared();
    rig.app->mainViewDisappeared();
    EXPECT_TRUE(rig.logs->contains("MainView disappeared but keeping notification observer active"));
    rig.graph->notifications.post(Notifications::toggleRecording);
    EXPECT_FALSE(rig.logs->contains("Received toggleRecording notification in global observer"));  // main queue
    rig.queue.runUntilIdle();
    EXPECT_EQ(rig.logs->count("Received toggleRecording notification in global observer"), 1u);
    EXPECT_TRUE(rig.logs->contains("AppState - toggleRecording called, current isRecording: false"));

    // Appearing again replaces the observer instead of adding a second one.
    rig.app->mainViewAppeared();
    rig.graph->notifications.post(Notifications::toggleRecording);
    rig.queue.runUntilIdle();
    EXPECT_EQ(rig.logs->count("Received toggleRecording notification in global observer"), 2u);
}

TEST(DictationApp, ShortcutsAreWiredOnAppearAndCancelOnlyActsWhileRecording) {
    DesktopRig rig;
    rig.app->applicationDidFinishLaunching();
    rig.app->mainViewAppeared();
    rig.graph->shortcuts->cancelRecordingHandler();
    EXPECT_FALSE(rig.logs->contains("AppState - cancelRecording"));
    rig.graph->shortcuts->toggleRecordingHandler();
    EXPECT_TRUE(rig.logs->contains("AppState - toggleRecording called"));
}

TEST(DictationApp, ShowPermissionsOpensTheSheetAndActivates) {
    DesktopRig rig;
    rig.app->applicationDidFinishLaunching();
    rig.app->statusItem().trigger(StatusItemController::Action::showPermissions);
    EXPECT_EQ(rig.activations, 1);
    rig.queue.runUntilIdle();
    EXPECT_TRUE(rig.app->showPermissionsWindow.get());
    EXPECT_EQ(rig.activations, 2);
}

TEST(DictationApp, DictationMenuAndBusHandlers) {
    DesktopRig rig;
    rig.app->applicationDidFinishLaunching();
    EXPECT_FALSE(rig.app->canCancelRecording());
    rig.app->menuCancelRecording();
    EXPECT_TRUE(rig.logs->contains("Menu command: Cancel Recording"));
    EXPECT_FALSE(rig.logs->contains("AppState - cancelRecording"));
    rig.app->menuSignOut();
    EXPECT_TRUE(rig.logs->contains("Menu command: Sign Out"));

    auto handlers = rig.app->controlHandlers();
    EXPECT_EQ(handlers.state(), "idle");
    handlers.activate();
    EXPECT_EQ(rig.mainWindowOpens, 1);
    rig.app->menuCheckForUpdates();
    EXPECT_TRUE(rig.logs->contains("🔍 Manual update check requested by user"));
    EXPECT_EQ(rig.fetcher.urls, (std::vector<std::string>{"http://127.0.0.1:9/appcast.xml"}));
}

}  // namespace

TEST(DictationApp, TheTrayFollowsTheKeptDictationsOnOfferAndItsEntryRetriesThemAll) {
    DesktopRig rig;
    rig.app->applicationDidFinishLaunching();
    auto& tray = rig.app->statusItem();
    EXPECT_EQ(tray.failedDictations(), 0u);
    rig.graph->dictationRetry->offeredCount.set(2);
    EXPECT_EQ(tray.failedDictations(), 2u);
    bool offered = false;
    for (const auto& e : tray.menu()) offered |= e.title == "Retry 2 failed dictations";
    EXPECT_TRUE(offered);

    // The entry reaches the retry (nothing is kept in this data folder, so nothing is sent).
    tray.trigger(StatusItemController::Action::retryFailedDictations);
    EXPECT_TRUE(rig.logs->contains("MenuBar retry failed dictations pressed"));
    rig.graph->dictationRetry->offeredCount.set(0);
    EXPECT_EQ(tray.failedDictations(), 0u);
    for (const auto& e : tray.menu()) EXPECT_NE(e.action, StatusItemController::Action::retryFailedDictations);
}
