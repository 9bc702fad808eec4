// The libdbus bus against a real dbus-daemon on a private session bus, with a stand-in service that owns
// the portal's name: values on the wire, signals filtered by sender, errors, a bus that goes away.
#include <dbus/dbus.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "foundation/Clock.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/portal/BusMarshal.h"
#include "platform/portal/LibdbusPortalBus.h"
#include "platform/portal/PortalRequest.h"
#include "support/DesktopSession.h"

using namespace vocle;
using namespace vocle::portal;
using namespace vocle::testing;

namespace {

constexpr const char* kTestInterface = "org.vocle.Test";

DesktopSession::Options busOnly() {
    DesktopSession::Options options;
    options.server = DesktopSession::Server::none;
    return options;
}

// A service on its own connection and thread. "Echo" answers with the wire signature it received
// followed by the arguments; "Ask" behaves like a portal method (request handle, then Response on it);
// "Emit" sends Response on the path given. `name` is claimed on the bus when given.
class TestService {
  public:
    TestService(const std::string& address, const char* name) {
        DBusError error;
        dbus_error_init(&error);
        connection_ = dbus_connection_open_private(address.c_str(), &error);
        if (!connection_ || !dbus_bus_register(connection_, &error))
            throw std::runtime_error(std::string("test service: ") + (error.message ? error.message : "?"));
        dbus_connection_set_exit_on_disconnect(connection_, FALSE);
        if (name && dbus_bus_request_name(connection_, name, DBUS_NAME_FLAG_DO_NOT_QUEUE, &error) !=
                        DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER)
            throw std::runtime_error("test service could not own its name");
        thread_ = std::thread([this] { run(); });
    }
    ~TestService() {
        stop_ = true;
        thread_.join();
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }
    // Sent from the service's connection (its own thread is blocked only briefly in read_write).
    void emitResponse(const std::string& path, uint32_t code, const BusDict& results) {
        DBusMessage* signal = dbus_message_new_signal(path.c_str(), kRequestInterface, "Response");
        appendArgs(signal, {BusValue(code), BusValue(results)});
        dbus_connection_send(connection_, signal, nullptr);
        dbus_connection_flush(connection_);
        dbus_message_unref(signal);
    }

  private:
    void run() {
        while (!stop_ && dbus_connection_read_write(connection_, 20)) {
            while (DBusMessage* m = dbus_connection_pop_message(connection_)) {
                handle(m);
                dbus_message_unref(m);
            }
        }
    }
    void handle(DBusMessage* m) {
        if (dbus_message_get_type(m) != DBUS_MESSAGE_TYPE_METHOD_CALL) return;
        const std::string member = dbus_message_get_member(m);
        const auto args = readArgs(m);
        DBusMessage* reply = nullptr;
        if (member == "Echo") {
            reply = dbus_message_new_method_return(m);
            std::vector<BusValue> out{BusValue(std::string(dbus_message_get_signature(m)))};
            out.insert(out.end(), args.begin(), args.end());
            appendArgs(reply, out);
        } else if (member == "Ask" && !args.empty() && args[0].asDict()) {
            const auto token = dictString(*args[0].asDict(), "handle_token").value_or("none");
            const std::string path = requestPath(dbus_message_get_sender(m), token);
            reply = dbus_message_new_method_return(m);
            appendArgs(reply, {BusValue(ObjectPath{path})});
            dbus_connection_send(connection_, reply, nullptr);
            dbus_message_unref(reply);
            reply = nullptr;
            emitResponse(path, 0, {{"session_handle", BusValue("/org/vocle/session/1")}});
        } else if (member == "Emit" && !args.empty() && args[0].asString()) {
            emitResponse(*args[0].asString(), 0, {{"devices", BusValue(1u)}});
            reply = dbus_message_new_method_return(m);
        } else {
            reply = dbus_message_new_error(m, DBUS_ERROR_UNKNOWN_METHOD, ("no method " + member).c_str());
        }
        if (reply) {
            dbus_connection_send(connection_, reply, nullptr);
            dbus_message_unref(reply);
        }
        dbus_connection_flush(connection_);
    }

    DBusConnection* connection_ = nullptr;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

class LibdbusPortalBusTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(session = std::make_unique<DesktopSession>(busOnly()));
        service = std::make_unique<TestService>(session->busAddress(), kPortalService);
        // libdbus reads the session bus's address once per process; each test has a bus of its own.
        bus = std::make_unique<LibdbusPortalBus>(queue, session->busAddress());
        ASSERT_TRUE(bus->connected());
    }
    void TearDown() override {
        bus.reset();
        service.reset();
    }
    BusReply call(BusCall c) {
        std::optional<BusReply> reply;
        bus->call(std::move(c), [&](BusReply r) {
            EXPECT_TRUE(queue.isCurrent()) << "replies arrive on the main queue";
            reply = std::move(r);
        });
        EXPECT_TRUE(queue.runUntil([&] { return reply.has_value(); }, Seconds(5)));
        return reply.value_or(BusReply{"timeout", "", {}});
    }

    SystemClock clock;
    RunLoopMainQueue queue{clock};
    std::unique_ptr<DesktopSession> session;
    std::unique_ptr<TestService> service;
    std::unique_ptr<LibdbusPortalBus> bus;
};

TEST_F(LibdbusPortalBusTest, ValuesTravelByTheirSignatureAndComeBackUnwrapped) {
    const std::vector<BusValue> args = {
        BusValue(BusDict{{"types", BusValue(1u)},
                         {"persist_mode", BusValue(2u)},
                         {"restore_token", BusValue("tök-1")},
                         {"nested", BusValue(BusDict{{"flag", BusValue(true)}})}}),
        BusValue(BusArray{"(sa{sv})", {}}),
        BusValue(BusArray{"(sa{sv})",
                          {BusValue(BusStruct{{BusValue("toggle"),
                                               BusValue(BusDict{{"description", BusValue("Toggle")}})}})}}),
        BusValue(ObjectPath{"/org/freedesktop/portal/desktop/session/1_2/s1"}),
        BusValue(int32_t{-5}),
        BusValue(uint64_t{1} << 40),
        BusValue(0.25),
        BusValue(""),
    };
    const BusReply reply = call({kPortalPath, kTestInterface, "Echo", args});
    ASSERT_TRUE(reply.ok()) << reply.errorName << " " << reply.errorMessage;
    ASSERT_EQ(reply.values.size(), args.size() + 1);
    EXPECT_EQ(reply.values[0], BusValue("a{sv}a(sa{sv})a(sa{sv})oitds"));
    for (size_t i = 0; i < args.size(); ++i)
        EXPECT_EQ(reply.values[i + 1], args[i]) << i << ": " << describe(reply.values[i + 1]);
}

TEST_F(LibdbusPortalBusTest, AValueTheWireCannotCarryFailsTheCallNotTheProcess) {
    const BusReply reply = call({kPortalPath, kTestInterface, "Echo", {BusValue(ObjectPath{"not a path"})}});
    EXPECT_EQ(reply.errorName, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_NE(reply.errorMessage.find("not a path"), std::string::npos);
    EXPECT_EQ(call({kPortalPath, kTestInterface, "Echo", {BusValue(BusArray{})}}).errorName,
              "org.freedesktop.DBus.Error.InvalidArgs");
}

TEST_F(LibdbusPortalBusTest, ServiceErrorsArriveByName) {
    const BusReply reply = call({kPortalPath, kTestInterface, "Nothing", {}});
    EXPECT_EQ(reply.errorName, DBUS_ERROR_UNKNOWN_METHOD);
    EXPECT_EQ(reply.errorMessage, "no method Nothing");

    bus->setService("org.vocle.Nobody");
    EXPECT_EQ(call({kPortalPath, kTestInterface, "Echo", {}}).errorName, DBUS_ERROR_SERVICE_UNKNOWN);
}

TEST_F(LibdbusPortalBusTest, SignalsReachOnlyTheirWatchersAndOnlyFromThePortal) {
    const std::string path = requestPath(bus->uniqueName(), "t1");
    std::vector<std::vector<BusValue>> got, other;
    auto watch = bus->watchSignal(path, kRequestInterface, "Response", [&](const std::vector<BusValue>& a) {
        EXPECT_TRUE(queue.isCurrent());
        got.push_back(a);
    });
    auto elsewhere = bus->watchSignal(path + "x", kRequestInterface, "Response",
                                      [&](const std::vector<BusValue>& a) { other.push_back(a); });
    // Another client sending the same signal is not the portal.
    TestService impostor(session->busAddress(), nullptr);
    ASSERT_TRUE(call({kPortalPath, kTestInterface, "Echo", {}}).ok());  // the match rules are in place
    impostor.emitResponse(path, 1, {});
    ASSERT_TRUE(call({kPortalPath, kTestInterface, "Emit", {BusValue(path)}}).ok());
    queue.runUntil([&] { return !got.empty(); }, Seconds(5));
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0], (std::vector<BusValue>{BusValue(0u), BusValue(BusDict{{"devices", BusValue(1u)}})}));
    EXPECT_TRUE(other.empty());

    watch.reset();
    ASSERT_TRUE(call({kPortalPath, kTestInterface, "Emit", {BusValue(path)}}).ok());
    ASSERT_TRUE(call({kPortalPath, kTestInterface, "Echo", {}}).ok());
    EXPECT_EQ(got.size(), 1u) << "no delivery after unsubscribing";
}

TEST_F(LibdbusPortalBusTest, APortalRequestCompletesOverTheRealBus) {
    PortalRequests requests(*bus);
    std::optional<PortalResponse> response;
    requests.send({kPortalPath, kTestInterface, "Ask", {BusValue(BusDict{})}}, 0,
                  [&](const PortalResponse& r) { response = r; });
    ASSERT_TRUE(queue.runUntil([&] { return response.has_value(); }, Seconds(5)));
    EXPECT_EQ(response->outcome, PortalOutcome::success);
    EXPECT_EQ(dictString(response->results, "session_handle"), "/org/vocle/session/1");
}

TEST_F(LibdbusPortalBusTest, WhenTheBusGoesCallsAnswerWithAnErrorAndNothingCrashes) {
    service.reset();
    session->endSessionBus();
    ASSERT_TRUE(queue.runUntil([&] { return !bus->connected(); }, Seconds(5)));
    EXPECT_EQ(bus->uniqueName(), "");
    const BusReply reply = call({kPortalPath, kTestInterface, "Echo", {}});
    EXPECT_EQ(reply.errorName, "org.freedesktop.DBus.Error.Disconnected");
    auto watch = bus->watchSignal("/a", kRequestInterface, "Response", [](const auto&) {});
    watch.reset();
    bus.reset();
}

TEST_F(LibdbusPortalBusTest, StoppingWithCallsInFlightIsClean) {
    for (int i = 0; i < 20; ++i)
        bus->call({kPortalPath, kTestInterface, "Echo", {BusValue(i)}},
                  [](BusReply) { ADD_FAILURE() << "no reply after the bus object is gone"; });
    bus.reset();
    queue.runUntil([] { return false; }, Seconds(0.2));
}

}  // namespace
