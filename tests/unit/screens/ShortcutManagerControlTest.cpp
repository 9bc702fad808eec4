#include <gtest/gtest.h>

#include <memory>

#include "desktop/ShortcutManager.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeHotKeys.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "screens/SettingsViewModel.h"
#include "screens/ShortcutManagerControl.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

// The settings screen and its pickers on the real shortcut manager, as the application wires them.
class PickerOnShortcutManagerTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    PickerOnShortcutManagerTest() {
        env.set("XDG_CONFIG_HOME", (home.path() / "config").string());
        manager.toggleRecordingHandler = [this] { ++toggles; };
    }

    FileStorageManager storage{folder, clock};
    FakeHotKeys hotKeys{clock};
    FakeKeyMonitor globalMonitor{clock};
    FakeLocalKeyMonitor localMonitor;
    ShortcutManager manager{clock, storage, hotKeys, globalMonitor, localMonitor};
    ShortcutManagerControl<ShortcutManager> control{manager};
    FakeCapture capture;
    MapEnvironment env;
    AutostartEntry autostart{env, "vocle"};
    SettingsViewModel settings{storage, capture, control, localMonitor, autostart};
    int toggles = 0;
};

TEST_F(PickerOnShortcutManagerTest, TheCurrentShortcutTypedInTheOpenPickerIsCapturedNotDictated) {
    // Without a picker, Ctrl+Alt+Space in our own window toggles.
    EXPECT_TRUE(localMonitor.keyDown(keycode::kSpace, kModifierControl | kModifierOption));
    EXPECT_EQ(toggles, 1);

    settings.setShowingShortcutPicker(true);
    auto picker = settings.makeShortcutPicker();
    picker->startCapturing();
    EXPECT_TRUE(manager.isSuspended);
    EXPECT_TRUE(localMonitor.keyDown(keycode::kSpace, kModifierControl | kModifierOption));
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(picker->previewParts(), (std::vector<std::string>{"Ctrl", "Alt", "Space"}));

    // Control+A then Return: stored, and the hot key is registered anew.
    EXPECT_TRUE(localMonitor.keyDown(keycode::kA, kModifierControl));
    EXPECT_TRUE(localMonitor.keyDown(keycode::kReturn, 0));
    settings.setShowingShortcutPicker(false);
    EXPECT_FALSE(manager.isSuspended);
    EXPECT_EQ(manager.currentShortcut, (Shortcut{keycode::kA, kModifierControl}));
    const auto registered = hotKeys.registrationFor(1);
    ASSERT_TRUE(registered);
    EXPECT_EQ(registered->keyCode, keycode::kA);
    EXPECT_EQ(registered->modifiers, kModifierControl);
    EXPECT_EQ(Shortcut::decode(storage.loadSettings().toggleShortcut.value_or("")),
              std::optional<Shortcut>(Shortcut{keycode::kA, kModifierControl}));
    EXPECT_EQ(settings.toggleShortcutParts(), (std::vector<std::string>{"Ctrl", "A"}));

    // The old shortcut no longer toggles; the new one does.
    EXPECT_FALSE(localMonitor.keyDown(keycode::kSpace, kModifierControl | kModifierOption));
    EXPECT_TRUE(localMonitor.keyDown(keycode::kA, kModifierControl));
    EXPECT_EQ(toggles, 2);
}

TEST_F(PickerOnShortcutManagerTest, ClosingTheCancelPickerWithoutSavingChangesNothing) {
    const auto before = storage.loadSettings().cancelShortcut;
    settings.setShowingCancelPicker(true);
    auto picker = settings.makeCancelPicker();
    picker->startCapturing();
    EXPECT_TRUE(localMonitor.keyDown(keycode::kA, kModifierCommand));
    picker->close();
    settings.setShowingCancelPicker(false);
    EXPECT_EQ(manager.cancelShortcut, Shortcut::defaultCancel());
    EXPECT_EQ(storage.loadSettings().cancelShortcut, before);
    EXPECT_EQ(localMonitor.monitorCount(), 1u);  // the manager's own
}

}  // namespace
