#include <gtest/gtest.h>

#include "screens/ShortcutManagerControl.h"
#include "screens/ShortcutPickerViewModel.h"

using namespace vocle;

namespace {

// Shaped like the shortcut manager's public surface, to check the adapter's wiring in isolation.
struct ManagerShape {
    struct Combo {
        uint16_t keyCode = 49;
        uint64_t modifiers = 0x80000;
    };
    Combo currentShortcut;
    Combo cancelShortcut{53, 0};
    bool isSuspended = false;
    std::vector<std::string> calls;
    void saveShortcuts() { calls.push_back("save:" + std::to_string(currentShortcut.keyCode)); }
    void unregisterShortcuts() { calls.push_back("unregister"); }
    void registerShortcuts() { calls.push_back("register"); }
    static std::vector<std::string> displayParts(uint16_t keyCode, uint64_t) { return {std::to_string(keyCode)}; }
};

TEST(ShortcutManagerControl, ThePickerSequenceReachesTheManagerFieldsBeforeSaving) {
    ManagerShape manager;
    ShortcutManagerControl<ManagerShape> control(manager);
    ShortcutPickerViewModel picker(control);
    picker.startCapturing();
    picker.handleKeyDown(40, keys::kCommand | keys::kShift);
    EXPECT_EQ(picker.previewParts(), (std::vector<std::string>{"⌘", "⇧", "40"}));
    picker.save();
    EXPECT_EQ(manager.currentShortcut.keyCode, 40);
    EXPECT_EQ(manager.currentShortcut.modifiers, keys::kCommand | keys::kShift);
    EXPECT_EQ(manager.calls, (std::vector<std::string>{"save:40", "unregister", "register"}));
    control.setSuspended(true);
    EXPECT_TRUE(manager.isSuspended);
    EXPECT_EQ(control.cancelShortcut(), (KeyCombination{53, 0}));
}

}  // namespace
