// A dictation's paste on headless KDE Plasma through the application's own portal code: the libdbus bus,
// the RemoteDesktop grant, its keys and the paste chain, against the real xdg-desktop-portal with the KDE
// backend; the text goes in through the data-control clipboard and one Ctrl+V into a native Wayland window.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "desktop/ClipboardManager.h"
#include "desktop/PasteChain.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/portal/LibdbusPortalBus.h"
#include "platform/portal/RemoteDesktopKeys.h"
#include "platform/portal/RemoteDesktopPortal.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/wayland/WaylandDesktop.h"
#include "platform/x11/KeysymTable.h"
#include "storage/HistoryService.h"
#include "storage/RemoteInputGrantStore.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::portal;
using namespace vocle::testing;

namespace {

DesktopSession& kde() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::kde;
        shared = std::make_unique<DesktopSession>(options);
    }
    return *shared;
}

class RemoteDesktopPasteKdeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(kde());
        bus = std::make_unique<LibdbusPortalBus>(queue, kde().busAddress());
        ASSERT_TRUE(bus->connected());
        portal = std::make_unique<RemoteDesktopPortal>(
            *bus, RemoteDesktopPortal::TokenStore{[this] { return store.load(); },
                                                  [this](const auto& token) { store.save(token); }});
        keys = std::make_unique<RemoteDesktopKeys>(
            *portal, [](uint16_t code) { return x11::keysymForMacKeyCode(code); });
        desktop = wayland::WaylandDesktop::open(
            queue, std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{}));
        ASSERT_TRUE(desktop && desktop->clipboard()) << "no data-control clipboard on KWin";
        ASSERT_EQ(desktop->virtualKeyboard(), nullptr) << "KWin keeps its virtual keyboard to itself";
        chain = std::make_unique<PasteChain>(nullptr, nullptr, nullptr, [] { return std::nullopt; });
        chain->setRemoteDesktop(keys.get(), portal.get());
        paster = std::make_unique<ClipboardManager>(queue, *desktop->clipboard(), *chain, history, center,
                                                    "TranscriptionCompleted", &notices);
    }
    void TearDown() override {
        paster.reset();
        portal.reset();
        bus.reset();
        for (pid_t pid : started) kde().stop(pid);
    }
    bool waitUntil(const std::function<bool()>& done, double timeout = 10.0) {
        return pollUntil(
            done, timeout, [this] { queue.runUntil([] { return false; }, Seconds(0.005)); }, 0.0);
    }
    void tap(std::vector<uint16_t> chord) {
        for (uint16_t key : chord) keys->postKey(key, true);
        for (auto it = chord.rbegin(); it != chord.rend(); ++it) keys->postKey(*it, false);
    }

    SystemClock clock;
    RunLoopMainQueue queue{clock};
    TempDir scratch;
    DataFolder folder{scratch.path() / "data"};
    RemoteInputGrantStore store{folder, clock};
    std::unique_ptr<LibdbusPortalBus> bus;
    std::unique_ptr<RemoteDesktopPortal> portal;
    std::unique_ptr<RemoteDesktopKeys> keys;
    std::unique_ptr<wayland::WaylandDesktop> desktop;
    std::unique_ptr<PasteChain> chain;
    HistoryService history{folder, clock};
    NotificationCenter center;
    FakeDesktopNotifications notices;
    std::unique_ptr<ClipboardManager> paster;
    std::vector<pid_t> started;
};

TEST_F(RemoteDesktopPasteKdeTest, AfterTheFirstPasteAsksDictationsArePastedIntoANativeWaylandWindow) {
    // The first paste finds no grant: it waits while the desktop is asked, and goes out with the grant.
    paster->copyAndPaste("first");
    EXPECT_TRUE(notices.shown.empty());
    ASSERT_TRUE(waitUntil([&] { return portal->state() != RemoteInputState::asking; }))
        << "the portal never answered";
    ASSERT_EQ(portal->state(), RemoteInputState::granted);
    EXPECT_EQ(portal->version(), 1u);
    EXPECT_EQ(store.load(), std::nullopt) << "Plasma 5.27's portal keeps no grant";

    const auto output = scratch.path() / "typed.txt";
    started.push_back(
        kde().spawn({VOCLE_BINARY_DIR "/tests/vocle-test-text-target", output.string(), "org.example.Notes"},
                    {"QT_QPA_PLATFORM=wayland"}));
    // Keys sent before the window has the focus go elsewhere: tap "a" until one arrives, then clear.
    ASSERT_TRUE(pollUntil(
        [&] {
            tap({keycode::kA});
            return waitUntil([&] { return vocle::testing::readText(output).find('a') != std::string::npos; },
                             0.5);
        },
        20.0, {}, 0.2))
        << "the text window never received a key";
    tap({keycode::kControl, keycode::kA});
    tap({keycode::kDelete});
    ASSERT_TRUE(waitUntil([&] { return vocle::testing::readText(output).empty(); }, 5.0))
        << vocle::testing::readText(output);

    const std::string transcript = "Dictated on Plasma – déjà vu, naïve ✓";
    paster->copyAndPaste(transcript);
    EXPECT_EQ(chain->route(), PasteRoute::remoteDesktop);
    EXPECT_TRUE(waitUntil([&] { return vocle::testing::readText(output) == transcript; }))
        << vocle::testing::readText(output);
    paster->copyAndPaste(" And again.");
    EXPECT_TRUE(waitUntil([&] { return vocle::testing::readText(output) == transcript + " And again."; }))
        << vocle::testing::readText(output);
    EXPECT_TRUE(notices.shown.empty()) << "no notice: every paste was typed";
    waitUntil([&] { return history.transcriptions.get().size() == 3u; }, 2.0);
    EXPECT_EQ(history.transcriptions.get().size(), 3u);
}

TEST_F(RemoteDesktopPasteKdeTest, QuittingClosesTheSessionOnTheDesktop) {
    portal->request();
    ASSERT_TRUE(waitUntil([&] { return portal->state() == RemoteInputState::granted; }));
    const std::string handle = portal->sessionHandle().value();
    // The session object answers on the bus while it lives; asked from a connection of its own.
    LibdbusPortalBus observer(queue, kde().busAddress());
    auto holdsSession = [&] {
        std::optional<BusReply> reply;
        observer.call({handle, "org.freedesktop.DBus.Introspectable", "Introspect", {}},
                      [&](BusReply r) { reply = std::move(r); });
        waitUntil([&] { return reply.has_value(); }, 5.0);
        const std::string* xml =
            reply && reply->ok() && !reply->values.empty() ? reply->values[0].asString() : nullptr;
        return xml && xml->find(kSessionInterface) != std::string::npos;
    };
    ASSERT_TRUE(holdsSession());
    paster.reset();
    chain.reset();
    keys.reset();
    portal.reset();  // Session.Close goes out; the bus stays connected
    EXPECT_TRUE(pollUntil([&] { return !holdsSession(); }, 5.0)) << "the desktop still holds the session";
}

}  // namespace
