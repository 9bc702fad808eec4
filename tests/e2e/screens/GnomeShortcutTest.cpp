// The running application on a GNOME Wayland desktop without the global-shortcuts portal: the Settings
// screen's button writes GNOME's custom keyboard shortcut, read back with the gsettings tool.

#include <gtest/gtest.h>

#include <thread>

#include "ScreenReader.h"
#include "support/desktop/DesktopHarness.h"

using namespace vocle::testing;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

TEST(GnomeShortcut, TheSettingsButtonAddsVoclesToggleToGnomesKeyboardShortcuts) {
    DesktopHarness desktop;
    // What a GNOME Wayland session tells its programs; GSettings on a private keyfile in this desktop's
    // configuration folder. The windows stay on the X server, as they do on XWayland.
    desktop.setEnvironment("XDG_SESSION_TYPE", "wayland");
    desktop.setEnvironment("XDG_CURRENT_DESKTOP", "GNOME");
    desktop.setEnvironment("GSETTINGS_BACKEND", "keyfile");
    desktop.enableAccessibility();
    desktop.signIn("gnome@example.com");
    ScreenReader reader("Vocle", desktop.environment());
    desktop.startVocle();

    auto see = [&](const std::string& name, const std::string& role) {
        auto found = reader.waitFor(name, role, 15s);
        if (!found) throw std::runtime_error("no " + role + " \"" + name + "\":\n" + reader.dump());
        return *found;
    };
    const auto entry = see("Settings", "check box");
    desktop.click(entry.centerX(), entry.centerY());
    see("Toggle Recording On/Off", "label");
    // Until it is added, the command to bind by hand, with vocle-cli's full path.
    const std::string cli =
        fs::weakly_canonical(DesktopHarness::binary("tools/vocle-cli/vocle-cli")).string();
    see(cli + " toggle", "label");
    const auto add = see("Add to GNOME keyboard shortcuts", "push button");
    desktop.click(add.centerX(), add.centerY());
    see("Added: GNOME starts and stops dictation on Ctrl+Alt+Space.", "label");
    EXPECT_TRUE(waitFor([&] { return !reader.find(cli + " toggle", "label"); }, 5s)) << reader.dump();
    EXPECT_TRUE(
        desktop.waitForLog("GSettingsKeybindings: Wrote /org/gnome/settings-daemon/plugins/media-keys/"
                           "custom-keybindings/vocle-toggle/",
                           5s));
    const fs::path shot = fs::path(VOCLE_BINARY_DIR) / "screenshots" / "e2e-settings-gnome-added.png";
    desktop.screenshot(shot);

    auto gsettings = [&](std::vector<std::string> args) {
        args.insert(args.begin(), "gsettings");
        ChildProcess::Options options{args, desktop.environment()};
        auto result = runProgram(options);
        EXPECT_EQ(result.status, 0) << result.output;
        while (!result.output.empty() && result.output.back() == '\n') result.output.pop_back();
        return result.output;
    };
    const std::string ours =
        "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding:/org/gnome/"
        "settings-daemon/plugins/media-keys/custom-keybindings/vocle-toggle/";
    EXPECT_EQ(gsettings({"get", "org.gnome.settings-daemon.plugins.media-keys", "custom-keybindings"}),
              "['/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/vocle-toggle/']");
    EXPECT_EQ(gsettings({"get", ours, "binding"}), "'<Control><Alt>space'");
    EXPECT_EQ(gsettings({"get", ours, "command"}), "'" + cli + " toggle'");

    // The command GNOME would run reaches the running application.
    const size_t start = desktop.logSize();
    ChildProcess::Options run{{cli, "toggle"}, desktop.environment()};
    EXPECT_EQ(runProgram(run).status, 0);
    EXPECT_TRUE(desktop.waitForLog("audioOutput.isRecording after", 15s, start))
        << desktop.vocleLog().substr(start);
    run.argv = {cli, "cancel"};
    EXPECT_EQ(runProgram(run).status, 0);
}

}  // namespace
