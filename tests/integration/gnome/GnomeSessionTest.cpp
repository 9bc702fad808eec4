// A headless GNOME session (mutter, xdg-desktop-portal with its GNOME backend, each on the test's private
// bus): the portals it offers, keys typed through the RemoteDesktop portal after the one consent reaching
// a native Wayland window, and the clipboard a program without a focused Wayland surface can set.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include "support/DesktopSession.h"
#include "support/GnomeSession.h"
#include "support/RemoteDesktopProbe.h"
#include "support/TempDir.h"

using namespace vocle::testing;

namespace {

DesktopSession& session() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::gnome;
        options.xwayland = true;
        shared = std::make_unique<DesktopSession>(options);
    }
    return *shared;
}

bool waitFor(const std::function<bool()>& done, double timeout = 10.0) {
    return pollUntil(done, timeout, {}, 0.05);
}

// Width and height from a PNG's header.
std::pair<uint32_t, uint32_t> pngSize(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    unsigned char header[24] = {};
    in.read(reinterpret_cast<char*>(header), sizeof header);
    auto be = [&](int at) {
        return uint32_t(header[at]) << 24 | uint32_t(header[at + 1]) << 16 | uint32_t(header[at + 2]) << 8 |
               uint32_t(header[at + 3]);
    };
    if (!in || std::string(reinterpret_cast<char*>(header) + 12, 4) != "IHDR") return {0, 0};
    return {be(16), be(20)};
}

const std::filesystem::path kScreenshots = std::filesystem::path(VOCLE_BINARY_DIR) / "screenshots";

// Whether the test window's text field has the keyboard focus, as a screen reader sees it.
bool textFieldFocused(DesktopSession& desktop) {
    const auto seen =
        desktop.run({VOCLE_BINARY_DIR "/tests/vocle-test-screen-reader", "org.example.Notes"}, 5.0);
    if (!seen) return false;
    std::istringstream lines(*seen);
    std::string line;
    while (std::getline(lines, line))
        if (line.rfind("text\t", 0) == 0 && line.size() >= 2 && line.substr(line.size() - 2) == "\t1")
            return true;
    return false;
}

// A native Wayland Qt text window (never XWayland) whose text is mirrored into `output`, its accessibility
// tree exported for the focus checks.
pid_t openNativeTextWindow(DesktopSession& desktop, const std::filesystem::path& output) {
    return desktop.spawn(
        {VOCLE_BINARY_DIR "/tests/vocle-test-text-target", output.string(), "org.example.Notes"},
        {"QT_QPA_PLATFORM=wayland", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1"});
}

class GnomeSessionTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_NO_THROW(session()); }
    void TearDown() override {
        for (pid_t pid : started) session().stop(pid);
    }

    // Opens the text window and returns once its text field has the focus.
    void openNativeTextWindow(const std::filesystem::path& output) {
        started.push_back(::openNativeTextWindow(session(), output));
        ASSERT_TRUE(waitFor([&] { return textFieldFocused(); }, 15.0)) << "the Qt window never got the focus";
    }
    bool textFieldFocused() { return ::textFieldFocused(session()); }
    // A keyboard session of the portal, consented to through the dialog the way a screen reader user does.
    std::unique_ptr<RemoteDesktopProbe> grantedKeyboard() {
        auto probe = std::make_unique<RemoteDesktopProbe>(session().busAddress());
        const auto selected = probe->createKeyboardSession();
        EXPECT_EQ(selected.code, 0u);
        bool answered = false;
        const auto started =
            probe->start([&] { answered = session().gnome()->answerRemoteDesktopDialog(true); });
        EXPECT_TRUE(answered) << "no consent dialog to answer";
        EXPECT_EQ(started.code, 0u);
        EXPECT_EQ(lookup<uint32_t>(started.results, "devices").value_or(0) & 1u, 1u) << "no keyboard granted";
        return probe;
    }

    TempDir scratch;
    std::vector<pid_t> started;
};

TEST_F(GnomeSessionTest, PortalOffersRemoteDesktopForTheKeyboardAndShortcutsOnlyFromGnome48) {
    TestBus bus(session().busAddress());
    const auto xml = bus.call(RemoteDesktopProbe::kPortal, RemoteDesktopProbe::kPath,
                              "org.freedesktop.DBus.Introspectable", "Introspect");
    ASSERT_FALSE(xml.empty());
    const std::string& text = std::get<std::string>(xml.front());
    EXPECT_NE(text.find("<interface name=\"org.freedesktop.portal.RemoteDesktop\">"), std::string::npos);
    const auto version = bus.property(RemoteDesktopProbe::kPortal, RemoteDesktopProbe::kPath,
                                      RemoteDesktopProbe::kInterface, "version");
    ASSERT_TRUE(version && std::holds_alternative<uint32_t>(*version));
    EXPECT_GE(std::get<uint32_t>(*version), 1u);
    const auto devices = bus.property(RemoteDesktopProbe::kPortal, RemoteDesktopProbe::kPath,
                                      RemoteDesktopProbe::kInterface, "AvailableDeviceTypes");
    ASSERT_TRUE(devices && std::holds_alternative<uint32_t>(*devices));
    EXPECT_EQ(std::get<uint32_t>(*devices) & 1u, 1u) << "the portal offers no keyboard";

    const auto mutterVersion = session().run({"mutter", "--version"});
    std::smatch m;
    ASSERT_TRUE(mutterVersion && std::regex_search(*mutterVersion, m, std::regex("mutter ([0-9]+)")));
    const bool shortcuts = text.find("org.freedesktop.portal.GlobalShortcuts") != std::string::npos;
    EXPECT_EQ(shortcuts, std::stoi(m[1]) >= 48) << "mutter " << m[1];
}

TEST_F(GnomeSessionTest, CompositorOffersTheClipboardButNoDataControlOrVirtualKeyboard) {
    const auto globals = session().run({"wayland-info"});
    ASSERT_TRUE(globals);
    EXPECT_NE(globals->find("wl_data_device_manager"), std::string::npos);
    EXPECT_EQ(globals->find("data_control_manager"), std::string::npos);
    EXPECT_EQ(globals->find("virtual_keyboard_manager"), std::string::npos);
    EXPECT_EQ(globals->find("foreign_toplevel_manager"), std::string::npos);
}

TEST_F(GnomeSessionTest, KeysTypedThroughThePortalAfterConsentReachANativeWaylandWindow) {
    const auto out = scratch.path() / "typed.txt";
    openNativeTextWindow(out);
    // The consent dialog as the user sees it, then answered.
    const auto dialog = kScreenshots / "gnome-remote-desktop-consent.png";
    auto probe = std::make_unique<RemoteDesktopProbe>(session().busAddress());
    ASSERT_EQ(probe->createKeyboardSession().code, 0u);
    const auto response = probe->start([&] {
        EXPECT_TRUE(pollUntil(
            [&] {
                return session()
                           .run({VOCLE_BINARY_DIR "/tests/vocle-test-screen-reader",
                                 "xdg-desktop-portal-gnome"})
                           .value_or("")
                           .find("frame\tRemote desktop") != std::string::npos;
            },
            10.0, {}, 0.1))
            << "no consent dialog";
        EXPECT_NO_THROW(session().gnome()->screenshot(dialog));
        EXPECT_TRUE(session().gnome()->answerRemoteDesktopDialog(true));
    });
    ASSERT_EQ(response.code, 0u);
    EXPECT_EQ(pngSize(dialog), std::make_pair(1280u, 800u));
    // The dialog has gone and the window has its focus back.
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(); })) << "the focus did not come back to the window";
    probe->type("hello gnome");
    EXPECT_TRUE(waitFor([&] { return vocle::testing::readText(out) == "hello gnome"; }))
        << "the window received '" << vocle::testing::readText(out) << "'";
    const auto typed = kScreenshots / "gnome-typed-through-portal.png";
    ASSERT_NO_THROW(session().gnome()->screenshot(typed));
    EXPECT_EQ(pngSize(typed), std::make_pair(1280u, 800u));

    // Once closed, the session takes no more keys.
    probe->close();
    EXPECT_ANY_THROW(probe->type("x"));
    EXPECT_EQ(vocle::testing::readText(out), "hello gnome");
}

TEST_F(GnomeSessionTest, RefusedConsentIsAnsweredAsCancelledAndTypesNothing) {
    const auto out = scratch.path() / "refused.txt";
    openNativeTextWindow(out);
    RemoteDesktopProbe probe(session().busAddress());
    ASSERT_EQ(probe.createKeyboardSession().code, 0u);
    bool answered = false;
    const auto response =
        probe.start([&] { answered = session().gnome()->answerRemoteDesktopDialog(false); });
    EXPECT_TRUE(answered);
    EXPECT_EQ(response.code, 1u);
    // A session that was never started takes no keys.
    EXPECT_ANY_THROW(probe.type("x"));
    EXPECT_EQ(vocle::testing::readText(out), "");
}

TEST_F(GnomeSessionTest, GrantIsNotPersistedByThisPortalVersion) {
    // Asked for persistence, a version 1 portal neither refuses nor hands out a restore token: each new
    // session needs the consent again, so one session has to live as long as the application.
    TestBus bus(session().busAddress());
    const auto version = bus.property(RemoteDesktopProbe::kPortal, RemoteDesktopProbe::kPath,
                                      RemoteDesktopProbe::kInterface, "version");
    ASSERT_TRUE(version && std::holds_alternative<uint32_t>(*version));
    RemoteDesktopProbe probe(session().busAddress());
    // A token from an earlier grant (or another desktop) is not an error either.
    ASSERT_EQ(
        probe.createKeyboardSession({{"persist_mode", 2u}, {"restore_token", std::string("earlier-grant")}})
            .code,
        0u);
    bool answered = false;
    const auto response = probe.start([&] { answered = session().gnome()->answerRemoteDesktopDialog(true); });
    ASSERT_TRUE(answered);
    ASSERT_EQ(response.code, 0u);
    EXPECT_EQ(lookup<std::string>(response.results, "restore_token").has_value(),
              std::get<uint32_t>(*version) >= 2u);
}

TEST_F(GnomeSessionTest, XSelectionOfAnUnfocusedXWaylandClientIsPastedIntoANativeWaylandWindow) {
    ASSERT_FALSE(session().display().empty()) << "no XWayland";
    const auto out = scratch.path() / "pasted.txt";
    openNativeTextWindow(out);
    auto probe = grantedKeyboard();
    ASSERT_FALSE(HasFailure());
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(); }));

    // An X client that maps no window owns the clipboard selection, as a Qt application on XWayland does.
    const auto text = scratch.path() / "clip.txt";
    std::ofstream(text) << "über XWayland";
    const pid_t owner = session().spawn({"xclip", "-quiet", "-selection", "clipboard", "-i", text.string()});
    started.push_back(owner);
    ASSERT_TRUE(waitFor([&] {
        return session().run({"xclip", "-o", "-selection", "clipboard"}) == "über XWayland";
    }));
    probe->paste();
    EXPECT_TRUE(waitFor([&] { return vocle::testing::readText(out) == "über XWayland"; }))
        << "the window received '" << vocle::testing::readText(out) << "'";

    // The compositor keeps the text once its owner has gone.
    session().stop(owner);
    std::erase(started, owner);
    probe->paste();
    EXPECT_TRUE(waitFor([&] { return vocle::testing::readText(out) == "über XWaylandüber XWayland"; }))
        << "after the owner left the window received '" << vocle::testing::readText(out) << "'";
}

TEST_F(GnomeSessionTest, WaylandCopyWithoutFocusIsPastedIntoANativeWaylandWindow) {
    const auto out = scratch.path() / "wl-copy.txt";
    openNativeTextWindow(out);
    auto probe = grantedKeyboard();
    ASSERT_FALSE(HasFailure());
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(); }));
    // wl-copy has no data-control here: it takes the selection from a surface of its own for a moment.
    const pid_t copier = session().spawn({"wl-copy", "--foreground", "from wl-copy"});
    started.push_back(copier);
    // Read from the X side: wl-paste would take the focus for itself and spoil wl-copy's moment.
    ASSERT_TRUE(waitFor([&] {
        return session().run({"xclip", "-o", "-selection", "clipboard"}) == "from wl-copy";
    }));
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(); })) << "wl-copy kept the focus";
    probe->paste();
    EXPECT_TRUE(waitFor([&] { return vocle::testing::readText(out) == "from wl-copy"; }))
        << "the window received '" << vocle::testing::readText(out) << "'";
}

// Without XWayland: no X display is offered, and the portal still types into a native window.
TEST(GnomeSessionWithoutXWaylandTest, StartsWithoutAnXDisplayAndThePortalStillTypes) {
    DesktopSession::Options options;
    options.server = DesktopSession::Server::gnome;
    options.xwayland = false;
    DesktopSession wayland(options);
    EXPECT_TRUE(wayland.display().empty());
    EXPECT_EQ(::getenv("DISPLAY"), nullptr);
    ASSERT_FALSE(wayland.waylandDisplay().empty());
    EXPECT_TRUE(std::filesystem::exists(wayland.runtimeDir() / wayland.waylandDisplay()));

    TempDir scratch;
    const auto out = scratch.path() / "typed.txt";
    openNativeTextWindow(wayland, out);
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(wayland); }, 15.0))
        << "the Qt window never got the focus";
    RemoteDesktopProbe probe(wayland.busAddress());
    ASSERT_EQ(probe.createKeyboardSession().code, 0u);
    const auto response = probe.start([&] { wayland.gnome()->answerRemoteDesktopDialog(true); });
    ASSERT_EQ(response.code, 0u);
    ASSERT_TRUE(waitFor([&] { return textFieldFocused(wayland); }));
    probe.type("no x here");
    EXPECT_TRUE(waitFor([&] { return vocle::testing::readText(out) == "no x here"; }))
        << "the window received '" << vocle::testing::readText(out) << "'";
}

}  // namespace
