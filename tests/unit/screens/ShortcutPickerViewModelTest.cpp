#include <gtest/gtest.h>

#include "screens/ShortcutPickerViewModel.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
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
    RecordingShortcuts shortcuts;
    ShortcutPickerViewModel picker{shortcuts};
    int dismissed = 0;
    Subscription dismissedSub;
};

TEST_F(ShortcutPickerTest, ABareKeyIsNeverAcceptedAndReturnThenSavesNothing) {
    EXPECT_EQ(picker.message.get(), "Press a shortcut… (Esc to cancel)");
    EXPECT_TRUE(picker.handleKeyDown(kA, 0));
    EXPECT_FALSE(picker.capturedKeyCode.get().has_value());
    EXPECT_FALSE(picker.canSave());
    EXPECT_TRUE(picker.handleKeyDown(keys::kReturn, 0));
    picker.save();
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_EQ(dismissed, 0);
    EXPECT_TRUE(picker.isCapturing.get());
}

TEST_F(ShortcutPickerTest, ControlAThenReturnAppliesWithTheFixedSequenceAndCloses) {
    picker.handleKeyDown(kA, keys::kControl | 0x10000 /* caps lock */);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"⌃", "A"}));
    EXPECT_TRUE(picker.canSave());
    picker.handleKeyDown(keys::kReturn, 0);
    EXPECT_EQ(shortcuts.calls, kChangeSequence);
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kA, keys::kControl}));
    EXPECT_EQ(dismissed, 1);
    EXPECT_FALSE(picker.isCapturing.get());
    // The monitors are gone: later events are not consumed.
    EXPECT_FALSE(picker.handleKeyDown(kK, keys::kCommand));
}

TEST_F(ShortcutPickerTest, HeldModifiersPreviewUntilAKeyIsCapturedThenTheCaptureWins) {
    picker.handleFlagsChanged(keys::kCommand | keys::kShift);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"⌘", "⇧"}));
    picker.handleFlagsChanged(0);
    EXPECT_TRUE(picker.previewParts().empty());

    picker.handleKeyDown(kK, keys::kCommand | keys::kOption);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"⌘", "⌥", "K"}));
    // Releasing the modifiers after the capture leaves the preview alone.
    picker.handleFlagsChanged(0);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"⌘", "⌥", "K"}));
    // Several modifiers are accepted although the hint speaks of one.
    picker.save();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kK, keys::kCommand | keys::kOption}));
}

TEST_F(ShortcutPickerTest, ALaterPressReplacesTheCapture) {
    picker.handleKeyDown(kA, keys::kControl);
    picker.handleKeyDown(kK, keys::kShift);
    picker.save();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{kK, keys::kShift}));
}

TEST_F(ShortcutPickerTest, EscapeAndReturnCanNeverBecomeTheToggleKey) {
    picker.handleKeyDown(keys::kReturn, keys::kOption);
    EXPECT_FALSE(picker.capturedKeyCode.get().has_value());
    picker.handleKeyDown(keys::kEscape, keys::kOption);
    EXPECT_EQ(dismissed, 1);
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{keys::kSpace, keys::kOption}));
}

TEST_F(ShortcutPickerTest, RestoreDefaultAppliesOptionSpace) {
    shortcuts.toggle = {kA, keys::kControl};
    picker.restoreDefault();
    EXPECT_EQ(shortcuts.toggle, (KeyCombination{keys::kSpace, keys::kOption}));
    EXPECT_EQ(shortcuts.calls, kChangeSequence);
    EXPECT_EQ(dismissed, 1);
}

class CancelPickerTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dismissedSub = picker.dismissed.subscribe([this] { ++dismissed; });
        picker.startCapturing();
    }
    RecordingShortcuts shortcuts;
    CancelPickerViewModel picker{shortcuts};
    int dismissed = 0;
    Subscription dismissedSub;
};

TEST_F(CancelPickerTest, CommandQIsCapturedAsPlainQ) {
    EXPECT_EQ(picker.message.get(), "Press one key (e.g. Esc, Space, A–Z, 0–9). Press Return to save.");
    picker.handleKeyDown(kQ, keys::kCommand);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"Q"}));
    picker.save();
    EXPECT_EQ(shortcuts.cancel, (KeyCombination{kQ, 0}));
    EXPECT_EQ(shortcuts.calls, (std::vector<std::string>{"setCancel", "save", "unregister", "register"}));
}

TEST_F(CancelPickerTest, EscapeIsCapturedNotClosingAndReturnSavesIt) {
    shortcuts.cancel = {kQ, 0};
    EXPECT_TRUE(picker.handleKeyDown(keys::kEscape, 0));
    EXPECT_EQ(dismissed, 0);
    EXPECT_TRUE(picker.canSave());
    picker.handleKeyDown(keys::kReturn, 0);
    EXPECT_EQ(shortcuts.cancel, (KeyCombination{keys::kEscape, 0}));
    EXPECT_EQ(dismissed, 1);
}

TEST_F(CancelPickerTest, ReturnWithoutACaptureDoesNothingAndCloseLeavesTheShortcut) {
    picker.handleKeyDown(keys::kReturn, 0);
    EXPECT_EQ(dismissed, 0);
    EXPECT_FALSE(picker.canSave());
    picker.handleKeyDown(kA, 0);
    picker.close();
    EXPECT_EQ(dismissed, 1);
    EXPECT_TRUE(shortcuts.calls.empty());
    EXPECT_FALSE(picker.handleKeyDown(kQ, 0));
}

}  // namespace
