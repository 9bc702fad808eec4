#include <dbus/dbus.h>

#include <memory>
#include <ostream>
#include <string>

#include "CliCommand.h"
#include "platform/control_bus.h"

namespace vocle::cli {

namespace {

constexpr int kCallTimeoutMs = 3000;
const char* const kNoInstance = "No running Vocle on the session bus";

struct DBusErrorGuard {
    DBusError error;
    DBusErrorGuard() { dbus_error_init(&error); }
    ~DBusErrorGuard() { dbus_error_free(&error); }
    bool isSet() const { return dbus_error_is_set(&error); }
    std::string message() const { return error.message ? error.message : "unknown error"; }
};

struct ConnectionUnref {
    void operator()(DBusConnection* c) const { dbus_connection_unref(c); }
};
struct MessageUnref {
    void operator()(DBusMessage* m) const { dbus_message_unref(m); }
};
using ConnectionPtr = std::unique_ptr<DBusConnection, ConnectionUnref>;
using MessagePtr = std::unique_ptr<DBusMessage, MessageUnref>;

// A private connection: libdbus must not exit the process when the bus goes away under it.
ConnectionPtr connectSessionBus() {
    DBusErrorGuard err;
    DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SESSION, &err.error);
    if (!connection) throw CliError{"no session bus (" + err.message() + ")"};
    dbus_connection_set_exit_on_disconnect(connection, FALSE);
    return ConnectionPtr(connection);
}

struct ClosingConnection {
    ConnectionPtr connection;
    ~ClosingConnection() {
        if (connection) dbus_connection_close(connection.get());
    }
};

// Calls one method of the running application; returns the reply (never null).
MessagePtr callVocle(DBusConnection* connection, ControlMethod method) {
    {
        DBusErrorGuard err;
        const bool owned = dbus_bus_name_has_owner(connection, kControlBusName, &err.error);
        if (err.isSet()) throw CliError{"the session bus did not answer (" + err.message() + ")"};
        if (!owned) throw CliError{kNoInstance};
    }
    MessagePtr call(dbus_message_new_method_call(kControlBusName, kControlObjectPath, kControlInterface,
                                                 controlMethodName(method)));
    if (!call) throw CliError{"out of memory"};
    DBusErrorGuard err;
    DBusMessage* reply =
        dbus_connection_send_with_reply_and_block(connection, call.get(), kCallTimeoutMs, &err.error);
    if (!reply) {
        const std::string name = err.error.name ? err.error.name : "";
        // The instance may have quit between the check and the call.
        if (name == DBUS_ERROR_SERVICE_UNKNOWN || name == DBUS_ERROR_NAME_HAS_NO_OWNER) {
            throw CliError{kNoInstance};
        }
        throw CliError{std::string("Vocle did not answer ") + controlMethodName(method) + " (" + err.message() +
                       ")"};
    }
    return MessagePtr(reply);
}

int runSimple(CliContext& ctx, ControlMethod method) {
    if (!ctx.args.empty()) throw CliError{"unexpected argument \"" + ctx.args.front() + "\"", 2};
    ClosingConnection bus{connectSessionBus()};
    callVocle(bus.connection.get(), method);
    return 0;
}

int status(CliContext& ctx) {
    if (!ctx.args.empty()) throw CliError{"unexpected argument \"" + ctx.args.front() + "\"", 2};
    ClosingConnection bus{connectSessionBus()};
    MessagePtr reply = callVocle(bus.connection.get(), ControlMethod::state);
    DBusErrorGuard err;
    const char* state = nullptr;
    if (!dbus_message_get_args(reply.get(), &err.error, DBUS_TYPE_STRING, &state, DBUS_TYPE_INVALID)) {
        throw CliError{"unexpected answer from Vocle (" + err.message() + ")"};
    }
    ctx.out << state << "\n";
    return 0;
}

}  // namespace

void addControlCommands(std::vector<CliCommand>& commands) {
    commands.push_back({"toggle", "toggle",
                        "Start or stop dictation in the running Vocle (bind a desktop key to this)",
                        [](CliContext& ctx) { return runSimple(ctx, ControlMethod::toggle); }});
    commands.push_back({"cancel", "cancel", "Cancel the running Vocle's recording",
                        [](CliContext& ctx) { return runSimple(ctx, ControlMethod::cancel); }});
    commands.push_back({"status", "status", "Print the running Vocle's state: idle, recording or processing",
                        status});
}

}  // namespace vocle::cli
