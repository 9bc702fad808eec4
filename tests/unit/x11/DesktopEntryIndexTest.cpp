#include "platform/linux/DesktopEntryIndex.h"

#include <gtest/gtest.h>

#include "support/TempDir.h"

namespace vocle {
namespace {

using testing::TempDir;
using testing::writeText;

std::string app(const std::string& name, const std::string& extra = "") {
    return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true\n" + extra;
}

class DesktopEntryIndexTest : public ::testing::Test {
  protected:
    TempDir home;
    TempDir system;
    std::filesystem::path homeApps() const { return home.path() / "applications"; }
    std::filesystem::path systemApps() const { return system.path() / "applications"; }
    DesktopEntryIndex index(std::vector<std::string> languages = {}) const {
        return DesktopEntryIndex({homeApps(), systemApps()}, std::move(languages));
    }
};

TEST_F(DesktopEntryIndexTest, MapsWindowClassesToInstalledIds) {
    writeText(systemApps() / "org.mozilla.firefox.desktop",
              app("Firefox", "Icon=org.mozilla.firefox\nStartupWMClass=firefox\n"));
    writeText(systemApps() / "chromium.desktop", app("Chromium Web Browser", "StartupWMClass=chromium\n"));
    writeText(systemApps() / "debian-xterm.desktop", app("XTerm", "StartupWMClass=XTerm\n"));
    writeText(systemApps() / "debian-uxterm.desktop", app("UXTerm", "StartupWMClass=UXTerm\n"));
    writeText(systemApps() / "firefox-esr.desktop", app("Firefox ESR"));
    writeText(systemApps() / "org.gnome.Gedit.desktop", app("Text Editor"));
    writeText(systemApps() / "code.desktop", app("Visual Studio Code", "StartupWMClass=Code\n"));
    const auto idx = index();

    // StartupWMClass against the class, then the instance.
    EXPECT_EQ(idx.applicationIdFor({"", "Navigator", "firefox"}), "org.mozilla.firefox");
    EXPECT_EQ(idx.applicationIdFor({"", "chromium", "Chromium"}), "chromium");
    EXPECT_EQ(idx.applicationIdFor({"", "xterm", "XTerm"}), "debian-xterm");
    EXPECT_EQ(idx.applicationIdFor({"", "xterm", "UXTerm"}), "debian-uxterm");
    EXPECT_EQ(idx.applicationIdFor({"", "code", "Code"}), "code");
    // A class differing only in case still finds its StartupWMClass.
    EXPECT_EQ(idx.applicationIdFor({"", "", "CHROMIUM"}), "chromium");
    // File names, ignoring case; and the last part of a reverse-DNS id.
    EXPECT_EQ(idx.applicationIdFor({"", "Navigator", "Firefox-esr"}), "firefox-esr");
    EXPECT_EQ(idx.applicationIdFor({"", "gedit", "Gedit"}), "org.gnome.Gedit");
    // The GTK application id wins when a file carries it.
    EXPECT_EQ(idx.applicationIdFor({"org.gnome.Gedit", "gedit", "Gedit"}), "org.gnome.Gedit");
    EXPECT_EQ(idx.applicationIdFor({"org.example.Unknown", "xterm", "XTerm"}), "debian-xterm");
    // Nothing installed under that class.
    EXPECT_EQ(idx.applicationIdFor({"", "vocle-probe", "VocleProbe"}), std::nullopt);
    EXPECT_EQ(idx.applicationIdFor({}), std::nullopt);

    EXPECT_EQ(idx.name("org.mozilla.firefox"), "Firefox");
    EXPECT_EQ(idx.iconName("org.mozilla.firefox"), "org.mozilla.firefox");
    EXPECT_EQ(idx.iconName("chromium"), std::nullopt);
    EXPECT_EQ(idx.name("missing"), std::nullopt);
}

TEST_F(DesktopEntryIndexTest, EarlierFoldersHideLaterOnesAndHiddenRemovesTheId) {
    writeText(systemApps() / "editor.desktop", app("System Editor"));
    writeText(homeApps() / "editor.desktop", app("My Editor"));
    writeText(systemApps() / "tracker.desktop", app("Tracker", "StartupWMClass=Tracker\n"));
    writeText(homeApps() / "tracker.desktop", "[Desktop Entry]\nType=Application\nName=Tracker\nHidden=true\n");
    // Sub-folders become part of the id.
    writeText(systemApps() / "kde4" / "kate.desktop", app("Kate"));
    const auto idx = index();

    EXPECT_EQ(idx.name("editor"), "My Editor");
    EXPECT_EQ(idx.entry("tracker"), nullptr);
    EXPECT_EQ(idx.applicationIdFor({"", "tracker", "Tracker"}), std::nullopt);
    EXPECT_EQ(idx.name("kde4-kate"), "Kate");
}

TEST_F(DesktopEntryIndexTest, ListsOnlyDisplayedApplicationsByName) {
    writeText(systemApps() / "zeta.desktop", app("zeta"));
    writeText(systemApps() / "alpha.desktop", app("Alpha"));
    writeText(systemApps() / "helper.desktop", app("Helper", "NoDisplay=true\nStartupWMClass=Helper\n"));
    writeText(systemApps() / "link.desktop", "[Desktop Entry]\nType=Link\nName=Link\nURL=https://example.org\n");
    writeText(systemApps() / "notes.txt", app("Not a desktop file"));
    writeText(systemApps() / "broken.desktop", "Name=No group\n");
    const auto idx = index();

    std::vector<std::string> names;
    for (const auto& e : idx.installedApplications()) names.push_back(e.name);
    EXPECT_EQ(names, (std::vector<std::string>{"Alpha", "zeta"}));
    // Not listed, but a window of it is still recognised.
    EXPECT_EQ(idx.applicationIdFor({"", "helper", "Helper"}), "helper");
    EXPECT_EQ(idx.entry("link"), nullptr);
    EXPECT_EQ(idx.entry("broken"), nullptr);
}

TEST_F(DesktopEntryIndexTest, ReadsOnlyTheMainGroupWithLocalizedNamesAndEscapes) {
    writeText(systemApps() / "files.desktop",
              "# comment\n[Desktop Entry]\nType = Application\nName=Files\nName[de]=Dateien\n"
              "Name[de_AT]=Dateien (AT)\nIcon=folder\\sicon\n"
              "[Desktop Action new]\nName=New Window\nIcon=other\n");
    EXPECT_EQ(index().name("files"), "Files");
    EXPECT_EQ(index({"de_DE", "de"}).name("files"), "Dateien");
    EXPECT_EQ(index({"de_AT", "de"}).name("files"), "Dateien (AT)");
    EXPECT_EQ(index().iconName("files"), "folder icon");
}

TEST(DesktopEntryIndexEnvironment, FollowsTheBaseDirectoryRules) {
    using Vars = std::map<std::string, std::string>;
    MapEnvironment env({{"HOME", "/home/u"}, {"XDG_DATA_DIRS", "/opt/share:relative:/usr/share/"}});
    EXPECT_EQ(DesktopEntryIndex::applicationDirectories(env),
              (std::vector<std::filesystem::path>{"/home/u/.local/share/applications", "/opt/share/applications",
                                                  "/usr/share/applications"}));
    MapEnvironment defaults({{"HOME", "/home/u"}, {"XDG_DATA_HOME", "/data"}});
    EXPECT_EQ(DesktopEntryIndex::applicationDirectories(defaults),
              (std::vector<std::filesystem::path>{"/data/applications", "/usr/local/share/applications",
                                                  "/usr/share/applications"}));

    EXPECT_EQ(DesktopEntryIndex::languagesFromEnvironment(MapEnvironment(Vars{{"LANG", "de_DE.UTF-8"}})),
              (std::vector<std::string>{"de_DE", "de"}));
    EXPECT_EQ(DesktopEntryIndex::languagesFromEnvironment(
                  MapEnvironment(Vars{{"LANG", "de_DE.UTF-8"}, {"LC_ALL", "fr_FR@euro"}})),
              (std::vector<std::string>{"fr_FR", "fr"}));
    EXPECT_TRUE(DesktopEntryIndex::languagesFromEnvironment(MapEnvironment(Vars{{"LANG", "C.UTF-8"}})).empty());
}

}  // namespace
}  // namespace vocle
