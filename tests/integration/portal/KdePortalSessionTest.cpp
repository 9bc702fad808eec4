// The headless Plasma session against the real portal service: which portals and compositor globals an
// application finds there and how KWin's restricted ones are granted, that keys and a Ctrl+V sent through
// the remote-control portal reach native Wayland and XWayland windows, and how shortcuts bound through the
// GlobalShortcuts portal fire, hold their keys and follow the desktop's settings. Driven with a plain D-Bus
// client, so a failure here is the desktop's, not the application's.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

#include "support/DesktopSession.h"
#include "support/KdeSession.h"
#include "support/PortalTestClient.h"
#include "support/TempDir.h"

using namespace vocle::testing;

namespace {

constexpr const char* kRemoteDesktop = "org.freedesktop.portal.RemoteDesktop";
constexpr const char* kGlobalShortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr int32_t kControlL = 0xffe3, kAltL = 0xffe9, kBackSpace = 0xff08;

DesktopSession& session() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::kde;
        shared = std::make_unique<DesktopSession>(options);
    }
    return *shared;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

class KdePortalSession : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(session());
        client = std::make_unique<PortalTestClient>(session().busAddress());
    }
    void TearDown() override {
        client.reset();
        for (pid_t pid : started) session().stop(pid);
    }

    // A keyboard session of the RemoteDesktop portal, started; its handle. Right after the session comes up,
    // KWin's portal sometimes ends a Start at once (Response 2, about one start in ten here): ask again, as
    // the shortcut tests do.
    std::string startKeyboardSession() {
        std::string error;
        for (int attempt = 1;; ++attempt) {
            auto created = client->request(kRemoteDesktop, "CreateSession", {},
                                           {{"session_handle_token", "voclekeys" + std::to_string(attempt)}},
                                           10.0, &error);
            EXPECT_TRUE(created && created->code == 0) << "CreateSession: " << error;
            if (!created || created->code != 0) return {};
            const std::string handle = created->strings["session_handle"];
            auto selected = client->request(kRemoteDesktop, "SelectDevices", {handle},
                                            {{"types", uint32_t{1}}}, 10.0, &error);
            EXPECT_TRUE(selected && selected->code == 0) << "SelectDevices: " << error;
            auto begun = client->request(kRemoteDesktop, "Start", {handle, std::string()}, {}, 30.0, &error);
            if (begun && begun->code == 2 && attempt < 3) continue;
            EXPECT_TRUE(begun && begun->code == 0)
                << "Start: " << error << " code " << (begun ? begun->code : 99);
            if (!begun || begun->code != 0) return {};
            EXPECT_EQ(begun->numbers["devices"] & 1u, 1u) << "no keyboard granted";
            return handle;
        }
    }
    void press(const std::string& handle, const std::vector<int32_t>& chord) {
        for (int32_t keysym : chord) ASSERT_TRUE(client->notifyKeysym(handle, keysym, true));
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            ASSERT_TRUE(client->notifyKeysym(handle, *it, false));
    }
    void type(const std::string& handle, const std::string& ascii) {
        for (char c : ascii) press(handle, {static_cast<int32_t>(c)});
    }
    // A text window whose text goes to `output`, native Wayland or (`platform` xcb) on XWayland; returns
    // once it takes keys, empty again.
    void openTextWindow(const std::string& handle, const std::filesystem::path& output,
                        const std::string& platform = "wayland") {
        started.push_back(session().spawn(
            {VOCLE_BINARY_DIR "/tests/vocle-test-text-target", output.string(), "org.example.Notes"},
            {"QT_QPA_PLATFORM=" + platform}));
        // Keys sent before the window has the focus go elsewhere: probe until one arrives.
        const bool focused = pollUntil(
            [&] {
                press(handle, {'x'});
                return pollUntil(
                    [&] { return vocle::testing::readText(output).find('x') != std::string::npos; }, 0.5);
            },
            20.0, {}, 0.2);
        ASSERT_TRUE(focused) << "the text window never received a key";
        press(handle, {kControlL, 'a'});
        press(handle, {kBackSpace});
        ASSERT_TRUE(pollUntil([&] { return vocle::testing::readText(output).empty(); }, 5.0))
            << vocle::testing::readText(output);
    }

    std::unique_ptr<PortalTestClient> client;
    std::vector<pid_t> started;
};

TEST_F(KdePortalSession, OffersTheRemoteDesktopAndGlobalShortcutsPortalsButNoWlrootsKeyboard) {
    const auto interfaces = client->portalInterfaces();
    EXPECT_TRUE(contains(interfaces, kRemoteDesktop));
    EXPECT_TRUE(contains(interfaces, kGlobalShortcuts));
    EXPECT_GE(client->portalVersion(kRemoteDesktop).value_or(0), 1u);
    EXPECT_GE(client->portalVersion(kGlobalShortcuts).value_or(0), 1u);
    // Shortcuts are KWin's own: kglobalaccel runs inside the compositor.
    EXPECT_TRUE(client->nameHasOwner("org.kde.kglobalaccel"));

    const auto globals = compositorGlobals();
    ASSERT_TRUE(contains(globals, "wl_seat")) << "no Wayland connection to KWin";
    EXPECT_TRUE(contains(globals, "zwlr_data_control_manager_v1"));
    EXPECT_FALSE(contains(globals, "zwp_virtual_keyboard_manager_v1"));
    EXPECT_FALSE(contains(globals, "org_kde_plasma_window_management"));
    EXPECT_FALSE(contains(globals, "org_kde_kwin_fake_input"));
}

TEST_F(KdePortalSession, ADesktopEntryNamingTheProgramGrantsKWinsRestrictedGlobals) {
    char self[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    ASSERT_FALSE(contains(compositorGlobals(), "org_kde_plasma_window_management"));

    grantKWinInterfaces(session(), self, {"org_kde_plasma_window_management", "org_kde_kwin_fake_input"});
    std::vector<std::string> globals;
    EXPECT_TRUE(pollUntil(
        [&] {
            globals = compositorGlobals();
            return contains(globals, "org_kde_plasma_window_management");
        },
        10.0, {}, 0.2));
    EXPECT_TRUE(contains(globals, "org_kde_kwin_fake_input"));
}

TEST_F(KdePortalSession, AfterTheGrantKeysAndCtrlVReachANativeWaylandWindow) {
    allowRemoteControl(*client);
    EXPECT_EQ(client->permissions("kde-authorized", "remote-desktop", ""), std::vector<std::string>{"yes"});
    const std::string handle = startKeyboardSession();
    ASSERT_FALSE(handle.empty());

    TempDir scratch;
    const auto output = scratch.path() / "typed.txt";
    ASSERT_NO_FATAL_FAILURE(openTextWindow(handle, output));
    type(handle, "Hello Plasma");
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "Hello Plasma"; }, 5.0))
        << vocle::testing::readText(output);

    // The way a transcript goes in: the clipboard, then one Ctrl+V; text beyond the keymap arrives whole.
    const std::string transcript = " – déjà vu, naïve ✓";
    started.push_back(
        session().spawn({"wl-copy", "--foreground", "--type", "text/plain;charset=utf-8", transcript}));
    ASSERT_TRUE(pollUntil([&] { return session().run({"wl-paste", "--no-newline"}) == transcript; }, 5.0));
    press(handle, {kControlL, 'v'});
    EXPECT_TRUE(
        pollUntil([&] { return vocle::testing::readText(output) == "Hello Plasma" + transcript; }, 5.0))
        << vocle::testing::readText(output);

    // For a person to look at: the window as KWin draws it.
    const auto shot = std::filesystem::path(VOCLE_BINARY_DIR) / "screenshots" / "kde-text-window.png";
    std::filesystem::create_directories(shot.parent_path());
    std::string error;
    EXPECT_TRUE(captureScreen(session(), shot, &error)) << error;
}

TEST_F(KdePortalSession, KeysAndCtrlVReachAnXWaylandWindowToo) {
    ASSERT_FALSE(session().display().empty()) << "no XWayland";
    const std::string handle = startKeyboardSession();
    ASSERT_FALSE(handle.empty());
    TempDir scratch;
    const auto output = scratch.path() / "typed.txt";
    ASSERT_NO_FATAL_FAILURE(openTextWindow(handle, output, "xcb"));
    type(handle, "Hello X");
    // KWin hands a Wayland selection to X clients when it names its type.
    started.push_back(
        session().spawn({"wl-copy", "--foreground", "--type", "text/plain;charset=utf-8", " and more"}));
    ASSERT_TRUE(pollUntil(
        [&] {
            return session().run({"xclip", "-o", "-selection", "clipboard"}) == " and more";
        },
        5.0));
    press(handle, {kControlL, 'v'});
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "Hello X and more"; }, 5.0))
        << vocle::testing::readText(output);
}

TEST_F(KdePortalSession, AShortcutBoundThroughThePortalFiresOnItsKeys) {
    client->watch(kGlobalShortcuts);
    // Plasma 5.27 takes the shortcuts with the session (BindShortcuts there only opens System Settings).
    const PortalTestClient::Shortcuts shortcuts = {{"toggle", "Start or stop dictation", "CTRL+ALT+space"}};
    std::string error;
    auto created = client->request(
        kGlobalShortcuts, "CreateSession", {},
        {{"session_handle_token", std::string("voclehotkeys")}, {"shortcuts", shortcuts}}, 10.0, &error);
    ASSERT_TRUE(created && created->code == 0) << error;
    const std::string shortcutSession = created->strings["session_handle"];
    ASSERT_EQ(created->shortcuts.size(), 1u);
    EXPECT_EQ(created->shortcuts[0].first, "toggle");
    EXPECT_EQ(created->shortcuts[0].second, "Ctrl+Alt+Space");

    const std::string keys = startKeyboardSession();
    ASSERT_FALSE(keys.empty());
    press(keys, {kControlL, kAltL, ' '});
    const auto activated = client->waitForSignal("Activated", 5.0);
    ASSERT_TRUE(activated) << "no Activated signal";
    EXPECT_EQ(activated->strings, (std::vector<std::string>{shortcutSession, "toggle"}));
    const auto deactivated = client->waitForSignal("Deactivated", 5.0);
    ASSERT_TRUE(deactivated) << "no Deactivated signal";
    EXPECT_EQ(deactivated->strings, (std::vector<std::string>{shortcutSession, "toggle"}));

    // Another chord does not fire it.
    press(keys, {kControlL, kAltL, 'd'});
    EXPECT_FALSE(client->waitForSignal("Activated", 1.0));
}

// The way a cancel shortcut is held only while a recording runs: its own session, closed at the stop.
TEST_F(KdePortalSession, AShortcutSessionHoldsItsKeyOnlyWhileItIsOpen) {
    const std::string keys = startKeyboardSession();
    ASSERT_FALSE(keys.empty());
    TempDir scratch;
    const auto output = scratch.path() / "typed.txt";
    ASSERT_NO_FATAL_FAILURE(openTextWindow(keys, output));

    client->watch(kGlobalShortcuts);
    std::string error;
    auto created =
        client->request(kGlobalShortcuts, "CreateSession", {},
                        {{"session_handle_token", std::string("voclecancel")},
                         {"shortcuts", PortalTestClient::Shortcuts{{"cancel", "Cancel the recording", "q"}}}},
                        10.0, &error);
    ASSERT_TRUE(created && created->code == 0) << error;
    press(keys, {'q'});
    ASSERT_TRUE(client->waitForSignal("Activated", 5.0)) << "the shortcut did not fire";
    EXPECT_FALSE(pollUntil([&] { return !vocle::testing::readText(output).empty(); }, 0.5))
        << "the window got a key the shortcut holds: " << vocle::testing::readText(output);

    ASSERT_TRUE(client->closeSession(created->strings["session_handle"], &error)) << error;
    press(keys, {'q'});
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "q"; }, 5.0))
        << "the key did not come back: " << vocle::testing::readText(output);
    EXPECT_FALSE(client->waitForSignal("Activated", 0.5));
}

// What System Settings does when the user picks another key: kglobalaccel stores it for the component
// named by the session token, and the open session is told.
TEST_F(KdePortalSession, AKeyChangedInTheDesktopsSettingsReachesTheOpenSession) {
    client->watch(kGlobalShortcuts);
    std::string error;
    auto created = client->request(
        kGlobalShortcuts, "CreateSession", {},
        {{"session_handle_token", std::string("voclerebind")},
         {"shortcuts", PortalTestClient::Shortcuts{{"toggle", "Start or stop dictation", "CTRL+ALT+space"}}}},
        10.0, &error);
    ASSERT_TRUE(created && created->code == 0) << error;

    constexpr int kCtrlAltD = 0x04000000 | 0x08000000 | 0x44;  // Qt's Ctrl | Alt | Key_D
    ASSERT_TRUE(
        session().run({"gdbus", "call", "--session", "--dest", "org.kde.kglobalaccel", "--object-path",
                       "/kglobalaccel", "--method", "org.kde.KGlobalAccel.setForeignShortcut",
                       "['voclerebind', 'toggle', 'voclerebind', 'Start or stop dictation']",
                       "[" + std::to_string(kCtrlAltD) + "]"}));
    const auto changed = client->waitForSignal("ShortcutsChanged", 5.0);
    ASSERT_TRUE(changed) << "no ShortcutsChanged";
    EXPECT_EQ(changed->strings, std::vector<std::string>{created->strings["session_handle"]});

    const std::string keys = startKeyboardSession();
    ASSERT_FALSE(keys.empty());
    press(keys, {kControlL, kAltL, ' '});
    EXPECT_FALSE(client->waitForSignal("Activated", 1.0)) << "the old key still fires";
    press(keys, {kControlL, kAltL, 'd'});
    EXPECT_TRUE(client->waitForSignal("Activated", 5.0)) << "the new key does not fire";
}

// A session that has ended (closed by either side) refuses keys with an error rather than dropping them.
TEST_F(KdePortalSession, KeysForAnEndedSessionAreRefused) {
    const std::string handle = startKeyboardSession();
    ASSERT_FALSE(handle.empty());
    std::string error;
    ASSERT_TRUE(client->notifyKeysym(handle, kControlL, true, &error)) << error;
    ASSERT_TRUE(client->notifyKeysym(handle, kControlL, false, &error)) << error;
    ASSERT_TRUE(client->closeSession(handle, &error)) << error;
    EXPECT_FALSE(client->notifyKeysym(handle, 'a', true, &error));
    EXPECT_EQ(error.rfind("org.freedesktop.DBus.Error.AccessDenied", 0), 0u) << error;
}

}  // namespace
