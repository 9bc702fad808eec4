#include <gtest/gtest.h>

#include "foundation/VirtualMainQueue.h"
#include "platform/linux/DesktopSettingsPanels.h"
#include "platform/linux/XdgUrlOpener.h"

namespace vocle {
namespace {

const char* const kSound = "x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone";
const char* const kSystemAudio =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_ScreenCapture";
const char* const kAccessibility =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_Accessibility";

TEST(DesktopPlaceNamesTest, EachDesktopNamesItsSettingsAsItsOwnWindowsDo) {
    struct Case {
        std::map<std::string, std::string> env;
        std::optional<std::string> application, sound, accessibility;
    };
    const Case cases[] = {
        {{{"XDG_CURRENT_DESKTOP", "GNOME"}}, "Settings", "Settings > Sound", "Settings > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "ubuntu:GNOME"}},
         "Settings",
         "Settings > Sound",
         "Settings > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "KDE"}, {"KDE_SESSION_VERSION", "5"}},
         "System Settings",
         "System Settings > Audio",
         "System Settings > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "KDE"}, {"KDE_SESSION_VERSION", "6"}},
         "System Settings",
         "System Settings > Sound",
         "System Settings > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "X-Cinnamon"}},
         "System Settings",
         "System Settings > Sound",
         "System Settings > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "MATE"}},
         "Control Center",
         "Control Center > Sound",
         "Control Center > Assistive Technologies"},
        // Xfce has no sound page of its own.
        {{{"XDG_CURRENT_DESKTOP", "XFCE"}},
         "Settings Manager",
         std::nullopt,
         "Settings Manager > Accessibility"},
        {{{"XDG_CURRENT_DESKTOP", "sway"}}, std::nullopt, std::nullopt, std::nullopt},
        {{}, std::nullopt, std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        MapEnvironment env(c.env);
        DesktopSettingsPanels panels(env);
        const std::string desktop =
            c.env.count("XDG_CURRENT_DESKTOP") ? c.env.at("XDG_CURRENT_DESKTOP") : "none";
        EXPECT_EQ(panels.applicationName(), c.application) << desktop;
        EXPECT_EQ(panels.placeName(kSound), c.sound) << desktop;
        EXPECT_EQ(panels.placeName(kSystemAudio), c.sound) << desktop;
        EXPECT_EQ(panels.placeName(kAccessibility), c.accessibility) << desktop;
        EXPECT_EQ(panels.placeName("https://example.org/settings"), std::nullopt) << desktop;
    }
}

TEST(DesktopPlaceNamesTest, TheUrlOpenerAnswersWithTheRunningDesktopsNames) {
    VirtualMainQueue main;
    MapEnvironment env(std::map<std::string, std::string>{{"XDG_CURRENT_DESKTOP", "GNOME"}});
    XdgUrlOpener opener(main, env);
    const UrlOpener& seam = opener;
    EXPECT_EQ(seam.settingsApplication(), "Settings");
    EXPECT_EQ(seam.settingsPlace(kAccessibility), "Settings > Accessibility");
}

}  // namespace
}  // namespace vocle
