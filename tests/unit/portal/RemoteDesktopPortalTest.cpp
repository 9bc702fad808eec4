#include <gtest/gtest.h>

#include <memory>

#include "foundation/VirtualMainQueue.h"
#include "platform/portal/RemoteDesktopPortal.h"
#include "platform/testing/FakePortalBus.h"

namespace vocle {
namespace {

using namespace portal;
using testing::FakePortalBus;

constexpr const char* kCreate = "org.freedesktop.portal.RemoteDesktop.CreateSession";
constexpr const char* kSelect = "org.freedesktop.portal.RemoteDesktop.SelectDevices";
constexpr const char* kStart = "org.freedesktop.portal.RemoteDesktop.Start";
constexpr const char* kKey = "org.freedesktop.portal.RemoteDesktop.NotifyKeyboardKeysym";
constexpr const char* kClose = "org.freedesktop.portal.Session.Close";

struct RemoteDesktopPortalTest : ::testing::Test {
    VirtualMainQueue main;
    FakePortalBus bus{main, ":1.42"};
    std::optional<std::string> kept;
    int saves = 0;
    std::vector<RemoteInputState> seen;
    std::unique_ptr<RemoteDesktopPortal> portal;
    Subscription observing;

    void SetUp() override { portalVersion(2); }

    void portalVersion(uint32_t version) {
        bus.answers["org.freedesktop.DBus.Properties.Get"] = [version](const BusCall& call) {
            EXPECT_EQ(call.args.at(0), BusValue("org.freedesktop.portal.RemoteDesktop"));
            EXPECT_EQ(call.args.at(1), BusValue("version"));
            return BusReply{{}, {}, {BusValue(version)}};
        };
    }
    RemoteDesktopPortal& make() {
        portal = std::make_unique<RemoteDesktopPortal>(
            bus, RemoteDesktopPortal::TokenStore{[this] { return kept; },
                                                 [this](const std::optional<std::string>& t) {
                                                     ++saves;
                                                     kept = t;
                                                 }});
        observing = portal->observeState([this](RemoteInputState s) { seen.push_back(s); });
        return *portal;
    }
    std::string session(int n) const { return sessionPath(":1.42", "vocle_rd" + std::to_string(n)); }
    // The desktop answers CreateSession with the handle the session token names.
    void sessionCreated() {
        main.runUntilIdle();
        const auto create = bus.callsOf(kCreate).back();
        const auto token = dictString(*create.args[0].asDict(), "session_handle_token");
        ASSERT_TRUE(token);
        bus.respond(kCreate, 0, {{"session_handle", BusValue(sessionPath(":1.42", *token))}});
        main.runUntilIdle();
    }
    void grantKeyboard(BusDict results = {{"devices", BusValue(1u)}}) {
        sessionCreated();
        bus.respond(kSelect, 0);
        main.runUntilIdle();
        bus.respond(kStart, 0, std::move(results));
        main.runUntilIdle();
    }
    const BusDict& selectOptions(size_t i = 0) const {
        static std::vector<BusCall> calls;
        calls = bus.callsOf(kSelect);
        return *calls.at(i).args.at(1).asDict();
    }
};

TEST_F(RemoteDesktopPortalTest, OneConsentGivesAKeyboardSessionAndItsTokenIsKept) {
    auto& rd = make();
    rd.resumeKeptGrant();  // nothing kept: no dialog at start
    EXPECT_TRUE(bus.calls.empty());

    std::vector<RemoteInputState> answers;
    rd.request([&](RemoteInputState s) { answers.push_back(s); });
    rd.request([&](RemoteInputState s) { answers.push_back(s); });  // joins the open request
    grantKeyboard({{"devices", BusValue(1u)}, {"restore_token", BusValue("tok-1")}});

    EXPECT_EQ(bus.callsOf(kCreate).size(), 1u);
    const BusDict& options = selectOptions();
    EXPECT_EQ(dictUint(options, "types"), 1u);
    EXPECT_EQ(dictUint(options, "persist_mode"), 2u);
    EXPECT_FALSE(options.count("restore_token"));
    const auto start = bus.callsOf(kStart).at(0);
    EXPECT_EQ(start.args.at(0), BusValue(ObjectPath{rd.sessionHandle().value_or("")}));
    EXPECT_EQ(start.args.at(1), BusValue(""));

    EXPECT_EQ(rd.state(), RemoteInputState::granted);
    EXPECT_EQ(answers, (std::vector{RemoteInputState::granted, RemoteInputState::granted}));
    EXPECT_EQ(seen, (std::vector{RemoteInputState::asking, RemoteInputState::granted}));
    EXPECT_EQ(kept, "tok-1");

    rd.sendKeysym(0xffe3, true);
    rd.sendKeysym(0x76, false);
    EXPECT_EQ(bus.callsOf(kKey).size(), 1u) << "the next key waits for the portal's answer to the last";
    main.runUntilIdle();
    const auto keys = bus.callsOf(kKey);
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].args.at(0), BusValue(ObjectPath{*rd.sessionHandle()}));
    EXPECT_EQ(keys[0].args.at(1), BusValue(BusDict{}));
    EXPECT_EQ(keys[0].args.at(2), BusValue(int32_t{0xffe3}));
    EXPECT_EQ(keys[0].args.at(3), BusValue(1u));
    EXPECT_EQ(keys[1].args.at(3), BusValue(0u));

    bool asked = false;
    rd.request([&](RemoteInputState s) { asked = s == RemoteInputState::granted; });
    EXPECT_TRUE(asked) << "a granted keyboard answers at once";
    EXPECT_EQ(bus.callsOf(kCreate).size(), 1u);
}

TEST_F(RemoteDesktopPortalTest, VersionOnePortalsGetNoPersistModeAndKeepNothing) {
    portalVersion(1);
    auto& rd = make();
    rd.request();
    grantKeyboard();
    EXPECT_FALSE(selectOptions().count("persist_mode"));
    EXPECT_EQ(rd.state(), RemoteInputState::granted);
    EXPECT_EQ(saves, 0);
    EXPECT_EQ(rd.version(), 1u);
}

TEST_F(RemoteDesktopPortalTest, AKeptTokenOpensTheSessionAtStartAndIsReplacedByTheNewOne) {
    kept = "tok-1";
    auto& rd = make();
    rd.resumeKeptGrant();
    grantKeyboard({{"devices", BusValue(1u)}, {"restore_token", BusValue("tok-2")}});
    EXPECT_EQ(dictString(selectOptions(), "restore_token"), "tok-1");
    EXPECT_EQ(rd.state(), RemoteInputState::granted);
    EXPECT_EQ(kept, "tok-2");

    // A start that brings back no token leaves none kept: a stale one would only fail next time.
    portal.reset();
    make().resumeKeptGrant();
    grantKeyboard();
    EXPECT_EQ(dictString(selectOptions(1), "restore_token"), "tok-2");
    EXPECT_EQ(kept, std::nullopt);
}

TEST_F(RemoteDesktopPortalTest, AKeptTokenIsNotOfferedToAPortalThatCannotTakeItBack) {
    portalVersion(1);
    kept = "tok-from-a-newer-desktop";
    auto& rd = make();
    rd.resumeKeptGrant();
    main.runUntilIdle();
    EXPECT_TRUE(bus.callsOf(kCreate).empty()) << "opening now would show a dialog at start";
    EXPECT_EQ(rd.state(), RemoteInputState::notGranted);
    EXPECT_EQ(kept, std::nullopt);
}

TEST_F(RemoteDesktopPortalTest, ATokenTheDesktopRejectsIsForgottenAndTheUserAskedOnce) {
    kept = "stale";
    auto& rd = make();
    rd.resumeKeptGrant();
    sessionCreated();
    const std::string first = *rd.sessionHandle();
    bus.respond(kSelect, 0);
    main.runUntilIdle();
    bus.respond(kStart, 2);
    main.runUntilIdle();
    EXPECT_EQ(kept, std::nullopt);
    ASSERT_EQ(bus.callsOf(kClose).size(), 1u);
    EXPECT_EQ(bus.callsOf(kClose)[0].path, first);
    EXPECT_EQ(rd.state(), RemoteInputState::asking);

    // The second attempt offers no token; ending it too is final.
    sessionCreated();
    EXPECT_FALSE(selectOptions(1).count("restore_token"));
    bus.respond(kSelect, 0);
    main.runUntilIdle();
    bus.respond(kStart, 2);
    main.runUntilIdle();
    EXPECT_EQ(rd.state(), RemoteInputState::refused);
    EXPECT_EQ(bus.callsOf(kCreate).size(), 2u);
}

TEST_F(RemoteDesktopPortalTest, TheUsersNoIsFinalAndClosesTheSession) {
    kept = "tok-1";
    auto& rd = make();
    std::vector<RemoteInputState> answers;
    rd.request([&](RemoteInputState s) { answers.push_back(s); });
    sessionCreated();
    bus.respond(kSelect, 0);
    main.runUntilIdle();
    bus.respond(kStart, 1);  // Cancel in the dialog
    main.runUntilIdle();
    EXPECT_EQ(answers, std::vector{RemoteInputState::refused});
    EXPECT_EQ(bus.callsOf(kCreate).size(), 1u) << "no second dialog after a no";
    EXPECT_EQ(bus.callsOf(kClose).size(), 1u);
    EXPECT_FALSE(rd.sessionHandle());
    rd.sendKeysym(0x76, true);
    EXPECT_TRUE(bus.callsOf(kKey).empty());

    // Enable asks again.
    rd.request();
    grantKeyboard();
    EXPECT_EQ(rd.state(), RemoteInputState::granted);
}

TEST_F(RemoteDesktopPortalTest, EveryWayOfNotGrantingAKeyboardIsARefusal) {
    auto& rd = make();
    rd.request();
    main.runUntilIdle();
    bus.respond(kCreate, 2);
    main.runUntilIdle();
    EXPECT_EQ(rd.state(), RemoteInputState::refused);

    rd.request();
    grantKeyboard({{"devices", BusValue(2u)}});  // a pointer only
    EXPECT_EQ(rd.state(), RemoteInputState::refused);

    rd.request();
    sessionCreated();
    bus.respond(kSelect, 1);
    main.runUntilIdle();
    EXPECT_EQ(rd.state(), RemoteInputState::refused);
    EXPECT_TRUE(bus.callsOf(kStart).size() == 1u);
}

TEST_F(RemoteDesktopPortalTest, WithoutTheRemoteDesktopPortalTheGrantIsRefused) {
    bus.answers["org.freedesktop.DBus.Properties.Get"] = [](const BusCall&) {
        return BusReply{"org.freedesktop.DBus.Error.UnknownMethod", "No such interface", {}};
    };
    auto& rd = make();
    RemoteInputState answer = RemoteInputState::notGranted;
    rd.request([&](RemoteInputState s) { answer = s; });
    main.runUntilIdle();
    EXPECT_EQ(answer, RemoteInputState::refused);
    EXPECT_TRUE(bus.callsOf(kCreate).empty());
}

TEST_F(RemoteDesktopPortalTest, ARevokedSessionIsARefusalAndSendsNoMoreKeys) {
    auto& rd = make();
    rd.request();
    grantKeyboard();
    const std::string handle = *rd.sessionHandle();
    rd.sendKeysym(0x76, true);
    rd.sendKeysym(0x76, false);  // waits for the first key's answer
    bus.emit(handle, kSessionInterface, "Closed", {BusValue(BusDict{})});
    EXPECT_EQ(rd.state(), RemoteInputState::refused);
    main.runUntilIdle();
    rd.sendKeysym(0x76, true);
    EXPECT_EQ(bus.callsOf(kKey).size(), 1u) << "no key after the revoke";
    EXPECT_TRUE(bus.callsOf(kClose).empty()) << "the desktop closed it already";
}

TEST_F(RemoteDesktopPortalTest, QuittingClosesTheSessionAndAnOpenDialog) {
    make().request();
    grantKeyboard();
    const std::string handle = *portal->sessionHandle();
    portal.reset();
    ASSERT_EQ(bus.callsOf(kClose).size(), 1u);
    EXPECT_EQ(bus.callsOf(kClose)[0].path, handle);

    make().request();
    sessionCreated();  // the SelectDevices request is open
    portal.reset();
    EXPECT_EQ(bus.callsOf("org.freedesktop.portal.Request.Close").size(), 1u);
    EXPECT_EQ(bus.callsOf(kClose).size(), 2u);
}

}  // namespace
}  // namespace vocle
