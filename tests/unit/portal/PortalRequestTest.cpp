#include <gtest/gtest.h>

#include "foundation/VirtualMainQueue.h"
#include "platform/portal/PortalRequest.h"
#include "platform/portal/PortalSession.h"
#include "platform/testing/FakePortalBus.h"

namespace vocle {
namespace {

using namespace portal;
using testing::FakePortalBus;

constexpr const char* kMethod = "org.freedesktop.portal.RemoteDesktop.CreateSession";

BusCall createSession(BusDict options = {}) {
    return BusCall{
        kPortalPath, "org.freedesktop.portal.RemoteDesktop", "CreateSession", {BusValue(std::move(options))}};
}

struct PortalRequestTest : ::testing::Test {
    VirtualMainQueue main;
    FakePortalBus bus{main, ":1.42"};
    PortalRequests requests{bus};
    std::vector<PortalResponse> answers;
    PortalRequests::Done record() {
        return [this](const PortalResponse& r) { answers.push_back(r); };
    }
};

TEST(PortalPaths, AreNamedAfterTheSenderAndToken) {
    EXPECT_EQ(requestPath(":1.42", "vocle3"), "/org/freedesktop/portal/desktop/request/1_42/vocle3");
    EXPECT_EQ(sessionPath(":1.7", "s1"), "/org/freedesktop/portal/desktop/session/1_7/s1");
}

TEST(BusValues, SignaturesFollowTheirContents) {
    EXPECT_EQ(BusValue(BusDict{{"types", BusValue(1u)}}).signature(), "a{sv}");
    BusArray shortcuts{"(sa{sv})", {}};
    EXPECT_EQ(BusValue(shortcuts).signature(), "a(sa{sv})");
    shortcuts.items.push_back(BusStruct{{BusValue("toggle"), BusValue(BusDict{})}});
    EXPECT_EQ(BusValue(shortcuts).signature(), "a(sa{sv})");
    EXPECT_EQ(BusValue(ObjectPath{"/a"}).signature(), "o");
    EXPECT_EQ(describe(BusValue(BusDict{{"a", BusValue(2u)}, {"b", BusValue("x")}})),
              R"({"a": 2, "b": "x"})");
}

TEST_F(PortalRequestTest, EachRequestCarriesAFreshTokenBesideTheCallersOptions) {
    requests.send(createSession({{"session_handle_token", BusValue("s1")}}), 0, record());
    requests.send(createSession(), 0, record());
    const auto calls = bus.callsOf(kMethod);
    ASSERT_EQ(calls.size(), 2u);
    const auto& first = *calls[0].args[0].asDict();
    EXPECT_EQ(dictString(first, "session_handle_token"), "s1");
    EXPECT_NE(dictString(first, "handle_token"), dictString(*calls[1].args[0].asDict(), "handle_token"));
}

TEST_F(PortalRequestTest, TheResponseCodeAndResultsReachTheCallerOnce) {
    requests.send(createSession(), 0, record());
    main.advance(0);
    bus.respond(kMethod, 0,
                {{"session_handle", BusValue("/org/freedesktop/portal/desktop/session/1_42/s1")}});
    bus.respond(kMethod, 0);  // a second Response for the same request is ignored
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::success);
    EXPECT_EQ(dictString(answers[0].results, "session_handle"),
              "/org/freedesktop/portal/desktop/session/1_42/s1");
    EXPECT_EQ(requests.openCount(), 0u);
    EXPECT_EQ(bus.watcherCount(), 0u);
}

TEST_F(PortalRequestTest, AResponseBeforeTheMethodReplyIsNotMissed) {
    requests.send(createSession(), 0, record());
    bus.respond(kMethod, 1);  // the reply is still queued
    main.advance(0);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::cancelled);
}

TEST_F(PortalRequestTest, UserCancelAndDesktopEndAreTold) {
    requests.send(createSession(), 0, record());
    main.advance(0);
    bus.respond(kMethod, 2);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::ended);
}

TEST_F(PortalRequestTest, AnOlderPortalsOwnRequestPathIsFollowed) {
    bus.answers[kMethod] = [](const BusCall&) {
        BusReply reply;
        reply.values.push_back(ObjectPath{"/org/freedesktop/portal/desktop/request/1_42/t99"});
        return reply;
    };
    requests.send(createSession(), 0, record());
    main.advance(0);
    bus.emit("/org/freedesktop/portal/desktop/request/1_42/t99", kRequestInterface, "Response",
             {BusValue(0u), BusValue(BusDict{})});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::success);
}

TEST_F(PortalRequestTest, ARefusedCallFailsWithTheBusError) {
    bus.answers[kMethod] = [](const BusCall&) {
        return BusReply{"org.freedesktop.DBus.Error.UnknownMethod", "No such interface", {}};
    };
    requests.send(createSession(), 0, record());
    main.advance(0);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::failed);
    EXPECT_NE(answers[0].error.find("UnknownMethod"), std::string::npos);
    EXPECT_EQ(bus.watcherCount(), 0u);
}

TEST_F(PortalRequestTest, WithoutABusTheRequestFailsAtOnce) {
    bus.unique.clear();
    requests.send(createSession(), 0, record());
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].outcome, PortalOutcome::failed);
    EXPECT_TRUE(bus.calls.empty());
}

TEST_F(PortalRequestTest, ACancelledRequestClosesItsDialogAndStaysSilent) {
    const auto token = requests.send(createSession(), 0, record());
    main.advance(0);
    requests.cancel(token);
    bus.respond(kMethod, 0);
    EXPECT_TRUE(answers.empty());
    const auto closes = bus.callsOf("org.freedesktop.portal.Request.Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].path, requestPath(":1.42", token));
}

TEST_F(PortalRequestTest, AnAnswerAfterTheRequestsOwnerIsGoneIsDropped) {
    auto owner = std::make_unique<PortalRequests>(bus);
    owner->send(createSession(), 0, record());
    owner.reset();
    main.advance(0);
    bus.respond(kMethod, 0);
    EXPECT_TRUE(answers.empty());
}

TEST_F(PortalRequestTest, ASessionClosesOnceWhetherTheDesktopOrWeEndIt) {
    const std::string handle = sessionPath(":1.42", "s1");
    int closedByDesktop = 0;
    {
        PortalSession session(bus, handle);
        session.onClosed([&] { ++closedByDesktop; });
        bus.emit(handle, kSessionInterface, "Closed", {BusValue(BusDict{})});
        bus.emit(handle, kSessionInterface, "Closed", {BusValue(BusDict{})});
        EXPECT_FALSE(session.isOpen());
    }
    EXPECT_EQ(closedByDesktop, 1);
    EXPECT_TRUE(bus.callsOf("org.freedesktop.portal.Session.Close").empty());

    { PortalSession session(bus, handle); }  // quitting closes what is still open
    const auto closes = bus.callsOf("org.freedesktop.portal.Session.Close");
    ASSERT_EQ(closes.size(), 1u);
    EXPECT_EQ(closes[0].path, handle);
}

}  // namespace
}  // namespace vocle
