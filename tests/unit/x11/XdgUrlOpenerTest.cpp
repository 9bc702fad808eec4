#include "platform/linux/XdgUrlOpener.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using testing::TempDir;

// Stands in for xdg-open: records its arguments, fails for one address.
std::string writeOpener(const TempDir& dir) {
    const auto script = dir / "fake-xdg-open";
    testing::writeText(script, "#!/bin/sh\nprintf '%s|' \"$@\" >> \"" + (dir / "opened").string() +
                                   "\"\necho >> \"" + (dir / "opened").string() +
                                   "\"\n[ \"$1\" = \"https://fails.example\" ] && exit 4\nexit 0\n");
    chmod(script.c_str(), 0755);
    return script.string();
}

bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

TEST(XdgUrlOpenerTest, PassesTheAddressAsOneArgumentAndLogsFailures) {
    TempDir dir;
    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    VirtualMainQueue main;
    MapEnvironment env;
    XdgUrlOpener opener(main, env, writeOpener(dir));

    opener.openURL("https://example.org/a b?x=1&y=$HOME;true");
    ASSERT_TRUE(eventually([&] { return testing::readText(dir / "opened").find('\n') != std::string::npos; }));
    EXPECT_EQ(testing::readText(dir / "opened"), "https://example.org/a b?x=1&y=$HOME;true|\n");

    std::vector<std::string> failures;
    opener.openURL("https://fails.example", [&](const std::string& message) { failures.push_back(message); });
    EXPECT_TRUE(eventually([&] {
        return logs->contains("❌ XdgUrlOpener: " + dir.path().string() +
                              "/fake-xdg-open could not open https://fails.example (exit status 4)");
    }));
    // The user hears of it on the main queue, not on the reaping thread.
    EXPECT_TRUE(eventually([&] {
        main.runUntilIdle();
        return !failures.empty();
    }));
    EXPECT_EQ(failures, (std::vector<std::string>{"Could not open " + dir.path().string() +
                                                  "/fake-xdg-open (exit status 4)."}));
}

TEST(XdgUrlOpenerTest, RefusesWhatXdgOpenWouldMisreadAndReportsAMissingProgram) {
    TempDir dir;
    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    VirtualMainQueue main;
    MapEnvironment env;
    XdgUrlOpener opener(main, env, writeOpener(dir));
    opener.openURL("--help");
    std::vector<std::string> failures;
    opener.openURL("", [&](const std::string& message) { failures.push_back(message); });
    main.runUntilIdle();
    EXPECT_EQ(failures, (std::vector<std::string>{"This link cannot be opened: \"\"."}));
    EXPECT_TRUE(logs->contains("❌ XdgUrlOpener: Refusing to open \"--help\""));
    EXPECT_TRUE(logs->contains("❌ XdgUrlOpener: Refusing to open \"\""));

    XdgUrlOpener missing(main, env, (dir / "no-such-program").string());
    missing.openURL("https://example.org");
    EXPECT_TRUE(eventually([&] { return logs->contains("no-such-program"); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(std::filesystem::exists(dir / "opened"));
}

// A settings link starts the running desktop's panel, else pavucontrol, else says what to check.
TEST(XdgUrlOpenerTest, SettingsLinksOpenTheDesktopsOwnPanelOrExplainWhatToCheck) {
    TempDir dir;
    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped(logs);
    const auto bin = dir / "bin";
    std::filesystem::create_directories(bin);
    auto fakeProgram = [&](const std::string& name) {
        testing::writeText(bin / name,
                           "#!/bin/sh\necho \"" + name + " $*\" >> \"" + (dir / "ran").string() + "\"\n");
        chmod((bin / name).c_str(), 0755);
    };
    const std::string mic = "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";
    const std::string access =
        "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";
    VirtualMainQueue main;
    MapEnvironment env({{"PATH", bin.string()}, {"XDG_CURRENT_DESKTOP", "ubuntu:GNOME"}});
    XdgUrlOpener opener(main, env, writeOpener(dir));
    std::vector<std::string> failures;
    auto collect = [&](const std::string& message) { failures.push_back(message); };

    // Nothing installed: the help text, never a silent xdg-open of a scheme nobody handles.
    opener.openURL(mic, collect);
    opener.openURL(access, collect);
    main.runUntilIdle();
    EXPECT_EQ(failures, (std::vector<std::string>{DesktopSettingsPanels::kSoundInputHelp,
                                                  DesktopSettingsPanels::kAccessibilityHelp}));
    EXPECT_FALSE(std::filesystem::exists(dir / "opened"));

    fakeProgram("pavucontrol");
    opener.openURL(mic, collect);
    ASSERT_TRUE(eventually([&] { return testing::readText(dir / "ran") == "pavucontrol --tab=4\n"; }));

    fakeProgram("gnome-control-center");
    opener.openURL(mic, collect);
    opener.openURL(access, collect);
    EXPECT_TRUE(eventually([&] {
        const auto ran = testing::readText(dir / "ran");
        return ran.find("gnome-control-center sound\n") != std::string::npos &&
               ran.find("gnome-control-center universal-access\n") != std::string::npos;
    }));

    MapEnvironment plasma({{"PATH", bin.string()}, {"XDG_CURRENT_DESKTOP", "KDE"}});
    XdgUrlOpener onPlasma(main, plasma, writeOpener(dir));
    fakeProgram("systemsettings");
    onPlasma.openURL(mic, collect);
    EXPECT_TRUE(eventually([&] {
        return testing::readText(dir / "ran").find("systemsettings kcm_pulseaudio\n") != std::string::npos;
    }));
    main.runUntilIdle();
    EXPECT_EQ(failures.size(), 2u) << "the panels that started are not failures";
}

}  // namespace
}  // namespace vocle
