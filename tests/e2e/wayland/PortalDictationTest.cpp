// The whole dictation on headless GNOME and Plasma: the real vocle (its windows on XWayland), started and
// stopped with vocle-cli as a GNOME custom shortcut would, speech played into the virtual microphone. The
// first paste asks for remote input (GNOME in its own dialog, answered through its accessibility interface as
// a screen reader user does; Plasma 5.27 without one) and waits for the answer; from that one consent on,
// transcripts, the first included, are typed into a native Wayland window through the RemoteDesktop portal.
#include <gtest/gtest.h>

#include <sstream>

#include "support/GnomeSession.h"
#include "support/desktop/DesktopHarness.h"
#include "support/desktop/WordsHeard.h"

using namespace vocle::testing;
namespace fs = std::filesystem;

namespace {

const fs::path kClip =
    "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0880.wav";
const std::string kClipWords = "he was not an ill disposed young man";

std::string fileText(const fs::path& path) {
    return fs::exists(path) ? readText(path) : "";
}

class PortalDictation : public ::testing::Test {
  protected:
    void start(DesktopSession::Server server) {
        desktop = std::make_unique<DesktopHarness>(server);
        desktop->signIn("portal@example.com");
        desktop->startVocle();
        EXPECT_NE(desktop->vocleLog().find("Desktop session: wayland ("), std::string::npos)
            << desktop->vocleLog();
        out = desktop->root() / "qt-target.txt";
        desktop->startProgram({DesktopHarness::binary("tests/vocle-test-text-target").string(), out.string(),
                               "org.vocle.TestTarget"},
                              {{"QT_QPA_PLATFORM", "wayland"}, {"QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1"}});
        ASSERT_TRUE(waitFor([&] { return targetFocused(); }, 20s)) << "the text window never got the focus";
    }
    // Whether the text window's field has the keyboard focus, as a screen reader sees it.
    bool targetFocused() {
        const auto seen = desktop->session().run(
            {DesktopHarness::binary("tests/vocle-test-screen-reader").string(), "org.vocle.TestTarget"}, 5.0);
        if (!seen) return false;
        std::istringstream lines(*seen);
        std::string line;
        while (std::getline(lines, line))
            if (line.rfind("text\t", 0) == 0 && line.size() >= 2 && line.substr(line.size() - 2) == "\t1")
                return true;
        return false;
    }
    void dictate() {
        size_t from = desktop->logSize();
        ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
        ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from)) << desktop->vocleLog();
        desktop->play(kClip);
        from = desktop->logSize();
        ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
        ASSERT_TRUE(desktop->waitForLog("paste simulation completed", 90s, from))
            << desktop->vocleLog().substr(from);
    }

    // The transcript reached the text window through the portal; `asked`: this dictation brought up the
    // request for the grant.
    // The window keeps what was typed before (`before`); the new text follows it.
    void typedThroughThePortal(size_t from, bool asked, const std::string& before = {}) {
        ASSERT_TRUE(waitFor([&] { return fileText(out).size() > before.size(); }, 10s))
            << desktop->vocleLog().substr(from);
        const std::string typed = fileText(out).substr(before.size());
        EXPECT_GE(wordsHeard(typed, kClipWords), 3u) << typed;
        // The path is logged when it changes: at the first paste after the grant.
        if (asked)
            EXPECT_NE(desktop->vocleLog().find("Paste path: RemoteDesktop portal", from), std::string::npos)
                << desktop->vocleLog().substr(from);
        EXPECT_EQ(desktop->vocleLog().find("Remote input: asking", from) != std::string::npos, asked)
            << desktop->vocleLog().substr(from);
        EXPECT_EQ(desktop->vocleLog().find("the transcript stays on the clipboard", from), std::string::npos);
    }
    std::unique_ptr<DesktopHarness> desktop;
    fs::path out;
};

TEST_F(PortalDictation, OnGnomeTheFirstDictationWaitsForTheOneConsentAndIsTyped) {
    ASSERT_NO_FATAL_FAILURE(start(DesktopSession::Server::gnome));
    size_t from = desktop->logSize();
    ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from)) << desktop->vocleLog();
    desktop->play(kClip);
    ASSERT_EQ(desktop->cli({"toggle"}).status, 0);
    ASSERT_TRUE(desktop->waitForLog("Remote input: asking the desktop for keyboard access", 90s, from))
        << desktop->vocleLog().substr(from);
    ASSERT_TRUE(desktop->session().gnome()->answerRemoteDesktopDialog(true, 20.0))
        << "no consent dialog" << desktop->vocleLog().substr(from);
    ASSERT_TRUE(desktop->waitForLog("paste simulation completed", 20s, from))
        << desktop->vocleLog().substr(from);
    typedThroughThePortal(from, true);

    // The next dictation goes straight in: the grant holds for the app's life.
    ASSERT_TRUE(waitFor([&] { return targetFocused(); }, 10s));
    const std::string first = fileText(out);
    from = desktop->logSize();
    dictate();
    typedThroughThePortal(from, false, first);
}

TEST_F(PortalDictation, OnPlasmaTheFirstDictationIsTypedWithoutADialog) {
    ASSERT_NO_FATAL_FAILURE(start(DesktopSession::Server::kde));
    const size_t from = desktop->logSize();
    dictate();  // Plasma 5.27 grants a keyboard without a dialog
    ASSERT_TRUE(desktop->waitForLog("✅ Remote input: keyboard granted", 10s, from))
        << desktop->vocleLog().substr(from);
    typedThroughThePortal(from, true);
}

}  // namespace
