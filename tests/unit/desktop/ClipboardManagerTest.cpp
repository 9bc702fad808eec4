#include <gtest/gtest.h>

#include <memory>

#include "desktop/ClipboardManager.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

using Posted = FakeSyntheticKeys::Posted;
constexpr uint16_t kCtrl = keycode::kControl;
constexpr uint16_t kShift = keycode::kShift;
constexpr uint16_t kV = keycode::kV;

const std::vector<Posted> kCtrlV = {{kCtrl, true}, {kV, true}, {kV, false}, {kCtrl, false}};
const std::vector<Posted> kCtrlShiftV = {{kCtrl, true}, {kShift, true},  {kV, true},
                                         {kV, false},   {kShift, false}, {kCtrl, false}};

class ClipboardManagerTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    FakePasteboard pasteboard;
    FakeSyntheticKeys keys;
    HistoryService history{folder, clock};
    NotificationCenter notifications;
    std::unique_ptr<ClipboardManager> manager =
        std::make_unique<ClipboardManager>(clock, pasteboard, keys, history, notifications);
    std::vector<std::string> completed;
    // What the history held when each notification arrived.
    std::vector<size_t> historySizeAtNotification;
    Subscription observer =
        notifications.addObserver("TranscriptionCompleted", [this](const Notification& n) {
            completed.push_back(n.string("text").value_or("<missing>"));
            historySizeAtNotification.push_back(history.transcriptions.get().size());
            EXPECT_EQ(n.sender, manager.get());
        });

    std::vector<std::string> historyTexts() const {
        std::vector<std::string> out;
        for (const auto& h : history.transcriptions.get()) out.push_back(h.text);
        return out;
    }
};

TEST_F(ClipboardManagerTest, CopiesPastesNotifiesThenAddsHistoryAfterSixTenths) {
    manager->copyAndPaste("Hello wörld");
    EXPECT_EQ(pasteboard.string(), "Hello wörld");
    EXPECT_EQ(pasteboard.clearCount, 1);
    EXPECT_EQ(keys.posted, kCtrlV);
    EXPECT_EQ(completed, std::vector<std::string>{"Hello wörld"});
    EXPECT_EQ(historySizeAtNotification, std::vector<size_t>{0}) << "notified before the history write";

    clock.advance(0.59);
    EXPECT_TRUE(historyTexts().empty());
    clock.advance(0.01);
    EXPECT_EQ(historyTexts(), std::vector<std::string>{"Hello wörld"});

    const auto lines = logs->lines();
    std::vector<std::string> ours;
    for (const auto& l : lines)
        if (l.find("clipboard") != std::string::npos || l.find("paste") != std::string::npos ||
            l.rfind("Transcription complete", 0) == 0)
            ours.push_back(l);
    ASSERT_EQ(ours.size(), 4u);
    EXPECT_NE(ours[0].find(" - copying 11 chars to clipboard"), std::string::npos) << "characters, not bytes";
    EXPECT_EQ(ours[0].rfind("TIMESTAMP: 800000000", 0), 0u);
    EXPECT_NE(ours[1].find(" - clipboard copy completed, starting paste"), std::string::npos);
    EXPECT_NE(ours[2].find(" - paste simulation completed"), std::string::npos);
    EXPECT_EQ(ours[3], "Transcription complete: Hello wörld");
}

TEST_F(ClipboardManagerTest, TerminalsGetCtrlShiftV) {
    keys.windowClass = "XTerm";
    manager->copyAndPaste("ls");
    EXPECT_EQ(keys.posted, kCtrlShiftV);

    keys.posted.clear();
    keys.windowClass = "firefox";
    manager->copyAndPaste("ls");
    EXPECT_EQ(keys.posted, kCtrlV);

    for (const char* terminal : {"URxvt", "Gnome-terminal", "konsole", "kitty", "Alacritty", "Tilix",
                                 "Xfce4-terminal", "Terminator", "org.wezfurlong.wezterm", "foot"})
        EXPECT_TRUE(ClipboardManager::isTerminalClass(terminal)) << terminal;
    for (const char* other : {"", "Code", "Gedit", "xtermish", "Chromium"})
        EXPECT_FALSE(ClipboardManager::isTerminalClass(other)) << other;
}

TEST_F(ClipboardManagerTest, WaitsForTheUsersModifiersBeforePasting) {
    keys.held = kModifierOption;  // the stop shortcut is still held
    manager->copyAndPaste("later");
    EXPECT_EQ(pasteboard.string(), "later") << "the clipboard is written at once";
    EXPECT_TRUE(keys.posted.empty());
    EXPECT_TRUE(completed.empty());

    clock.advance(0.5);
    EXPECT_TRUE(keys.posted.empty());
    keys.held = 0;
    clock.advance(ClipboardManager::kModifierPollInterval);
    EXPECT_EQ(keys.posted, kCtrlV);
    EXPECT_EQ(keys.releaseCalls, 0);
    EXPECT_EQ(completed, std::vector<std::string>{"later"});
    clock.advance(0.59);
    EXPECT_TRUE(historyTexts().empty());
    clock.advance(0.01);
    EXPECT_EQ(historyTexts(), std::vector<std::string>{"later"});
}

TEST_F(ClipboardManagerTest, AnAnswerReadyBeforeTheShortcutsKeyIsUpWaitsForIt) {
    keys.otherKeyHeld = true;  // modifiers already up, Space still down
    manager->copyAndPaste("fast");
    clock.advance(0.2);
    EXPECT_TRUE(keys.posted.empty()) << "keys sent now would go to the shortcut's grab";
    keys.otherKeyHeld = false;
    clock.advance(ClipboardManager::kModifierPollInterval);
    EXPECT_EQ(keys.posted, kCtrlV);

    // A key held for good (the user typing on) delays the paste only until the deadline.
    keys.posted.clear();
    keys.otherKeyHeld = true;
    manager->copyAndPaste("held");
    clock.advance(ClipboardManager::kModifierReleaseTimeout);
    EXPECT_EQ(keys.posted, kCtrlV);
    EXPECT_EQ(keys.releaseCalls, 0) << "no modifier was held, none is released";
}

TEST_F(ClipboardManagerTest, ReleasesStuckModifiersAfterTheTimeoutAndPastesAnyway) {
    keys.held = kModifierOption | kModifierShift;
    manager->copyAndPaste("stuck");
    clock.advance(ClipboardManager::kModifierReleaseTimeout - Seconds(0.03));
    EXPECT_TRUE(keys.posted.empty());
    EXPECT_EQ(keys.releaseCalls, 0);
    clock.advance(0.03);
    EXPECT_EQ(keys.releaseCalls, 1);
    EXPECT_EQ(keys.posted, kCtrlV);
    EXPECT_TRUE(logs->contains("⚠️ Modifiers still held"));
    clock.advance(5.0);
    EXPECT_EQ(keys.posted.size(), 4u) << "pasted once";
}

TEST_F(ClipboardManagerTest, ASecondTranscriptWaitsForTheFirstPaste) {
    keys.held = kModifierOption;
    manager->copyAndPaste("first");
    manager->copyAndPaste("second");
    EXPECT_EQ(pasteboard.string(), "first") << "the waiting paste keeps its clipboard";
    keys.held = 0;
    clock.advance(ClipboardManager::kModifierPollInterval);
    EXPECT_EQ(completed, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(pasteboard.string(), "second");
    EXPECT_EQ(keys.posted.size(), 8u);
    clock.advance(0.6);
    // Newest first.
    EXPECT_EQ(historyTexts(), (std::vector<std::string>{"second", "first"}));
}

TEST_F(ClipboardManagerTest, EmptyTranscriptIsPastedButNotKept) {
    pasteboard.setString("previous");
    manager->copyAndPaste("");
    EXPECT_EQ(pasteboard.string(), "");
    EXPECT_EQ(keys.posted, kCtrlV);
    EXPECT_EQ(completed, std::vector<std::string>{""});
    clock.advance(1.0);
    EXPECT_TRUE(historyTexts().empty());
}

TEST_F(ClipboardManagerTest, NothingHappensAfterTheManagerIsGone) {
    manager->copyAndPaste("gone");
    keys.held = kModifierControl;
    manager->copyAndPaste("never pasted");
    manager.reset();
    clock.advance(2.0);
    EXPECT_TRUE(historyTexts().empty());
    EXPECT_EQ(keys.posted.size(), 4u);
    EXPECT_EQ(keys.releaseCalls, 0);
}

}  // namespace
