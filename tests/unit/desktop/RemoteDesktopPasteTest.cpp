// The paste chain with the RemoteDesktop portal's keys, on a scripted portal: the order of the routes,
// the grant asked at the first paste that needs it, and the clipboard whenever keys cannot go out.
#include <gtest/gtest.h>

#include <memory>

#include "desktop/ClipboardManager.h"
#include "desktop/PasteChain.h"
#include "platform/portal/RemoteDesktopKeys.h"
#include "platform/portal/RemoteDesktopPortal.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/testing/FakePortalBus.h"
#include "platform/testing/FakeRemoteInput.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "platform/x11/KeysymTable.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::portal;
using namespace vocle::testing;

namespace {

constexpr const char* kKey = "org.freedesktop.portal.RemoteDesktop.NotifyKeyboardKeysym";
using Posted = FakeSyntheticKeys::Posted;
const std::vector<Posted> kCtrlV = {
    {keycode::kControl, true}, {keycode::kV, true}, {keycode::kV, false}, {keycode::kControl, false}};

TEST(PasteRouteOrderTest, VirtualKeyboardThenPortalThenXTestThenClipboard) {
    PasteOffers all{true, true, true, true};
    EXPECT_EQ(choosePasteRoute(all), PasteRoute::virtualKeyboard);
    all.virtualKeyboard = false;
    EXPECT_EQ(choosePasteRoute(all), PasteRoute::remoteDesktop) << "the portal reaches X11 windows too";
    all.remoteDesktop = false;
    EXPECT_EQ(choosePasteRoute(all), PasteRoute::xtest);
    all.xwaylandFocused = false;
    EXPECT_EQ(choosePasteRoute(all), PasteRoute::clipboardOnly);
}

class RemoteDesktopPasteTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    void SetUp() override {
        bus.answers["org.freedesktop.DBus.Properties.Get"] = [](const BusCall&) {
            return BusReply{{}, {}, {BusValue(1u)}};
        };
        chain.setRemoteDesktop(&portalKeys, &portal);
    }
    void grant() {
        clock.runUntilIdle();
        const auto create = bus.callsOf("org.freedesktop.portal.RemoteDesktop.CreateSession").back();
        const auto token = dictString(*create.args[0].asDict(), "session_handle_token").value();
        bus.respond("org.freedesktop.portal.RemoteDesktop.CreateSession", 0,
                    {{"session_handle", BusValue(sessionPath(bus.unique, token))}});
        clock.runUntilIdle();
        bus.respond("org.freedesktop.portal.RemoteDesktop.SelectDevices", 0);
        clock.runUntilIdle();
        bus.respond("org.freedesktop.portal.RemoteDesktop.Start", 0, {{"devices", BusValue(1u)}});
        clock.runUntilIdle();
    }
    // The clipboard's moment to reach the desktop, and the portal's answers to each key.
    void settle() {
        clock.advance(RemoteDesktopKeys::kClipboardSettle.count());
        clock.runUntilIdle();
    }
    // The keysyms sent through the portal, with their press state.
    std::vector<std::pair<int32_t, uint32_t>> keysSent() const {
        std::vector<std::pair<int32_t, uint32_t>> keys;
        for (const auto& call : bus.callsOf(kKey))
            keys.emplace_back(std::get<int32_t>(call.args.at(2).storage()), call.args.at(3).asUint().value());
        return keys;
    }

    FakePortalBus bus{clock};
    RemoteDesktopPortal portal{bus, {}};
    RemoteDesktopKeys portalKeys{portal, [](uint16_t code) { return x11::keysymForMacKeyCode(code); }};
    FakeSyntheticKeys xtest;
    bool xwaylandFocused = false;
    std::optional<std::string> appId;
    PasteChain chain{nullptr, &xtest, [this] { return xwaylandFocused; }, [this] { return appId; }};
    FakePasteboard pasteboard;
    FakeDesktopNotifications notices;
    HistoryService history{folder, clock};
    NotificationCenter center;
    ClipboardManager paster{clock, pasteboard, chain, history, center, "TranscriptionCompleted", &notices};
};

TEST_F(RemoteDesktopPasteTest, TheFirstPasteAsksOnceWaitsForTheConsentAndIsTypedThroughThePortal) {
    appId = "org.gnome.TextEditor";
    paster.copyAndPaste("first words");
    EXPECT_EQ(portal.state(), RemoteInputState::asking);
    EXPECT_EQ(pasteboard.string(), "first words");
    EXPECT_TRUE(notices.shown.empty()) << "no notice while the desktop is still asking";

    paster.copyAndPaste("while the dialog is open");
    EXPECT_EQ(pasteboard.string(), "first words") << "the waiting paste keeps its clipboard";
    clock.advance(5.0);
    EXPECT_EQ(bus.callsOf("org.freedesktop.DBus.Properties.Get").size(), 1u)
        << "one dialog, not one per paste or per poll";
    EXPECT_TRUE(keysSent().empty());
    grant();
    ASSERT_EQ(portal.state(), RemoteInputState::granted);
    clock.advance(ClipboardManager::kConsentPollInterval.count());
    settle();
    EXPECT_EQ(chain.route(), PasteRoute::remoteDesktop);
    const std::vector<std::pair<int32_t, uint32_t>> ctrlV = {{0xffe3, 1}, {0x76, 1}, {0x76, 0}, {0xffe3, 0}};
    auto keys = keysSent();
    ASSERT_GE(keys.size(), 4u);
    EXPECT_EQ(std::vector(keys.begin(), keys.begin() + 4), ctrlV);  // Control_L, v
    settle();
    EXPECT_EQ(keysSent().size(), 8u) << "the paste queued behind the dialog follows";
    EXPECT_EQ(pasteboard.string(), "while the dialog is open");

    appId = "org.gnome.Terminal";
    paster.copyAndPaste("ls");
    EXPECT_EQ(keysSent().size(), 8u) << "the chord waits for the clipboard to reach the desktop";
    settle();
    keys = keysSent();
    ASSERT_EQ(keys.size(), 14u);
    EXPECT_EQ(keys[9], (std::pair<int32_t, uint32_t>{0xffe1, 1})) << "terminals paste with Ctrl+Shift+V";
    EXPECT_TRUE(xtest.posted.empty());
    EXPECT_TRUE(notices.shown.empty());

    clock.advance(0.6);
    EXPECT_EQ(history.transcriptions.get().size(), 3u);
}

TEST_F(RemoteDesktopPasteTest, ARefusalOrNoAnswerLeavesTheTranscriptOnTheClipboardWithANotice) {
    paster.copyAndPaste("declined");
    clock.runUntilIdle();
    bus.respond("org.freedesktop.portal.RemoteDesktop.CreateSession", 1);
    clock.advance(ClipboardManager::kConsentPollInterval.count());
    EXPECT_EQ(portal.state(), RemoteInputState::refused);
    ASSERT_EQ(notices.shown.size(), 1u);
    EXPECT_TRUE(keysSent().empty());

    // A dialog left open: the paste gives up after the consent timeout, the transcript stays put.
    portal.request();
    ASSERT_EQ(portal.state(), RemoteInputState::asking);
    paster.copyAndPaste("unanswered");
    clock.advance(ClipboardManager::kConsentTimeout.count() - 1.0);
    EXPECT_EQ(notices.shown.size(), 1u);
    clock.advance(1.0);
    EXPECT_EQ(notices.shown.size(), 2u);
    EXPECT_EQ(pasteboard.string(), "unanswered");
    clock.advance(0.6);
    EXPECT_EQ(history.transcriptions.get().size(), 2u) << "every path writes the history";
}

TEST_F(RemoteDesktopPasteTest, WithTheGrantHeldModifiersAreStillAwaitedThroughXWayland) {
    paster.copyAndPaste("ask");
    grant();
    clock.advance(ClipboardManager::kConsentPollInterval.count());
    settle();
    const size_t before = keysSent().size();
    xtest.held = kModifierOption;
    paster.copyAndPaste("wait");
    EXPECT_EQ(keysSent().size(), before);
    clock.advance(0.2);
    EXPECT_EQ(keysSent().size(), before);
    xtest.held = 0;
    clock.advance(0.02);  // the clipboard has long settled
    clock.runUntilIdle();
    EXPECT_EQ(keysSent().size(), before + 4);
}

TEST_F(RemoteDesktopPasteTest, ARevokedGrantFallsBackWithoutAskingAtEveryPaste) {
    paster.copyAndPaste("ask");
    grant();
    clock.advance(ClipboardManager::kConsentPollInterval.count());
    settle();
    const auto handle = portal.sessionHandle().value();
    bus.emit(handle, kSessionInterface, "Closed", {BusValue(BusDict{})});
    ASSERT_EQ(portal.state(), RemoteInputState::refused);

    paster.copyAndPaste("after the revoke");
    EXPECT_EQ(chain.route(), PasteRoute::clipboardOnly);
    EXPECT_EQ(pasteboard.string(), "after the revoke");
    EXPECT_EQ(notices.shown.size(), 1u);
    EXPECT_EQ(bus.callsOf("org.freedesktop.portal.RemoteDesktop.CreateSession").size(), 1u)
        << "only the user asks again (Enable)";

    xwaylandFocused = true;  // an X11 window is still served
    paster.copyAndPaste("into xterm");
    EXPECT_EQ(chain.route(), PasteRoute::xtest);
    EXPECT_EQ(xtest.posted, kCtrlV);
    clock.advance(0.6);
    EXPECT_EQ(history.transcriptions.get().size(), 3u);
}

TEST_F(RemoteDesktopPasteTest, AnXWaylandWindowIsServedByXTestWithoutADialog) {
    xwaylandFocused = true;
    paster.copyAndPaste("typed");
    EXPECT_EQ(xtest.posted, kCtrlV);
    EXPECT_EQ(portal.state(), RemoteInputState::notGranted);
    EXPECT_TRUE(bus.calls.empty());
}

TEST(PasteChainGrantTest, TheVirtualKeyboardNeedsNoGrant) {
    FakeSyntheticKeys keyboard, portalKeys;
    FakeRemoteInput grant;
    PasteChain chain(&keyboard, nullptr, {}, {});
    chain.setRemoteDesktop(&portalKeys, &grant);
    EXPECT_TRUE(chain.canDeliver());
    EXPECT_EQ(chain.route(), PasteRoute::virtualKeyboard);
    EXPECT_EQ(grant.requests, 0);
}

}  // namespace
