#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "screens/CompositorBinding.h"
#include "screens/SettingsViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

TEST(CompositorBindingTest, EachFamilySpellsTheBindingInItsOwnSyntax) {
    EXPECT_EQ(compositorBindingLine(CompositorFamily::sway, kModifierOption, "space", "vocle-cli toggle"),
              "bindsym Mod1+space exec vocle-cli toggle");
    EXPECT_EQ(
        compositorBindingLine(CompositorFamily::sway, kModifierCommand | kModifierShift | kModifierControl,
                              "d", "vocle-cli toggle"),
        "bindsym Mod4+Ctrl+Shift+d exec vocle-cli toggle");
    EXPECT_EQ(compositorBindingLine(CompositorFamily::hyprland, kModifierOption | kModifierShift, "space",
                                    "vocle-cli toggle"),
              "bind = ALT SHIFT, space, exec, vocle-cli toggle");
    EXPECT_EQ(compositorBindingLine(CompositorFamily::river, 0, "Escape", "vocle-cli cancel"),
              "riverctl map normal None Escape spawn 'vocle-cli cancel'");
    EXPECT_EQ(compositorBindingLine(CompositorFamily::other, kModifierOption, "space", "x"), std::nullopt);
    EXPECT_EQ(compositorFamily("sway"), CompositorFamily::sway);
    EXPECT_EQ(compositorFamily("Hyprland"), CompositorFamily::hyprland);
    EXPECT_EQ(compositorFamily("river"), CompositorFamily::river);
    EXPECT_EQ(compositorFamily("kwin_wayland"), CompositorFamily::other);
}

class CompositorSettingsTest : public ::testing::Test {
  protected:
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    TempDir dir;
    VirtualMainQueue queue;
    FileStorageManager files{DataFolder{dir.path() / "data"}, queue};
    FakeCapture capture;
    RecordingShortcuts shortcuts;
    MapEnvironment env;
    AutostartEntry autostart{env, "/usr/bin/vocle"};
    FakeLocalKeyMonitor keyMonitor;
    FakePasteboard pasteboard;
    SettingsViewModel vm{files, capture, shortcuts, keyMonitor, autostart};

    static std::optional<std::string> keysym(uint16_t keyCode) {
        switch (keyCode) {
            case keys::kSpace:
                return "space";
            case keys::kEscape:
                return "Escape";
            case 0:
                return "a";
            default:
                return std::nullopt;
        }
    }
};

TEST_F(CompositorSettingsTest, LinesFollowTheStoredShortcutsAndCopyPutsThemOnTheClipboard) {
    EXPECT_TRUE(vm.compositorBindingLines().empty()) << "no lines where the desktop binds keys itself";
    vm.setCompositorShortcuts({CompositorFamily::sway, keysym, &pasteboard});
    EXPECT_EQ(vm.compositorBindingLines(),
              (std::vector<std::string>{"bindsym Ctrl+Mod1+space exec vocle-cli toggle",
                                        "bindsym Escape exec vocle-cli cancel"}));
    // A changed shortcut changes the line; lock bits never leak into it.
    shortcuts.toggle = {0, keys::kControl | keys::kShift | kModifierCapsLock};
    EXPECT_EQ(vm.compositorBindingLines()[0], "bindsym Ctrl+Shift+a exec vocle-cli toggle");
    vm.copyCompositorBindings();
    EXPECT_EQ(pasteboard.string(),
              "bindsym Ctrl+Shift+a exec vocle-cli toggle\nbindsym Escape exec vocle-cli cancel\n");
    EXPECT_EQ(vm.compositorBindingPlace(), "~/.config/sway/config");
    // A key the compositor has no name for gets no line rather than a wrong one.
    shortcuts.toggle = {200, keys::kOption};
    EXPECT_EQ(vm.compositorBindingLines(), std::vector<std::string>{"bindsym Escape exec vocle-cli cancel"});
}

}  // namespace
