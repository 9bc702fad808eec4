#include <gtest/gtest.h>

#include "desktop/StatusItemController.h"
#include "foundation/Log.h"

using namespace vocle;
using Action = StatusItemController::Action;

namespace {

struct TrayRig {
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    Observable<bool> isRecording{false};
    std::vector<std::string> calls;
    std::string toggleText = "Ctrl+Alt+Space";
    StatusItemController tray{isRecording, hooks()};

    StatusItemController::Hooks hooks() {
        StatusItemController::Hooks h;
        h.toggleRecording = [this] { calls.push_back("toggle"); };
        h.cancelRecording = [this] { calls.push_back("cancel"); };
        h.signOut = [this] { calls.push_back("signOut"); };
        h.showPermissions = [this] { calls.push_back("permissions"); };
        h.checkForUpdates = [this] { calls.push_back("updates"); };
        h.openMainWindow = [this] { calls.push_back("open"); };
        h.quit = [this] { calls.push_back("quit"); };
        h.retryFailedDictations = [this] { calls.push_back("retry"); };
        h.toggleShortcutText = [this] { return toggleText; };
        h.cancelShortcutText = [] { return std::string("Esc"); };
        return h;
    }
};

std::vector<std::string> titles(const StatusItemController& tray) {
    std::vector<std::string> out;
    for (const auto& e : tray.menu()) out.push_back(e.separator ? "-" : e.title);
    return out;
}

TEST(StatusItemController, MenuOrderTitlesAndShortcutTexts) {
    TrayRig rig;
    rig.tray.bind();
    EXPECT_EQ(titles(rig.tray), (std::vector<std::string>{"Toggle Recording", "Cancel Recording", "-", "Show Permissions",
                                                          "Check for Updates…", "-", "Open Main Window", "Sign Out",
                                                          "Quit Vocle"}));
    EXPECT_EQ(rig.tray.menu()[0].shortcutText, "Ctrl+Alt+Space");
    EXPECT_EQ(rig.tray.menu()[1].shortcutText, "Esc");
    for (size_t i = 2; i < rig.tray.menu().size(); ++i) EXPECT_EQ(rig.tray.menu()[i].shortcutText, "");

    rig.toggleText = "⇧⌃D";
    rig.tray.refreshShortcuts();
    EXPECT_EQ(rig.tray.menu()[0].shortcutText, "⇧⌃D");
}

TEST(StatusItemController, RecordingRetitlesEnablesCancelAndTurnsTheIconRed) {
    TrayRig rig;
    rig.tray.bind();
    int changes = 0;
    auto sub = rig.tray.changed.subscribe([&] { ++changes; });
    EXPECT_FALSE(rig.tray.menu()[1].enabled);
    EXPECT_FALSE(rig.tray.isRecording());

    rig.isRecording.set(true);
    EXPECT_TRUE(rig.tray.isRecording());
    EXPECT_EQ(rig.tray.menu()[0].title, "Stop Recording");
    EXPECT_TRUE(rig.tray.menu()[1].enabled);
    for (const auto& e : rig.tray.menu()) EXPECT_TRUE(e.enabled || e.action == Action::cancelRecording);

    rig.isRecording.set(false);
    EXPECT_EQ(rig.tray.menu()[0].title, "Toggle Recording");
    EXPECT_FALSE(rig.tray.menu()[1].enabled);
    EXPECT_EQ(changes, 2);
}

TEST(StatusItemController, ActionsCallTheirHooksAndCancelWhileIdleDoesNothing) {
    TrayRig rig;
    rig.tray.bind();
    rig.tray.trigger(Action::cancelRecording);
    EXPECT_TRUE(rig.calls.empty());
    EXPECT_TRUE(rig.logs->contains("MenuBar cancel recording pressed"));

    rig.isRecording.set(true);
    for (Action a : {Action::toggleRecording, Action::cancelRecording, Action::showPermissions,
                     Action::checkForUpdates, Action::openMainWindow, Action::signOut, Action::quit})
        rig.tray.trigger(a);
    EXPECT_EQ(rig.calls, (std::vector<std::string>{"toggle", "cancel", "permissions", "updates", "open", "signOut",
                                                   "quit"}));
    EXPECT_TRUE(rig.logs->contains("MenuBar toggle recording pressed"));
    EXPECT_TRUE(rig.logs->contains("MenuBar sign out pressed"));
}

TEST(StatusItemController, KeptDictationsAddARetryEntryAndShowTheirCountUntilNoneAreLeft) {
    TrayRig rig;
    int changes = 0;
    auto sub = rig.tray.changed.subscribe([&] { ++changes; });
    const auto plain = titles(rig.tray);
    EXPECT_EQ(rig.tray.tooltip(), "Vocle");

    rig.tray.setFailedDictations(3);
    EXPECT_EQ(changes, 1);
    auto withRetry = plain;
    withRetry.insert(withRetry.begin() + 3, "Retry 3 failed dictations");
    EXPECT_EQ(titles(rig.tray), withRetry);
    EXPECT_EQ(rig.tray.tooltip(), "Vocle — 3 dictations not transcribed");
    rig.tray.trigger(Action::retryFailedDictations);
    EXPECT_EQ(rig.calls, std::vector<std::string>{"retry"});
    EXPECT_TRUE(rig.logs->contains("MenuBar retry failed dictations pressed"));

    rig.tray.setFailedDictations(3);
    EXPECT_EQ(changes, 1) << "an unchanged count redraws nothing";
    rig.tray.setFailedDictations(1);
    EXPECT_EQ(rig.tray.menu()[3].title, "Retry 1 failed dictation");
    rig.isRecording.set(true);
    rig.tray.bind();
    EXPECT_EQ(rig.tray.menu()[0].title, "Stop Recording");
    EXPECT_EQ(rig.tray.menu()[3].title, "Retry 1 failed dictation") << "kept across a recording";

    rig.tray.setFailedDictations(0);
    rig.isRecording.set(false);
    EXPECT_EQ(titles(rig.tray), plain);
}

}  // namespace
