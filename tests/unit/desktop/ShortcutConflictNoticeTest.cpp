#include <gtest/gtest.h>

#include <memory>

#include "desktop/ShortcutConflictNotice.h"
#include "desktop/ShortcutManager.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/testing/FakeHotKeys.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

constexpr uint16_t kSpace = keycode::kSpace;
constexpr uint64_t kCtrlAlt = kModifierControl | kModifierOption;

class ShortcutConflictNoticeTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    FileStorageManager storage{folder, clock};
    FakeHotKeys hotKeys{clock};
    FakeKeyMonitor globalMonitor{clock};
    FakeLocalKeyMonitor localMonitor;
    FakeDesktopNotifications notifications;
    std::unique_ptr<ShortcutManager> manager;
    std::unique_ptr<ShortcutConflictNotice> notice;
    std::vector<bool> pickers;

    void start() {
        manager = std::make_unique<ShortcutManager>(clock, storage, hotKeys, globalMonitor, localMonitor);
        notice = std::make_unique<ShortcutConflictNotice>(*manager, notifications,
                                                          [this](bool toggle) { pickers.push_back(toggle); });
    }
    void change(Shortcut toggle, Shortcut cancel) {
        manager->currentShortcut = toggle;
        manager->cancelShortcut = cancel;
        manager->saveShortcuts();
        manager->unregisterShortcuts();
        manager->registerShortcuts();
    }
};

TEST_F(ShortcutConflictNoticeTest, AFreeDefaultShortcutShowsNothing) {
    start();
    EXPECT_TRUE(notifications.shown.empty());
    EXPECT_FALSE(manager->toggleRegistrationFailure());
}

TEST_F(ShortcutConflictNoticeTest, ATakenToggleShortcutIsAnnouncedOnceWithAChooseAction) {
    hotKeys.refuse(kSpace, kCtrlAlt, kHotKeyBusy);
    start();
    EXPECT_EQ(manager->toggleRegistrationFailure(), kHotKeyBusy);
    ASSERT_EQ(notifications.shown.size(), 1u);
    EXPECT_EQ(notifications.shown[0].title, "Dictation shortcut Ctrl+Alt+Space is taken");
    EXPECT_EQ(
        notifications.shown[0].body,
        "Ctrl+Alt+Space is already used by your desktop or another application. Choose another shortcut.");
    EXPECT_EQ(notifications.shown[0].actions, (std::vector<std::string>{"Choose Shortcut"}));

    // Registering again (the cancel shortcut changed) with the same refused toggle does not repeat it.
    change(manager->currentShortcut, {keycode::kEscape, 0});
    EXPECT_EQ(notifications.shown.size(), 1u);

    notifications.choose(0, 0);
    EXPECT_EQ(pickers, (std::vector<bool>{true}));
}

TEST_F(ShortcutConflictNoticeTest, AfterAFreeShortcutTheSameTakenOneIsAnnouncedAgain) {
    hotKeys.refuse(kSpace, kModifierOption, kHotKeyBusy);
    start();
    EXPECT_TRUE(notifications.shown.empty());
    change({kSpace, kModifierOption}, {keycode::kEscape, 0});
    ASSERT_EQ(notifications.shown.size(), 1u);
    EXPECT_EQ(notifications.shown[0].title, "Dictation shortcut Alt+Space is taken");
    change({kSpace, kCtrlAlt}, {keycode::kEscape, 0});
    EXPECT_FALSE(manager->toggleRegistrationFailure()) << "the warning ends once the shortcut works";
    change({kSpace, kModifierOption}, {keycode::kEscape, 0});
    EXPECT_EQ(notifications.shown.size(), 2u);
}

TEST_F(ShortcutConflictNoticeTest, TakenCancelShortcutOffersItsOwnPickerAndOtherFailuresAreWordedApart) {
    hotKeys.refuse(keycode::kEscape, kModifierControl, kHotKeyBusy);
    hotKeys.refuse(keycode::kA, kModifierCommand, kHotKeyUnknownKey);
    start();
    change({keycode::kA, kModifierCommand}, {keycode::kEscape, kModifierControl});
    ASSERT_EQ(notifications.shown.size(), 2u);
    EXPECT_EQ(notifications.shown[0].title, "Dictation shortcut Super+A is unavailable");
    EXPECT_EQ(notifications.shown[0].body,
              "Super+A could not be set up as a system-wide shortcut. Choose another shortcut.");
    // The desktop's own consent dialog declined (the shortcut portal).
    EXPECT_EQ(ShortcutConflictNotice::warningText({"Ctrl", "Alt", "Space"}, kHotKeyRefused),
              "Your desktop did not allow Ctrl+Alt+Space as a shortcut for Vocle. Choose another shortcut, or allow "
              "it in your desktop's keyboard settings.");
    EXPECT_EQ(notifications.shown[1].title, "Cancel shortcut Ctrl+Esc is taken");
    notifications.choose(1, 0);
    EXPECT_EQ(pickers, (std::vector<bool>{false}));
}

TEST_F(ShortcutConflictNoticeTest, AnAnswerAfterTheNoticeObjectIsGoneDoesNothing) {
    hotKeys.refuse(kSpace, kCtrlAlt, kHotKeyBusy);
    start();
    notice.reset();
    notifications.choose(0, 0);
    EXPECT_TRUE(pickers.empty());
}

}  // namespace
