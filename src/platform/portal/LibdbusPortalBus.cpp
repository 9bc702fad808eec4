#include "platform/portal/LibdbusPortalBus.h"

#include <dbus/dbus.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "platform/portal/BusMarshal.h"

namespace vocle::portal {

namespace {

constexpr const char* kDisconnected = "org.freedesktop.DBus.Error.Disconnected";

DBusHandlerResult filter(DBusConnection*, DBusMessage* message, void* self) {
    // Runs on the bus thread only: every dispatch happens there.
    auto* handle = static_cast<std::function<void(DBusMessage*)>*>(self);
    (*handle)(message);
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

BusReply errorReply(std::string name, std::string message) {
    BusReply reply;
    reply.errorName = std::move(name);
    reply.errorMessage = std::move(message);
    return reply;
}

std::string quoted(const std::string& value) {
    // Match rule values are quoted with '; none of ours (names, paths) can hold one.
    return "'" + value + "'";
}

}  // namespace

LibdbusPortalBus::LibdbusPortalBus(MainQueue& main, const std::string& address) : main_(main) {
    dbus_threads_init_default();
    DBusError error;
    dbus_error_init(&error);
    if (address.empty()) {
        connection_ = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    } else {
        connection_ = dbus_connection_open_private(address.c_str(), &error);
        if (connection_ && !dbus_bus_register(connection_, &error)) {
            dbus_connection_close(connection_);
            dbus_connection_unref(connection_);
            connection_ = nullptr;
        }
    }
    if (!connection_) {
        log("❌ Portal bus: cannot connect to the session bus: ",
            error.message ? error.message : "unknown error");
        dbus_error_free(&error);
        return;
    }
    // Leaving is the application's decision, not the bus library's.
    dbus_connection_set_exit_on_disconnect(connection_, FALSE);
    unique_ = dbus_bus_get_unique_name(connection_);
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    auto* handler = new std::function<void(DBusMessage*)>([this](DBusMessage* m) { handleMessage(m); });
    dbus_connection_add_filter(connection_, filter, handler, [](void* data) {
        delete static_cast<std::function<void(DBusMessage*)>*>(data);
    });
    connected_ = true;
    thread_ = std::thread([this] { run(); });
}

LibdbusPortalBus::~LibdbusPortalBus() {
    if (thread_.joinable()) {
        stopping_ = true;
        const uint64_t one = 1;
        (void)!write(wakeFd_, &one, sizeof one);
        thread_.join();
    }
    if (connection_) {
        if (dbus_connection_get_is_connected(connection_)) dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
    }
    if (wakeFd_ >= 0) close(wakeFd_);
}

std::string LibdbusPortalBus::uniqueName() const {
    std::lock_guard lock(mutex_);
    return connected_ ? unique_ : std::string();
}

void LibdbusPortalBus::answer(std::function<void(BusReply)> reply, BusReply value) {
    bindToMain(main_, owner_,
               [reply = std::move(reply)](BusReply r) { reply(std::move(r)); })(std::move(value));
}

void LibdbusPortalBus::post(Job job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    const uint64_t one = 1;
    (void)!write(wakeFd_, &one, sizeof one);
}

void LibdbusPortalBus::call(BusCall call, std::function<void(BusReply)> reply) {
    if (!connected_) {
        answer(std::move(reply), errorReply(kDisconnected, "not connected to the session bus"));
        return;
    }
    DBusMessage* message = dbus_message_new_method_call(service_.c_str(), call.path.c_str(),
                                                        call.interface.c_str(), call.method.c_str());
    std::string why;
    if (!message || !appendArgs(message, call.args, &why)) {
        if (message) dbus_message_unref(message);
        answer(std::move(reply), errorReply("org.freedesktop.DBus.Error.InvalidArgs",
                                            call.interface + "." + call.method + ": " + why));
        return;
    }
    post([this, message, reply = std::move(reply)](DBusConnection* connection) mutable {
        dbus_uint32_t serial = 0;
        if (!connection || !dbus_connection_send(connection, message, &serial)) {
            answer(std::move(reply), errorReply(kDisconnected, "the session bus is gone"));
        } else {
            std::lock_guard lock(mutex_);
            pending_[serial] = Pending{std::move(reply), std::chrono::steady_clock::now() + kCallTimeout};
        }
        dbus_message_unref(message);
    });
}

std::string LibdbusPortalBus::matchRule(const Watcher& w) const {
    return "type='signal',sender=" + quoted(service_) + ",path=" + quoted(w.path) +
           ",interface=" + quoted(w.interface) + ",member=" + quoted(w.member);
}

Subscription LibdbusPortalBus::watchSignal(const std::string& path, const std::string& interface,
                                           const std::string& member, SignalHandler handler) {
    Watcher watcher{path, interface, member, std::make_shared<SignalHandler>(std::move(handler))};
    const std::string rule = matchRule(watcher);
    uint64_t id;
    {
        std::lock_guard lock(mutex_);
        id = ++nextWatcher_;
        watchers_[id] = std::move(watcher);
    }
    auto busCall = [this](const char* method, std::string rule) {
        if (!connected_) return;
        post([method, rule = std::move(rule)](DBusConnection* connection) {
            if (!connection) return;
            // Sent without waiting: the bus handles its own messages in order, so the rule is in place
            // before any later call of ours reaches the portal.
            DBusMessage* m =
                dbus_message_new_method_call(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, method);
            const char* text = rule.c_str();
            dbus_message_append_args(m, DBUS_TYPE_STRING, &text, DBUS_TYPE_INVALID);
            dbus_message_set_no_reply(m, TRUE);
            dbus_connection_send(connection, m, nullptr);
            dbus_message_unref(m);
        });
    };
    busCall("AddMatch", rule);
    return Subscription([this, id, rule, busCall] {
        {
            std::lock_guard lock(mutex_);
            watchers_.erase(id);
        }
        busCall("RemoveMatch", rule);
    });
}

void LibdbusPortalBus::handleMessage(DBusMessage* message) {
    const int type = dbus_message_get_type(message);
    if (type == DBUS_MESSAGE_TYPE_METHOD_RETURN || type == DBUS_MESSAGE_TYPE_ERROR) {
        std::function<void(BusReply)> reply;
        {
            std::lock_guard lock(mutex_);
            auto it = pending_.find(dbus_message_get_reply_serial(message));
            if (it == pending_.end()) return;
            reply = std::move(it->second.reply);
            pending_.erase(it);
        }
        BusReply value;
        if (type == DBUS_MESSAGE_TYPE_ERROR) {
            value.errorName = dbus_message_get_error_name(message);
            DBusError error;
            dbus_error_init(&error);
            dbus_set_error_from_message(&error, message);
            if (error.message) value.errorMessage = error.message;
            dbus_error_free(&error);
        } else {
            value.values = readArgs(message);
        }
        answer(std::move(reply), std::move(value));
        return;
    }
    if (type != DBUS_MESSAGE_TYPE_SIGNAL) return;
    const char* path = dbus_message_get_path(message);
    const char* interface = dbus_message_get_interface(message);
    const char* member = dbus_message_get_member(message);
    if (!path || !interface || !member) return;
    std::vector<uint64_t> targets;
    {
        std::lock_guard lock(mutex_);
        for (const auto& [id, w] : watchers_)
            if (w.path == path && w.interface == interface && w.member == member) targets.push_back(id);
    }
    if (targets.empty()) return;
    auto deliver = bindToMain(main_, owner_, [this](std::vector<uint64_t> ids, std::vector<BusValue> args) {
        for (uint64_t id : ids) {
            std::shared_ptr<SignalHandler> handler;
            {
                std::lock_guard lock(mutex_);
                // Unsubscribed while the signal waited for the main queue: not told.
                auto it = watchers_.find(id);
                if (it == watchers_.end()) continue;
                handler = it->second.handler;
            }
            (*handler)(args);
        }
    });
    deliver(std::move(targets), readArgs(message));
}

void LibdbusPortalBus::drainJobs() {
    std::deque<Job> jobs;
    {
        std::lock_guard lock(mutex_);
        jobs.swap(jobs_);
    }
    DBusConnection* connection = connected_ ? connection_ : nullptr;
    for (auto& job : jobs) job(connection);
    if (connection) dbus_connection_flush(connection);
}

void LibdbusPortalBus::dispatchIncoming() {
    while (dbus_connection_dispatch(connection_) == DBUS_DISPATCH_DATA_REMAINS) {
    }
}

void LibdbusPortalBus::expireCalls() {
    const auto now = std::chrono::steady_clock::now();
    std::vector<std::function<void(BusReply)>> expired;
    {
        std::lock_guard lock(mutex_);
        for (auto it = pending_.begin(); it != pending_.end();) {
            if (it->second.deadline > now) {
                ++it;
                continue;
            }
            expired.push_back(std::move(it->second.reply));
            it = pending_.erase(it);
        }
    }
    for (auto& reply : expired)
        answer(std::move(reply), errorReply("org.freedesktop.DBus.Error.NoReply", "no reply in time"));
}

void LibdbusPortalBus::disconnect(const std::string& why) {
    if (!connected_) return;
    log("❌ Portal bus: ", why);
    std::map<uint32_t, Pending> pending;
    {
        std::lock_guard lock(mutex_);
        connected_ = false;
        pending.swap(pending_);
    }
    for (auto& [serial, call] : pending) answer(std::move(call.reply), errorReply(kDisconnected, why));
}

void LibdbusPortalBus::run() {
    int busFd = -1;
    dbus_connection_get_unix_fd(connection_, &busFd);
    while (!stopping_) {
        drainJobs();
        if (connected_) {
            dispatchIncoming();
            if (!dbus_connection_get_is_connected(connection_))
                disconnect("the session bus closed the connection");
        }
        expireCalls();
        pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {connected_ ? busFd : -1, POLLIN, 0}};
        // The timeout only bounds how late an unanswered call is expired.
        if (poll(fds, 2, 1000) < 0) continue;
        if (fds[0].revents & POLLIN) {
            uint64_t count;
            (void)!read(wakeFd_, &count, sizeof count);
        }
        if (connected_ && fds[1].revents) {
            if (!dbus_connection_read_write(connection_, 0))
                disconnect("the session bus closed the connection");
        }
    }
    // What was asked before we stop still goes out: a session's Close at quit must reach the desktop.
    drainJobs();
}

}  // namespace vocle::portal
