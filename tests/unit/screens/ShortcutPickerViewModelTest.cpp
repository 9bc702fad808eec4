#include <gtest/gtest.h>

#include "platform/testing/FakeKeyMonitor.h"
#include "screens/ShortcutPickerViewModel.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using vocle::testing::FakeLocalKeyMonitor;
using vocle::testing::RecordingShortcuts;

namespace {

constexpr uint16_t kA = 0, kQ = 12, kK = 40;
const std::vector<std::string> kChangeSequence = {"setToggle", "save", "unregister", "register"};

class ShortcutPickerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dismissedSub = picker.dismissed.subscribe([this] { ++dismissed; });
        picker.startCapturing();
    }
    bool keyDown(uint16_t code, uint64_t flags) { return monitor.keyDown(code, flags); }
    bool flags(uint64_t f) { return monitor.dispatch({KeyEventType::flagsChanged, keycode::kShift, f}); }

    RecordingShortcuts shortcuts;
    FakeLocalKeyMonitor monitor;
    ShortcutPickerViewModel picker{shortcuts, monitor};
    int dismissed = 0;
    Subscription dismissedSub;
};

TEST_F(ShortcutPickerTest, ABareKeyIsNeverAcceptedAndReturnThenSavesNothing) {
    EXPECT_EQ(picker.message.get(), "Press a shortcut… (Esc to cancel)");
    EXPECT_EQ(monitor.monitorCount(), 2u);
    EXPECT_TRUE(keyDown(kA, 0));
    EXPECT_FALSE(picker.capturedKeyCode.get().has_value());
    EXPECT_FALSE(picker.canSave());
    EXPECT_TRUE(keyDown(keys::kReturn, 0));
    picker.save();
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_EQ(dismissed, 0);
    EXPECT_TRUE(picker.isCapturing.get());
}

TEST_F(ShortcutPickerTest, ControlAThenReturnAppliesWithTheFixedSequenceAndCloses) {
    keyDown(kA, keys::kControl | 0x10000 /* caps lock */);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Ctrl", "A"}));
    EXPECT_TRUE(picker.canSave());
    keyDown(keys::kReturn, 0);
    EXPECT_EQ(shortcuts.calls, kChangeSequence);
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kA, keys::kControl}));
    EXPECT_EQ(dismissed, 1);
    EXPECT_FALSE(picker.isCapturing.get());
    // The monitors are gone: later events are not consumed.
    EXPECT_EQ(monitor.monitorCount(), 0u);
    EXPECT_FALSE(keyDown(kK, keys::kCommand));
}

TEST_F(ShortcutPickerTest, HeldModifiersPreviewUntilAKeyIsCapturedThenTheCaptureWins) {
    flags(keys::kCommand | keys::kShift);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Shift", "Super"}));
    flags(0);
    EXPECT_TRUE(picker.previewParts().empty());

    keyDown(kK, keys::kCommand | keys::kOption);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Alt", "Super", "K"}));
    // Releasing the modifiers after the capture leaves the preview alone.
    flags(0);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Alt", "Super", "K"}));
    // Several modifiers are accepted although the hint speaks of one.
    picker.save();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kK, keys::kCommand | keys::kOption}));
}

TEST_F(ShortcutPickerTest, ALaterPressReplacesTheCapture) {
    keyDown(kA, keys::kControl);
    keyDown(kK, keys::kShift);
    picker.save();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kK, keys::kShift}));
}

TEST_F(ShortcutPickerTest, EscapeAndReturnCanNeverBecomeTheToggleKey) {
    keyDown(keys::kReturn, keys::kOption);
    EXPECT_FALSE(picker.capturedKeyCode.get().has_value());
    keyDown(keys::kEscape, keys::kOption);
    EXPECT_EQ(dismissed, 1);
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{keys::kSpace, keys::kControl | keys::kOption}));
}

TEST_F(ShortcutPickerTest, RestoreDefaultAppliesCtrlAltSpace) {
    shortcuts.toggle = {kA, keys::kControl};
    picker.restoreDefault();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{keys::kSpace, keys::kControl | keys::kOption}));
    EXPECT_EQ(shortcuts.calls, kChangeSequence);
    EXPECT_EQ(dismissed, 1);
}

class CancelPickerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dismissedSub = picker.dismissed.subscribe([this] { ++dismissed; });
        picker.startCapturing();
    }
    bool keyDown(uint16_t code, uint64_t flags) { return monitor.keyDown(code, flags); }

    RecordingShortcuts shortcuts;
    FakeLocalKeyMonitor monitor;
    CancelPickerViewModel picker{shortcuts, monitor};
    int dismissed = 0;
    Subscription dismissedSub;
};

TEST_F(CancelPickerTest, CommandQIsCapturedAsPlainQ) {
    EXPECT_EQ(picker.message.get(), "Press one key (e.g. Esc, Space, A–Z, 0–9). Press Return to save.");
    keyDown(kQ, keys::kCommand);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Q"}));
    picker.save();
    EXPECT_EQ(shortcuts.cancel, (KeyCombination{kQ, 0}));
    EXPECT_EQ(shortcuts.calls, (std::vector<std::string>{"setCancel", "save", "unregister", "register"}));
}

TEST_F(CancelPickerTest, EscapeIsCapturedNotClosingAndReturnSavesIt) {
    shortcuts.cancel = {kQ, 0};
    EXPECT_TRUE(keyDown(keys::kEscape, 0));
    EXPECT_EQ(dismissed, 0);
    EXPECT_TRUE(picker.canSave());
    keyDown(keys::kReturn, 0);
    EXPECT_EQ(shortcuts.cancel, (KeyCombination{keys::kEscape, 0}));
    EXPECT_EQ(dismissed, 1);
}

TEST_F(CancelPickerTest, ReturnWithoutACaptureDoesNothingAndCloseLeavesTheShortcut) {
    keyDown(keys::kReturn, 0);
    EXPECT_EQ(dismissed, 0);
    EXPECT_FALSE(picker.canSave());
    keyDown(kA, 0);
    picker.close();
    EXPECT_EQ(dismissed, 1);
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_FALSE(keyDown(kQ, 0));
}

}  // namespace
