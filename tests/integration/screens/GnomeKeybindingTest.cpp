// GNOME's custom keyboard shortcuts written through GSettings and read back with the gsettings tool, on
// GLib's keyfile backend in a private configuration folder (the user's own settings are never touched).

#include <gtest/gtest.h>

#include <gio/gio.h>

#include <cstdlib>
#include <map>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/x11/GSettingsKeybindings.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "screens/SettingsViewModel.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

const std::string kList = GSettingsKeybindings::kSchema;
const std::string kBase = GSettingsKeybindings::kEntryBase;

class GnomeKeybindingTest : public ::testing::Test {
  protected:
    // GLib picks its backend and configuration folder once per process: set both before its first use.
    static void SetUpTestSuite() {
        config_ = new TempDir;
        for (const char* name : {"GSETTINGS_BACKEND", "XDG_CONFIG_HOME"})
            if (const char* value = getenv(name)) saved_[name] = value;
        setenv("GSETTINGS_BACKEND", "keyfile", 1);
        setenv("XDG_CONFIG_HOME", (config_->path() / "config").c_str(), 1);
    }
    // Later tests of this process see the environment they started with.
    static void TearDownTestSuite() {
        for (const char* name : {"GSETTINGS_BACKEND", "XDG_CONFIG_HOME"}) {
            if (saved_.count(name))
                setenv(name, saved_[name].c_str(), 1);
            else
                unsetenv(name);
        }
        delete config_;
        config_ = nullptr;
    }

    static std::string gsettings(std::vector<std::string> args) {
        args.insert(args.begin(), "gsettings");
        ChildProcess::Options options;
        options.argv = args;
        options.environment = {{"GSETTINGS_BACKEND", "keyfile"},
                               {"XDG_CONFIG_HOME", (config_->path() / "config").string()}};
        const auto result = runProgram(options);
        EXPECT_EQ(result.status, 0) << result.output;
        std::string out = result.output;
        while (!out.empty() && out.back() == '\n') out.pop_back();
        return out;
    }
    static std::string entry(const std::string& id, const std::string& key) {
        return gsettings(
            {"get", std::string(GSettingsKeybindings::kEntrySchema) + ":" + kBase + id + "/", key});
    }
    static void setEntry(const std::string& id, const std::string& key, const std::string& value) {
        gsettings(
            {"set", std::string(GSettingsKeybindings::kEntrySchema) + ":" + kBase + id + "/", key, value});
    }

    static TempDir* config_;
    static std::map<std::string, std::string> saved_;
};
TempDir* GnomeKeybindingTest::config_ = nullptr;
std::map<std::string, std::string> GnomeKeybindingTest::saved_;

TEST_F(GnomeKeybindingTest, TheSettingsScreenAddsOneEntryBesideTheUsersOwnAndUpdatesItInPlace) {
    // The user's own shortcut, made in GNOME's settings before Vocle ever runs.
    gsettings({"set", kList, "custom-keybindings", "['" + kBase + "custom0/']"});
    setEntry("custom0", "name", "Terminal");
    setEntry("custom0", "command", "gnome-terminal");
    setEntry("custom0", "binding", "<Super>t");

    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    TempDir dir;
    VirtualMainQueue queue;
    FileStorageManager files{DataFolder{dir.path() / "data"}, queue};
    FakeCapture capture;
    RecordingShortcuts shortcuts;
    MapEnvironment env({{"HOME", (dir.path() / "home").string()}});
    AutostartEntry autostart{env, "/usr/bin/vocle"};
    FakeLocalKeyMonitor keyMonitor;
    GSettingsKeybindings gnome;
    ASSERT_EQ(gnome.unavailableReason(), std::nullopt);
    EXPECT_EQ(gnome.find(), std::nullopt) << "the user's entry runs something else";

    SettingsViewModel vm{files, capture, shortcuts, keyMonitor, autostart};
    SettingsViewModel::CompositorShortcuts desktop;
    desktop.keysymName = [](uint16_t keyCode) -> std::optional<std::string> {
        if (keyCode == keys::kSpace) return "space";
        if (keyCode == 40) return "k";
        return std::nullopt;
    };
    desktop.path = ShortcutPath::gnomeKeybinding;
    desktop.cliProgram = "/opt/Vocle Beta/bin/vocle-cli";
    desktop.keybindings = &gnome;
    vm.setCompositorShortcuts(desktop);
    vm.load();
    vm.addToGnomeKeyboardShortcuts();
    ASSERT_FALSE(vm.gnomeKeybindingProblem.get()) << vm.gnomeKeybindingStatus.get();

    EXPECT_EQ(gsettings({"get", kList, "custom-keybindings"}),
              "['" + kBase + "custom0/', '" + kBase + "vocle-toggle/']");
    EXPECT_EQ(entry("vocle-toggle", "name"), "'Vocle: start or stop dictation'");
    EXPECT_EQ(entry("vocle-toggle", "command"), "\"'/opt/Vocle Beta/bin/vocle-cli' toggle\"");
    EXPECT_EQ(entry("vocle-toggle", "binding"), "'<Control><Alt>space'");
    EXPECT_EQ(entry("custom0", "binding"), "'<Super>t'");

    // A second click and a new shortcut rewrite the same entry.
    vm.addToGnomeKeyboardShortcuts();
    vm.setShowingShortcutPicker(true);
    shortcuts.toggle = {40, keys::kControl | keys::kShift};
    vm.setShowingShortcutPicker(false);
    EXPECT_EQ(gsettings({"get", kList, "custom-keybindings"}),
              "['" + kBase + "custom0/', '" + kBase + "vocle-toggle/']");
    EXPECT_EQ(entry("vocle-toggle", "binding"), "'<Control><Shift>k'");
    EXPECT_EQ(vm.gnomeKeybindingStatus.get(), "Added: GNOME starts and stops dictation on Ctrl+Shift+K.");
    EXPECT_TRUE(logs->contains("GSettingsKeybindings: Wrote " + kBase + "vocle-toggle/"));
}

TEST_F(GnomeKeybindingTest, AnEntryMadeByHandForTheSameCommandIsOursAndNotDuplicated) {
    gsettings({"set", kList, "custom-keybindings", "['" + kBase + "custom0/', '" + kBase + "custom1/']"});
    setEntry("custom0", "command", "gnome-terminal");
    setEntry("custom1", "name", "dictate");
    setEntry("custom1", "command", "vocle-cli toggle");
    setEntry("custom1", "binding", "F9");

    GSettingsKeybindings gnome;
    // A process that has read the settings before hears of other writers through GLib's main context.
    ASSERT_TRUE(waitFor(
        [&] {
            while (g_main_context_iteration(nullptr, FALSE)) {
            }
            const auto found = gnome.find();
            return found && found->binding == "F9";
        },
        std::chrono::seconds(5)));
    ASSERT_EQ(gnome.write({"Vocle: start or stop dictation", "/usr/bin/vocle-cli toggle", "<Super>space"}),
              std::nullopt);
    EXPECT_EQ(gsettings({"get", kList, "custom-keybindings"}),
              "['" + kBase + "custom0/', '" + kBase + "custom1/']");
    EXPECT_EQ(entry("custom1", "command"), "'/usr/bin/vocle-cli toggle'");
    EXPECT_EQ(entry("custom1", "binding"), "'<Super>space'");
    EXPECT_EQ(entry("custom0", "command"), "'gnome-terminal'");
}

TEST(GnomeKeybindingSchemaTest, AMissingSchemaIsAClearErrorNotACrash) {
    TempDir dir;
    // A schema folder holding some other schema, as on a desktop without GNOME's settings daemon.
    writeText(dir / "org.example.other.gschema.xml",
              "<schemalist><schema id='org.example.other' path='/org/example/other/'>"
              "<key name='x' type='b'><default>false</default></key></schema></schemalist>");
    ChildProcess::Options compile;
    compile.argv = {"glib-compile-schemas", dir.path().string()};
    ASSERT_EQ(runProgram(compile).status, 0);
    ASSERT_TRUE(std::filesystem::exists(dir / "gschemas.compiled"));

    for (const auto& folder : {dir.path(), dir.path() / "empty"}) {
        GSettingsKeybindings gnome("vocle-toggle", folder);
        const auto reason = gnome.unavailableReason();
        ASSERT_TRUE(reason) << folder;
        EXPECT_NE(reason->find("org.gnome.settings-daemon.plugins.media-keys is missing"), std::string::npos);
        EXPECT_EQ(gnome.find(), std::nullopt);
        EXPECT_EQ(gnome.write({"Vocle", "vocle-cli toggle", "F9"}), reason);
    }
}

// GLib fixes its backend once per process: the check runs in a fresh copy of this test program.
TEST(GnomeKeybindingSchemaDeathTest, SettingsThatWouldOnlyLiveInMemoryAreRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("GSETTINGS_BACKEND", "memory", 1);
            GSettingsKeybindings gnome;
            const auto reason = gnome.unavailableReason();
            const bool said = reason && reason->find("dconf-gsettings-backend") != std::string::npos;
            const bool refused = gnome.write({"Vocle", "vocle-cli toggle", "F9"}) == reason;
            std::exit(said && refused ? 7 : 1);
        },
        ::testing::ExitedWithCode(7), "");
}

}  // namespace
