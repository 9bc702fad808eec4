#include "platform/linux/ApplicationNaming.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace vocle {
namespace {

using testing::TempDir;
using testing::writeText;

std::string app(const std::string& name, const std::string& extra = "") {
    return "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=true\n" + extra;
}

// A process table of our own: /proc/<pid>/{comm,exe,environ}.
class ApplicationNamingTest : public ::testing::Test {
  protected:
    void SetUp() override {
        writeText(dir / "applications/firefox-esr.desktop",
                  app("Firefox ESR", "StartupWMClass=Firefox-esr\n"));
        writeText(dir / "applications/org.gnome.TextEditor.desktop", app("Text Editor"));
        writeText(dir / "applications/org.example.Notes.desktop", app("Notes"));
        writeText(dir / "applications/debian-xterm.desktop", app("XTerm", "StartupWMClass=XTerm\n"));
        index = std::make_unique<DesktopEntryIndex>(std::vector<std::filesystem::path>{dir / "applications"});
    }

    std::filesystem::path process(int pid, const std::string& exe, const std::string& comm,
                                  const std::vector<std::string>& environment = {}) {
        const auto root = dir / "proc" / std::to_string(pid);
        std::filesystem::create_directories(root);
        writeText(root / "comm", comm + "\n");
        std::string block;
        for (const auto& var : environment) block += var + '\0';
        writeText(root / "environ", block);
        if (!exe.empty()) std::filesystem::create_symlink(exe, root / "exe");
        return dir / "proc";
    }

    std::optional<RunningApplication> name(int pid, const std::string& accessibleName) {
        auto identity = readProcessIdentity(pid, dir / "proc");
        if (!identity) return std::nullopt;
        return applicationOfProcess(*index, pid, *identity, accessibleName);
    }

    TempDir dir;
    std::unique_ptr<DesktopEntryIndex> index;
};

TEST_F(ApplicationNamingTest, ReadsWhatTheProcessTableTells) {
    process(41, "/usr/lib/firefox-esr/firefox-esr (deleted)", "firefox-esr",
            {"HOME=/home/u", "GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/firefox-esr.desktop",
             "GIO_LAUNCHED_DESKTOP_FILE_PID=41"});
    auto identity = readProcessIdentity(41, dir / "proc");
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->executable, "firefox-esr");
    EXPECT_EQ(identity->command, "firefox-esr");
    EXPECT_EQ(identity->desktopId, "firefox-esr");

    // A shell in a terminal inherits the terminal's launch record: not its own.
    process(42, "/usr/bin/bash", "bash",
            {"GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/debian-xterm.desktop",
             "GIO_LAUNCHED_DESKTOP_FILE_PID=7"});
    EXPECT_EQ(readProcessIdentity(42, dir / "proc")->desktopId, "");
    process(43, "/usr/bin/bwrap", "gnome-text-edit", {"FLATPAK_ID=org.gnome.TextEditor"});
    EXPECT_EQ(readProcessIdentity(43, dir / "proc")->desktopId, "org.gnome.TextEditor");

    EXPECT_FALSE(readProcessIdentity(44, dir / "proc")) << "a process that is gone";
    EXPECT_FALSE(readProcessIdentity(0, dir / "proc"));
    // The real table: this very process.
    auto self = readProcessIdentity(getpid());
    ASSERT_TRUE(self);
    EXPECT_FALSE(self->executable.empty());
}

TEST_F(ApplicationNamingTest, NamesAProcessByItsDesktopFile) {
    // Launch record first, even when the executable would name another file.
    process(10, "/usr/bin/xterm", "xterm",
            {"GIO_LAUNCHED_DESKTOP_FILE=/x/org.example.Notes.desktop", "GIO_LAUNCHED_DESKTOP_FILE_PID=10"});
    EXPECT_EQ(name(10, "Whatever"), (RunningApplication{"org.example.Notes", "Notes", 10}));
    // The name on the accessibility bus as a window class: reverse-DNS ids by their last part.
    process(11, "/usr/bin/python3.11", "python3", {});
    EXPECT_EQ(name(11, "TextEditor"), (RunningApplication{"org.gnome.TextEditor", "Text Editor", 11}));
    // The executable against StartupWMClass, ignoring case.
    process(12, "/usr/lib/firefox-esr/firefox-esr", "firefox-esr", {});
    EXPECT_EQ(name(12, "Firefox"), (RunningApplication{"firefox-esr", "Firefox ESR", 12}));
    // The command name, when the executable says nothing (an interpreter running a script).
    process(13, "/usr/bin/python3.11", "xterm", {});
    EXPECT_EQ(name(13, ""), (RunningApplication{"debian-xterm", "XTerm", 13}));
}

TEST_F(ApplicationNamingTest, AnApplicationWithoutDesktopFileIsKnownByItsExecutable) {
    process(20, "/opt/tools/scratchpad", "scratchpad", {});
    EXPECT_EQ(name(20, "Scratch Pad"), (RunningApplication{"scratchpad", "Scratch Pad", 20}));
    EXPECT_EQ(name(20, ""), (RunningApplication{"scratchpad", "scratchpad", 20}));
    // No executable to read (the link is not ours to follow): the command name.
    process(21, "", "helper", {});
    EXPECT_EQ(name(21, "Helper App"), (RunningApplication{"helper", "Helper App", 21}));
}

TEST_F(ApplicationNamingTest, WindowsAreNamedAsBefore) {
    EXPECT_EQ(nameApplication(*index, {"", "xterm", "XTerm"}, "xterm"),
              (RunningApplication{"debian-xterm", "XTerm", 0}));
    EXPECT_EQ(nameApplication(*index, {"", "foo", "Foo"}, "foo"), (RunningApplication{"foo", "foo", 0}));
    EXPECT_FALSE(nameApplication(*index, {"", "foo", "Foo"}, ""));
}

}  // namespace
}  // namespace vocle
