// The real vocle on a headless KDE Plasma session: its shortcuts bound through the GlobalShortcuts portal,
// pressed on a keyboard that KWin treats like a real one (the RemoteDesktop portal's), so each press goes
// through the compositor's own shortcut handling.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "support/PortalTestClient.h"
#include "support/desktop/DesktopHarness.h"

using namespace vocle::testing;

namespace {

constexpr int32_t kControlL = 0xffe3, kAltL = 0xffe9, kEscape = 0xff1b;

size_t occurrences(const std::string& text, const std::string& what, size_t from) {
    size_t count = 0;
    for (size_t at = text.find(what, from); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

class KdeShortcuts : public ::testing::Test {
  protected:
    void SetUp() override {
        desktop = std::make_unique<DesktopHarness>(DesktopSession::Server::kde);
        // The session points this process at the compositor; the app gets the same.
        const char* runtime = std::getenv("XDG_RUNTIME_DIR");
        const char* wayland = std::getenv("WAYLAND_DISPLAY");
        ASSERT_TRUE(runtime && wayland);
        desktop->setEnvironment("WAYLAND_DISPLAY", std::string(runtime) + "/" + wayland);
        desktop->setEnvironment("XDG_CURRENT_DESKTOP", "KDE");
        desktop->signIn("kde@example.com");
        keyboard = std::make_unique<PortalTestClient>(desktop->environment().at("DBUS_SESSION_BUS_ADDRESS"));
        // Right after the session came up the portal now and then answers Start with 2; ask again.
        for (int attempt = 0; attempt < 3 && keys.empty(); ++attempt) {
            if (attempt) std::this_thread::sleep_for(500ms);
            keys = startKeyboard("testkeys" + std::to_string(attempt));
        }
        ASSERT_FALSE(keys.empty()) << "no keyboard from the RemoteDesktop portal";
    }
    std::string startKeyboard(const std::string& token) {
        std::string error;
        const char* rd = "org.freedesktop.portal.RemoteDesktop";
        auto created =
            keyboard->request(rd, "CreateSession", {}, {{"session_handle_token", token}}, 10, &error);
        if (!created || created->code != 0) return {};
        const std::string handle = created->strings["session_handle"];
        auto selected =
            keyboard->request(rd, "SelectDevices", {handle}, {{"types", uint32_t{1}}}, 10, &error);
        auto begun = keyboard->request(rd, "Start", {handle, std::string()}, {}, 30, &error);
        return selected && begun && selected->code == 0 && begun->code == 0 ? handle : std::string();
    }
    void press(const std::vector<int32_t>& chord) {
        for (int32_t keysym : chord) ASSERT_TRUE(keyboard->notifyKeysym(keys, keysym, true));
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            ASSERT_TRUE(keyboard->notifyKeysym(keys, *it, false));
    }
    // Time for a second, unwanted reaction to show up in the log.
    static void settle(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }

    std::unique_ptr<DesktopHarness> desktop;
    std::unique_ptr<PortalTestClient> keyboard;
    std::string keys;
};

TEST_F(KdeShortcuts, TheToggleKeyStartsADictationAndEscapeCancelsItOnlyWhileItRuns) {
    desktop->startVocle();
    ASSERT_TRUE(desktop->waitForLog("GlobalShortcuts: toggle bound to Ctrl+Alt+Space", 15s))
        << desktop->vocleLog();
    EXPECT_NE(
        desktop->vocleLog().find("Global shortcuts: through the desktop portal (GlobalShortcuts version 1)"),
        std::string::npos);

    size_t from = desktop->logSize();
    press({kEscape});
    // Our own window may have the focus and see that Escape (as it should); let it land before the toggle.
    desktop->waitForLog("Local event - KeyCode: 53", 2s, from);
    press({kControlL, kAltL, ' '});
    ASSERT_TRUE(desktop->waitForLog("audioOutput.isRecording after", 15s, from))
        << desktop->vocleLog().substr(from);
    settle(1s);
    const std::string started = desktop->vocleLog();
    EXPECT_EQ(occurrences(started, "Carbon HotKey toggle detected!", from), 1u) << started.substr(from);
    // One press, one toggle: no other path (the X key monitor, our own windows' monitor) saw it as well.
    EXPECT_EQ(occurrences(started, "Global NSEvent shortcut detected!", from), 0u) << started.substr(from);
    EXPECT_EQ(occurrences(started, "🔥 SHORTCUT MATCHED!", from), 0u) << started.substr(from);
    EXPECT_EQ(occurrences(started, "AppState - startRecording called", from), 1u) << started.substr(from);
    // Escape pressed while idle was not ours.
    EXPECT_EQ(occurrences(started, "Carbon HotKey cancel detected!", from), 0u) << started.substr(from);

    ASSERT_TRUE(desktop->waitForLog("GlobalShortcuts: cancel bound to Esc", 10s, from))
        << started.substr(from);
    press({kEscape});
    ASSERT_TRUE(desktop->waitForLog("AppState - cancelRecording called", 10s, from))
        << desktop->vocleLog().substr(from);
    settle(2s);
    from = desktop->logSize();
    press({kEscape});
    settle(1s);
    EXPECT_EQ(occurrences(desktop->vocleLog(), "Carbon HotKey cancel detected!", from), 0u)
        << desktop->vocleLog().substr(from);
}

}  // namespace
