// A dictation's paste on headless GNOME through the application's own portal code: the libdbus bus, the
// RemoteDesktop grant (consented once in the desktop's dialog, answered through its accessibility
// interface), its keys and the paste chain, against the real xdg-desktop-portal with the GNOME backend. The
// text goes on the clipboard through XWayland, as the app's Qt clipboard does there (mutter has no data
// control), and in with one Ctrl+V into a native Wayland window.
// Before Qt: Qt's `emit` keyword macro would rewrite Signal::emit.
#include "foundation/Signal.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>

#include "desktop/ClipboardManager.h"
#include "desktop/PasteChain.h"
#include "foundation/Clock.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/portal/LibdbusPortalBus.h"
#include "platform/portal/RemoteDesktopKeys.h"
#include "platform/portal/RemoteDesktopPortal.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/x11/KeysymTable.h"
#include "platform/x11/QtPasteboard.h"
#include "storage/HistoryService.h"
#include "storage/RemoteInputGrantStore.h"
#include "support/DesktopSession.h"
#include "support/GnomeSession.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::portal;
using namespace vocle::testing;

namespace {

DesktopSession& gnome() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::gnome;
        options.xwayland = true;
        shared = std::make_unique<DesktopSession>(options);
        // The clipboard is served by Qt on XWayland, as in the app on GNOME.
        qputenv("QT_QPA_PLATFORM", "xcb");
        static int argc = 1;
        static char name[] = "integration_portal_tests";
        static char* argv[] = {name, nullptr};
        new QGuiApplication(argc, argv);
    }
    return *shared;
}

class RemoteDesktopPasteGnomeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(gnome());
        ASSERT_NE(gnome().gnome(), nullptr);
        bus = std::make_unique<LibdbusPortalBus>(queue, gnome().busAddress());
        ASSERT_TRUE(bus->connected());
        portal = std::make_unique<RemoteDesktopPortal>(
            *bus, RemoteDesktopPortal::TokenStore{[this] { return store.load(); },
                                                  [this](const auto& token) { store.save(token); }});
        keys = std::make_unique<RemoteDesktopKeys>(
            *portal, [](uint16_t code) { return x11::keysymForMacKeyCode(code); });
        chain = std::make_unique<PasteChain>(nullptr, nullptr, nullptr, [] { return std::nullopt; });
        chain->setRemoteDesktop(keys.get(), portal.get());
        paster = std::make_unique<ClipboardManager>(queue, pasteboard, *chain, history, center,
                                                    "TranscriptionCompleted", &notices);
    }
    void TearDown() override {
        paster.reset();
        portal.reset();
        bus.reset();
        for (pid_t pid : started) gnome().stop(pid);
    }
    // Runs our main queue and Qt's events (the clipboard is served from there).
    bool pumpUntil(const std::function<bool()>& done, double timeout = 10.0) {
        return pollUntil(
            done, timeout,
            [this] {
                queue.runUntil([] { return false; }, Seconds(0.005));
                QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            },
            0.0);
    }
    void tap(std::vector<uint16_t> chord) {
        for (uint16_t key : chord) keys->postKey(key, true);
        for (auto it = chord.rbegin(); it != chord.rend(); ++it) keys->postKey(*it, false);
    }
    // The desktop's consent dialog, answered from another thread while ours keeps the portal flow going.
    bool consent(bool allow) {
        auto answered = std::async(
            std::launch::async, [allow] { return gnome().gnome()->answerRemoteDesktopDialog(allow, 20.0); });
        pumpUntil([&] { return portal->state() != RemoteInputState::asking; }, 30.0);
        return answered.get();
    }

    SystemClock clock;
    RunLoopMainQueue queue{clock};
    TempDir home;
    DataFolder folder{home.path()};
    RemoteInputGrantStore store{folder, clock};
    std::unique_ptr<LibdbusPortalBus> bus;
    std::unique_ptr<RemoteDesktopPortal> portal;
    std::unique_ptr<RemoteDesktopKeys> keys;
    std::unique_ptr<PasteChain> chain;
    x11::QtPasteboard pasteboard;
    HistoryService history{folder, clock};
    NotificationCenter center;
    FakeDesktopNotifications notices;
    std::unique_ptr<ClipboardManager> paster;
    std::vector<pid_t> started;
};

TEST_F(RemoteDesktopPasteGnomeTest, AfterOneConsentDictationsArePastedIntoANativeWaylandWindow) {
    // The first paste finds no grant: it waits while the desktop asks, and goes out with the consent.
    paster->copyAndPaste("first");
    EXPECT_TRUE(notices.shown.empty());
    ASSERT_TRUE(consent(true)) << "no consent dialog showed up";
    ASSERT_EQ(portal->state(), RemoteInputState::granted);
    EXPECT_EQ(portal->version(), 1u);
    EXPECT_EQ(store.load(), std::nullopt) << "GNOME 43's portal keeps no grant";

    const auto output = home.path() / "typed.txt";
    started.push_back(gnome().spawn(
        {VOCLE_BINARY_DIR "/tests/vocle-test-text-target", output.string(), "org.example.Notes"},
        {"QT_QPA_PLATFORM=wayland"}));
    // Keys sent before the window has the focus go elsewhere: tap "a" until one arrives, then clear.
    ASSERT_TRUE(pollUntil(
        [&] {
            tap({keycode::kA});
            return pumpUntil([&] { return vocle::testing::readText(output).find('a') != std::string::npos; },
                             0.5);
        },
        20.0, {}, 0.2))
        << "the text window never received a key";
    tap({keycode::kControl, keycode::kA});
    tap({keycode::kDelete});
    ASSERT_TRUE(pumpUntil([&] { return vocle::testing::readText(output).empty(); }, 5.0))
        << vocle::testing::readText(output);

    const std::string transcript = "Dictated on GNOME – déjà vu, naïve ✓";
    paster->copyAndPaste(transcript);
    EXPECT_EQ(chain->route(), PasteRoute::remoteDesktop);
    EXPECT_TRUE(pumpUntil([&] { return vocle::testing::readText(output) == transcript; }))
        << vocle::testing::readText(output);
    paster->copyAndPaste(" And again.");
    EXPECT_TRUE(pumpUntil([&] { return vocle::testing::readText(output) == transcript + " And again."; }))
        << vocle::testing::readText(output);
    EXPECT_TRUE(notices.shown.empty()) << "no notice: every paste was typed";
    pumpUntil([&] { return history.transcriptions.get().size() == 3u; }, 2.0);
    EXPECT_EQ(history.transcriptions.get().size(), 3u);
}

TEST_F(RemoteDesktopPasteGnomeTest, CancelInTheDialogRefusesAndPastesStayOnTheClipboard) {
    portal->request();
    ASSERT_TRUE(consent(false)) << "no consent dialog showed up";
    EXPECT_EQ(portal->state(), RemoteInputState::refused);
    paster->copyAndPaste("kept for the user");
    EXPECT_EQ(chain->route(), PasteRoute::clipboardOnly);
    EXPECT_EQ(pasteboard.string(), "kept for the user");
    EXPECT_EQ(notices.shown.size(), 1u);
    pumpUntil([] { return false; }, 0.5);
    EXPECT_EQ(portal->state(), RemoteInputState::refused) << "a paste does not ask again after a no";
}

}  // namespace
