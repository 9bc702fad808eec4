#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeCustomKeybindings.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "screens/CompositorBinding.h"
#include "screens/SettingsViewModel.h"
#include "support/TempDir.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

TEST(ShortcutPathTest, EachDesktopGetsTheWayItCanRunTheShortcut) {
    EXPECT_EQ(shortcutPathFor(false, false, CompositorFamily::other, "GNOME"), ShortcutPath::own);
    EXPECT_EQ(shortcutPathFor(true, true, CompositorFamily::other, "KDE"), ShortcutPath::portal);
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::sway, "sway"), ShortcutPath::compositor);
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::other, "ubuntu:GNOME"),
              ShortcutPath::gnomeKeybinding);
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::other, "gnome"), ShortcutPath::gnomeKeybinding);
    // A name that merely contains GNOME is another desktop.
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::other, "GNOME-Flashback-X"),
              ShortcutPath::byHand);
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::other, "KDE"), ShortcutPath::byHand);
    EXPECT_EQ(shortcutPathFor(true, false, CompositorFamily::other, ""), ShortcutPath::byHand);
}

TEST(ShortcutPathTest, AcceleratorsAndCommandLinesInTheDesktopsSyntax) {
    EXPECT_EQ(gtkAccelerator(keys::kControl | keys::kOption, "space"), "<Control><Alt>space");
    EXPECT_EQ(gtkAccelerator(keys::kCommand | keys::kShift, "d"), "<Super><Shift>d");
    EXPECT_EQ(gtkAccelerator(0, "F9"), "F9");
    EXPECT_EQ(shellCommand("/usr/bin/vocle-cli", "toggle"), "/usr/bin/vocle-cli toggle");
    // A path GNOME would split at the space, or read a quote in, is quoted the way a shell does.
    EXPECT_EQ(shellCommand("/opt/Vocle Beta/vocle-cli", "toggle"), "'/opt/Vocle Beta/vocle-cli' toggle");
    EXPECT_EQ(shellCommand("/home/o'neil/bin/vocle-cli", "toggle"),
              "'/home/o'\\''neil/bin/vocle-cli' toggle");
}

class DesktopShortcutSettingsTest : public ::testing::Test {
  protected:
    DesktopShortcutSettingsTest() {
        env.set("HOME", (dir.path() / "home").string());
        env.set("XDG_CONFIG_HOME", (dir.path() / "config").string());
    }
    void useDesktop(ShortcutPath path, bool cancelFromTrayOnly = false) {
        SettingsViewModel::CompositorShortcuts c;
        c.keysymName = keysym;
        c.pasteboard = &pasteboard;
        c.path = path;
        c.cliProgram = "/usr/bin/vocle-cli";
        c.keybindings = &gnome;
        c.cancelFromTrayOnly = cancelFromTrayOnly;
        vm.setCompositorShortcuts(c);
    }
    static std::optional<std::string> keysym(uint16_t keyCode) {
        if (keyCode == keys::kSpace) return "space";
        if (keyCode == 40) return "k";
        return std::nullopt;
    }
    // What the toggle picker does for a new shortcut, as the screen drives it.
    void pickToggle(KeyCombination combination) {
        vm.setShowingShortcutPicker(true);
        shortcuts.toggle = combination;
        vm.setShowingShortcutPicker(false);
    }

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
    FakeCustomKeybindings gnome;
    SettingsViewModel vm{files, capture, shortcuts, keyMonitor, autostart};
};

TEST_F(DesktopShortcutSettingsTest, DesktopsThatBindKeysThemselvesShowNothingExtra) {
    for (auto path : {ShortcutPath::own, ShortcutPath::portal, ShortcutPath::compositor}) {
        useDesktop(path);
        vm.load();
        EXPECT_EQ(vm.handBindCommand(), "");
        EXPECT_FALSE(vm.offersGnomeKeybinding());
        EXPECT_FALSE(vm.showsCancelFromTrayNote());
        vm.addToGnomeKeyboardShortcuts();
    }
    EXPECT_TRUE(gnome.writes.empty());
    // Where the cancel key cannot reach us from other applications, the screen says where cancelling went,
    // unless a compositor binding can carry it.
    for (auto path : {ShortcutPath::portal, ShortcutPath::gnomeKeybinding, ShortcutPath::byHand}) {
        useDesktop(path, true);
        EXPECT_TRUE(vm.showsCancelFromTrayNote());
    }
    useDesktop(ShortcutPath::compositor, true);
    EXPECT_FALSE(vm.showsCancelFromTrayNote());
}

TEST_F(DesktopShortcutSettingsTest, OtherDesktopsGetTheCommandToBindAndCopyIt) {
    useDesktop(ShortcutPath::byHand);
    vm.load();
    EXPECT_EQ(vm.handBindCommand(), "/usr/bin/vocle-cli toggle");
    EXPECT_EQ(
        vm.handBindNote(),
        "Your desktop runs the shortcut: in its keyboard settings, bind Ctrl+Alt+Space to this command:");
    EXPECT_FALSE(vm.offersGnomeKeybinding());
    pasteboard.setString("something the user copied");
    vm.copyHandBindCommand();
    EXPECT_EQ(pasteboard.string(), "/usr/bin/vocle-cli toggle");
    EXPECT_EQ(pasteboard.clearCount, 1);
}

TEST_F(DesktopShortcutSettingsTest, AddingWritesOneEntryAndASecondClickUpdatesIt) {
    useDesktop(ShortcutPath::gnomeKeybinding);
    vm.load();
    EXPECT_TRUE(vm.offersGnomeKeybinding());
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), "") << "nothing added yet";
    EXPECT_EQ(vm.handBindCommand(), "/usr/bin/vocle-cli toggle");
    EXPECT_TRUE(vm.showsHandBindCommand())
        << "until the entry is in place, the command is on offer beside it";

    vm.addToGnomeKeyboardShortcuts();
    const DesktopKeybinding expected{SettingsViewModel::kGnomeKeybindingName, "/usr/bin/vocle-cli toggle",
                                     "<Control><Alt>space"};
    ASSERT_EQ(gnome.writes, std::vector<DesktopKeybinding>{expected});
    EXPECT_FALSE(vm.gnomeKeybindingProblem.get());
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), "Added: GNOME starts and stops dictation on Ctrl+Alt+Space.");
    EXPECT_TRUE(
        logs->contains("Settings: GNOME's keyboard shortcuts run \"/usr/bin/vocle-cli toggle\" on "
                       "<Control><Alt>space"));

    // Shown again later: the entry is found and reported, nothing is written.
    SettingsViewModel again{files, capture, shortcuts, keyMonitor, autostart};
    SettingsViewModel::CompositorShortcuts c;
    c.keysymName = keysym;
    c.path = ShortcutPath::gnomeKeybinding;
    c.cliProgram = "/usr/bin/vocle-cli";
    c.keybindings = &gnome;
    again.setCompositorShortcuts(c);
    again.load();
    EXPECT_EQ(again.gnomeKeybindingStatus.get(),
              "Added: GNOME starts and stops dictation on Ctrl+Alt+Space.");
    EXPECT_EQ(gnome.writes.size(), 1u);
    // A second click writes the same entry again (the writer keeps it in place).
    again.addToGnomeKeyboardShortcuts();
    EXPECT_EQ(gnome.writes.size(), 2u);
    EXPECT_EQ(gnome.writes[1], expected);
}

TEST_F(DesktopShortcutSettingsTest, ANewToggleShortcutMovesAnAddedEntryButNeverCreatesOne) {
    useDesktop(ShortcutPath::gnomeKeybinding);
    vm.load();
    pickToggle({40, keys::kControl | keys::kShift});
    EXPECT_TRUE(gnome.writes.empty()) << "not added yet: changing the shortcut adds nothing";

    vm.addToGnomeKeyboardShortcuts();
    pickToggle({keys::kSpace, keys::kCommand});
    ASSERT_EQ(gnome.writes.size(), 2u);
    EXPECT_EQ(gnome.writes.back().binding, "<Super>space");
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), "Added: GNOME starts and stops dictation on Super+Space.");
    // Closing the picker without a change writes nothing.
    vm.setShowingShortcutPicker(true);
    vm.setShowingShortcutPicker(false);
    EXPECT_EQ(gnome.writes.size(), 2u);
}

TEST_F(DesktopShortcutSettingsTest, AnEntryChangedInGnomeIsReportedNotOverwritten) {
    gnome.entry = DesktopKeybinding{"Dictate", "vocle-cli toggle", "<Primary><Shift>F9"};
    useDesktop(ShortcutPath::gnomeKeybinding);
    vm.load();
    EXPECT_TRUE(gnome.writes.empty());
    EXPECT_EQ(
        vm.gnomeKeybindingStatus.get(),
        "GNOME's keyboard shortcuts start dictation on Ctrl+Shift+F9. Add again to use Ctrl+Alt+Space.");
    // Opening and closing the picker without a new shortcut keeps the user's choice in GNOME.
    vm.setShowingShortcutPicker(true);
    vm.setShowingShortcutPicker(false);
    EXPECT_TRUE(gnome.writes.empty());
    EXPECT_EQ(gnome.entry->binding, "<Primary><Shift>F9");
    // A new shortcut picked in Vocle is the user's newer choice: the entry follows it.
    pickToggle({40, keys::kControl});
    ASSERT_EQ(gnome.writes.size(), 1u);
    EXPECT_EQ(gnome.entry->binding, "<Control>k");
    gnome.writes.clear();
    // The same key, bound by hand to a command of another place.
    gnome.entry->command = "vocle-cli toggle";
    vm.load();
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(),
              "GNOME's keyboard shortcuts run \"vocle-cli toggle\" on Ctrl+K. Add again to run "
              "\"/usr/bin/vocle-cli toggle\" instead.");
    EXPECT_FALSE(vm.gnomeKeybindingAdded.get());
    gnome.entry->binding = "";
    vm.load();
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(),
              "GNOME's keyboard shortcuts start dictation on no key. Add again to use Ctrl+K.");
}

TEST_F(DesktopShortcutSettingsTest, AMissingSchemaAFailedWriteAndAnUnnamedKeyAreSaid) {
    gnome.missing = "GNOME's keyboard shortcut settings are not installed on this system.";
    useDesktop(ShortcutPath::gnomeKeybinding);
    vm.load();
    EXPECT_TRUE(vm.gnomeKeybindingProblem.get());
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), *gnome.missing);
    EXPECT_TRUE(vm.showsHandBindCommand());
    vm.addToGnomeKeyboardShortcuts();
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), *gnome.missing);
    EXPECT_TRUE(gnome.writes.empty());

    gnome.missing.reset();
    gnome.failWith =
        "GNOME did not accept the shortcut: its keyboard shortcut settings are locked on this system.";
    vm.addToGnomeKeyboardShortcuts();
    EXPECT_TRUE(vm.gnomeKeybindingProblem.get());
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), *gnome.failWith);
    EXPECT_TRUE(
        logs->contains("❌ Settings: Could not add the toggle shortcut to GNOME's keyboard shortcuts: "));

    gnome.failWith.reset();
    shortcuts.toggle = {200, keys::kOption};
    vm.addToGnomeKeyboardShortcuts();
    EXPECT_TRUE(gnome.writes.empty());
    EXPECT_TRUE(vm.gnomeKeybindingProblem.get());
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(),
              "GNOME has no name for the key of Alt+Key. Choose another shortcut above.");

    shortcuts.toggle = {keys::kSpace, keys::kControl};
    vm.addToGnomeKeyboardShortcuts();
    EXPECT_FALSE(vm.gnomeKeybindingProblem.get());
    EXPECT_EQ(gnome.writes.size(), 1u);
}

}  // namespace

namespace {

TEST(VocleCliLocationTest, BesideTheAppThenTheBuildTreeThenThePath) {
    TempDir dir;
    auto program = [&](const std::filesystem::path& p, bool executable) {
        std::filesystem::create_directories(p.parent_path());
        writeText(p, "#!/bin/sh\n");
        std::filesystem::permissions(
            p, executable ? std::filesystem::perms::owner_all : std::filesystem::perms::owner_read);
    };
    MapEnvironment env(
        std::map<std::string, std::string>{{"PATH", "relative/bin:" + (dir / "bin").string()}});
    EXPECT_EQ(locateVocleCli((dir / "app" / "vocle").string(), env), "vocle-cli") << "nowhere: the bare name";
    program(dir / "relative" / "bin" / "vocle-cli", true);
    program(dir / "bin" / "vocle-cli", false);
    EXPECT_EQ(locateVocleCli((dir / "app" / "vocle").string(), env), "vocle-cli")
        << "neither a relative $PATH entry nor a file that cannot run";
    program(dir / "bin" / "vocle-cli", true);
    EXPECT_EQ(locateVocleCli((dir / "app" / "vocle").string(), env), (dir / "bin" / "vocle-cli").string());
    program(dir / "tools" / "vocle-cli" / "vocle-cli", true);
    EXPECT_EQ(locateVocleCli((dir / "app" / "vocle").string(), env),
              (dir / "tools" / "vocle-cli" / "vocle-cli").string());
    program(dir / "app" / "vocle-cli", true);
    EXPECT_EQ(locateVocleCli((dir / "app" / "vocle").string(), env), (dir / "app" / "vocle-cli").string());
}

}  // namespace
