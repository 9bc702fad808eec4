#include "support/PortalTestClient.h"

#include <dbus/dbus.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace vocle::testing {

namespace {

constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void appendString(DBusMessageIter* it, const std::string& text, int type = DBUS_TYPE_STRING) {
    const char* s = text.c_str();
    dbus_message_iter_append_basic(it, type, &s);
}

void appendShortcuts(DBusMessageIter* it, const PortalTestClient::Shortcuts& shortcuts) {
    DBusMessageIter array;
    dbus_message_iter_open_container(it, DBUS_TYPE_ARRAY, "(sa{sv})", &array);
    for (const auto& shortcut : shortcuts) {
        DBusMessageIter entry, dict;
        dbus_message_iter_open_container(&array, DBUS_TYPE_STRUCT, nullptr, &entry);
        appendString(&entry, shortcut.id);
        dbus_message_iter_open_container(&entry, DBUS_TYPE_ARRAY, "{sv}", &dict);
        for (const auto& [key, value] :
             {std::pair<std::string, std::string>{"description", shortcut.description},
              {"preferred_trigger", shortcut.preferredTrigger}}) {
            if (value.empty()) continue;
            DBusMessageIter pair, variant;
            dbus_message_iter_open_container(&dict, DBUS_TYPE_DICT_ENTRY, nullptr, &pair);
            appendString(&pair, key);
            dbus_message_iter_open_container(&pair, DBUS_TYPE_VARIANT, "s", &variant);
            appendString(&variant, value);
            dbus_message_iter_close_container(&pair, &variant);
            dbus_message_iter_close_container(&dict, &pair);
        }
        dbus_message_iter_close_container(&entry, &dict);
        dbus_message_iter_close_container(&array, &entry);
    }
    dbus_message_iter_close_container(it, &array);
}

// Strings that start with '/' travel as object paths (session handles); the rest as they are.
void appendArgument(DBusMessageIter* it, const PortalTestClient::Value& value) {
    if (const auto* s = std::get_if<std::string>(&value)) {
        appendString(it, *s, !s->empty() && s->front() == '/' ? DBUS_TYPE_OBJECT_PATH : DBUS_TYPE_STRING);
    } else if (const auto* u = std::get_if<uint32_t>(&value)) {
        dbus_message_iter_append_basic(it, DBUS_TYPE_UINT32, u);
    } else if (const auto* b = std::get_if<bool>(&value)) {
        const dbus_bool_t v = *b;
        dbus_message_iter_append_basic(it, DBUS_TYPE_BOOLEAN, &v);
    } else {
        appendShortcuts(it, std::get<PortalTestClient::Shortcuts>(value));
    }
}

void appendOptions(DBusMessageIter* it, const PortalTestClient::Options& options) {
    DBusMessageIter dict;
    dbus_message_iter_open_container(it, DBUS_TYPE_ARRAY, "{sv}", &dict);
    for (const auto& [key, value] : options) {
        DBusMessageIter pair, variant;
        dbus_message_iter_open_container(&dict, DBUS_TYPE_DICT_ENTRY, nullptr, &pair);
        appendString(&pair, key);
        const char* signature = std::holds_alternative<std::string>(value) ? "s"
                                : std::holds_alternative<uint32_t>(value)  ? "u"
                                : std::holds_alternative<bool>(value)      ? "b"
                                                                           : "a(sa{sv})";
        dbus_message_iter_open_container(&pair, DBUS_TYPE_VARIANT, signature, &variant);
        if (const auto* s = std::get_if<std::string>(&value))
            appendString(&variant, *s);
        else
            appendArgument(&variant, value);
        dbus_message_iter_close_container(&pair, &variant);
        dbus_message_iter_close_container(&dict, &pair);
    }
    dbus_message_iter_close_container(it, &dict);
}

std::string readString(DBusMessageIter* it) {
    const char* s = nullptr;
    dbus_message_iter_get_basic(it, &s);
    return s ? s : "";
}

// a(sa{sv}) -> (id, trigger_description)
std::vector<std::pair<std::string, std::string>> readShortcuts(DBusMessageIter* array) {
    std::vector<std::pair<std::string, std::string>> out;
    DBusMessageIter entry;
    dbus_message_iter_recurse(array, &entry);
    while (dbus_message_iter_get_arg_type(&entry) == DBUS_TYPE_STRUCT) {
        DBusMessageIter fields, dict;
        dbus_message_iter_recurse(&entry, &fields);
        std::pair<std::string, std::string> shortcut{readString(&fields), ""};
        dbus_message_iter_next(&fields);
        dbus_message_iter_recurse(&fields, &dict);
        while (dbus_message_iter_get_arg_type(&dict) == DBUS_TYPE_DICT_ENTRY) {
            DBusMessageIter pair, variant;
            dbus_message_iter_recurse(&dict, &pair);
            const std::string key = readString(&pair);
            dbus_message_iter_next(&pair);
            dbus_message_iter_recurse(&pair, &variant);
            if (key == "trigger_description" && dbus_message_iter_get_arg_type(&variant) == DBUS_TYPE_STRING)
                shortcut.second = readString(&variant);
            dbus_message_iter_next(&dict);
        }
        out.push_back(shortcut);
        dbus_message_iter_next(&entry);
    }
    return out;
}

void readResults(DBusMessageIter* dictIt, PortalTestClient::Response& response) {
    DBusMessageIter dict;
    dbus_message_iter_recurse(dictIt, &dict);
    while (dbus_message_iter_get_arg_type(&dict) == DBUS_TYPE_DICT_ENTRY) {
        DBusMessageIter pair, variant;
        dbus_message_iter_recurse(&dict, &pair);
        const std::string key = readString(&pair);
        dbus_message_iter_next(&pair);
        dbus_message_iter_recurse(&pair, &variant);
        const int type = dbus_message_iter_get_arg_type(&variant);
        if (type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH) {
            response.strings[key] = readString(&variant);
        } else if (type == DBUS_TYPE_UINT32) {
            uint32_t v = 0;
            dbus_message_iter_get_basic(&variant, &v);
            response.numbers[key] = v;
        } else if (type == DBUS_TYPE_ARRAY && key == "shortcuts") {
            response.shortcuts = readShortcuts(&variant);
        }
        dbus_message_iter_next(&dict);
    }
}

void setError(std::string* error, const std::string& text) {
    if (error) *error = text;
}

}  // namespace

PortalTestClient::PortalTestClient(const std::string& busAddress) {
    DBusError error;
    dbus_error_init(&error);
    connection_ = dbus_connection_open_private(busAddress.c_str(), &error);
    if (connection_ && !dbus_bus_register(connection_, &error)) {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
        connection_ = nullptr;
    }
    if (!connection_) {
        const std::string message = error.message ? error.message : "unknown error";
        dbus_error_free(&error);
        throw std::runtime_error("PortalTestClient: cannot connect to " + busAddress + ": " + message);
    }
    dbus_connection_set_exit_on_disconnect(connection_, false);
    uniqueName_ = dbus_bus_get_unique_name(connection_);
}

PortalTestClient::~PortalTestClient() {
    for (DBusMessage* m : pending_) dbus_message_unref(m);
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

DBusMessage* PortalTestClient::callRaw(DBusMessage* message, double timeout, std::string* error) {
    DBusError e;
    dbus_error_init(&e);
    DBusMessage* reply =
        dbus_connection_send_with_reply_and_block(connection_, message, static_cast<int>(timeout * 1000), &e);
    dbus_message_unref(message);
    if (!reply) {
        setError(error, std::string(e.name ? e.name : "") + ": " + (e.message ? e.message : ""));
        dbus_error_free(&e);
    }
    return reply;
}

void PortalTestClient::pump(double timeout) {
    dbus_connection_read_write(connection_, static_cast<int>(timeout * 1000));
    while (DBusMessage* m = dbus_connection_pop_message(connection_)) {
        if (dbus_message_get_type(m) == DBUS_MESSAGE_TYPE_SIGNAL)
            pending_.push_back(m);
        else
            dbus_message_unref(m);
    }
}

bool PortalTestClient::nameHasOwner(const std::string& name) {
    DBusMessage* m = dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "NameHasOwner");
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    appendString(&it, name);
    DBusMessage* reply = callRaw(m, 5.0, nullptr);
    if (!reply) return false;
    dbus_bool_t owned = false;
    dbus_message_get_args(reply, nullptr, DBUS_TYPE_BOOLEAN, &owned, DBUS_TYPE_INVALID);
    dbus_message_unref(reply);
    return owned;
}

std::vector<std::string> PortalTestClient::portalInterfaces() {
    DBusMessage* m = dbus_message_new_method_call(kPortal, kPortalPath, "org.freedesktop.DBus.Introspectable",
                                                  "Introspect");
    DBusMessage* reply = callRaw(m, 10.0, nullptr);
    std::vector<std::string> out;
    if (!reply) return out;
    const char* xml = nullptr;
    dbus_message_get_args(reply, nullptr, DBUS_TYPE_STRING, &xml, DBUS_TYPE_INVALID);
    const std::string text = xml ? xml : "";
    dbus_message_unref(reply);
    const std::string marker = "<interface name=\"";
    for (auto at = text.find(marker); at != std::string::npos; at = text.find(marker, at + 1)) {
        const auto start = at + marker.size();
        out.push_back(text.substr(start, text.find('"', start) - start));
    }
    return out;
}

std::optional<uint32_t> PortalTestClient::portalVersion(const std::string& interface) {
    DBusMessage* m =
        dbus_message_new_method_call(kPortal, kPortalPath, "org.freedesktop.DBus.Properties", "Get");
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    appendString(&it, interface);
    appendString(&it, "version");
    DBusMessage* reply = callRaw(m, 10.0, nullptr);
    if (!reply) return std::nullopt;
    std::optional<uint32_t> version;
    DBusMessageIter args, variant;
    if (dbus_message_iter_init(reply, &args) && dbus_message_iter_get_arg_type(&args) == DBUS_TYPE_VARIANT) {
        dbus_message_iter_recurse(&args, &variant);
        if (dbus_message_iter_get_arg_type(&variant) == DBUS_TYPE_UINT32) {
            uint32_t v = 0;
            dbus_message_iter_get_basic(&variant, &v);
            version = v;
        }
    }
    dbus_message_unref(reply);
    return version;
}

std::optional<PortalTestClient::Response> PortalTestClient::request(const std::string& interface,
                                                                    const std::string& method,
                                                                    const std::vector<Value>& arguments,
                                                                    Options options, double timeout,
                                                                    std::string* error) {
    const std::string token = "voclet" + std::to_string(++tokens_);
    options["handle_token"] = token;
    std::string sender = uniqueName_.substr(1);
    std::replace(sender.begin(), sender.end(), '.', '_');
    const std::string path = std::string(kPortalPath) + "/request/" + sender + "/" + token;
    // Subscribed before the call: the answer may come before the call returns.
    const std::string rule =
        "type='signal',interface='org.freedesktop.portal.Request',member='Response',path='" + path + "'";
    dbus_bus_add_match(connection_, rule.c_str(), nullptr);

    DBusMessage* m = dbus_message_new_method_call(kPortal, kPortalPath, interface.c_str(), method.c_str());
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    for (const auto& argument : arguments) appendArgument(&it, argument);
    appendOptions(&it, options);
    DBusMessage* reply = callRaw(m, timeout, error);
    if (!reply) {
        dbus_bus_remove_match(connection_, rule.c_str(), nullptr);
        return std::nullopt;
    }
    dbus_message_unref(reply);

    std::optional<Response> response;
    const double deadline = now() + timeout;
    while (!response) {
        for (auto m = pending_.begin(); m != pending_.end(); ++m) {
            if (!dbus_message_is_signal(*m, "org.freedesktop.portal.Request", "Response") ||
                path != dbus_message_get_path(*m))
                continue;
            Response r;
            DBusMessageIter args;
            if (dbus_message_iter_init(*m, &args) &&
                dbus_message_iter_get_arg_type(&args) == DBUS_TYPE_UINT32) {
                dbus_message_iter_get_basic(&args, &r.code);
                if (dbus_message_iter_next(&args)) readResults(&args, r);
            }
            dbus_message_unref(*m);
            pending_.erase(m);
            response = r;
            break;
        }
        if (response) break;
        const double left = deadline - now();
        if (left <= 0) break;
        pump(std::min(left, 0.1));
    }
    dbus_bus_remove_match(connection_, rule.c_str(), nullptr);
    if (!response) setError(error, method + ": no Response within the time limit");
    return response;
}

bool PortalTestClient::call(const std::string& interface, const std::string& method,
                            const std::vector<Value>& arguments, const std::vector<int32_t>& numbers,
                            std::string* error) {
    DBusMessage* m = dbus_message_new_method_call(kPortal, kPortalPath, interface.c_str(), method.c_str());
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    for (const auto& argument : arguments) appendArgument(&it, argument);
    for (int32_t n : numbers) dbus_message_iter_append_basic(&it, DBUS_TYPE_INT32, &n);
    DBusMessage* reply = callRaw(m, 10.0, error);
    if (!reply) return false;
    dbus_message_unref(reply);
    return true;
}

bool PortalTestClient::closeSession(const std::string& handle, std::string* error) {
    DBusMessage* m =
        dbus_message_new_method_call(kPortal, handle.c_str(), "org.freedesktop.portal.Session", "Close");
    DBusMessage* reply = callRaw(m, 10.0, error);
    if (!reply) return false;
    dbus_message_unref(reply);
    return true;
}

bool PortalTestClient::notifyKeysym(const std::string& session, int32_t keysym, bool pressed,
                                    std::string* error) {
    DBusMessage* m = dbus_message_new_method_call(
        kPortal, kPortalPath, "org.freedesktop.portal.RemoteDesktop", "NotifyKeyboardKeysym");
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    appendString(&it, session, DBUS_TYPE_OBJECT_PATH);
    appendOptions(&it, {});
    dbus_message_iter_append_basic(&it, DBUS_TYPE_INT32, &keysym);
    const uint32_t state = pressed ? 1 : 0;
    dbus_message_iter_append_basic(&it, DBUS_TYPE_UINT32, &state);
    DBusMessage* reply = callRaw(m, 10.0, error);
    if (!reply) return false;
    dbus_message_unref(reply);
    return true;
}

bool PortalTestClient::setPermission(const std::string& table, const std::string& id, const std::string& app,
                                     const std::vector<std::string>& permissions, std::string* error) {
    DBusMessage* m = dbus_message_new_method_call(
        "org.freedesktop.impl.portal.PermissionStore", "/org/freedesktop/impl/portal/PermissionStore",
        "org.freedesktop.impl.portal.PermissionStore", "SetPermission");
    DBusMessageIter it, array;
    dbus_message_iter_init_append(m, &it);
    appendString(&it, table);
    const dbus_bool_t create = true;
    dbus_message_iter_append_basic(&it, DBUS_TYPE_BOOLEAN, &create);
    appendString(&it, id);
    appendString(&it, app);
    dbus_message_iter_open_container(&it, DBUS_TYPE_ARRAY, "s", &array);
    for (const auto& p : permissions) appendString(&array, p);
    dbus_message_iter_close_container(&it, &array);
    DBusMessage* reply = callRaw(m, 10.0, error);
    if (!reply) return false;
    dbus_message_unref(reply);
    return true;
}

std::optional<std::vector<std::string>> PortalTestClient::permissions(const std::string& table,
                                                                      const std::string& id,
                                                                      const std::string& app) {
    DBusMessage* m = dbus_message_new_method_call("org.freedesktop.impl.portal.PermissionStore",
                                                  "/org/freedesktop/impl/portal/PermissionStore",
                                                  "org.freedesktop.impl.portal.PermissionStore", "Lookup");
    DBusMessageIter it;
    dbus_message_iter_init_append(m, &it);
    appendString(&it, table);
    appendString(&it, id);
    DBusMessage* reply = callRaw(m, 10.0, nullptr);
    if (!reply) return std::nullopt;
    std::optional<std::vector<std::string>> out;
    DBusMessageIter args, dict;
    // (a{sas} permissions, v data)
    if (dbus_message_iter_init(reply, &args) && dbus_message_iter_get_arg_type(&args) == DBUS_TYPE_ARRAY) {
        dbus_message_iter_recurse(&args, &dict);
        while (dbus_message_iter_get_arg_type(&dict) == DBUS_TYPE_DICT_ENTRY) {
            DBusMessageIter pair, list;
            dbus_message_iter_recurse(&dict, &pair);
            if (readString(&pair) == app) {
                dbus_message_iter_next(&pair);
                dbus_message_iter_recurse(&pair, &list);
                out.emplace();
                while (dbus_message_iter_get_arg_type(&list) == DBUS_TYPE_STRING) {
                    out->push_back(readString(&list));
                    dbus_message_iter_next(&list);
                }
            }
            dbus_message_iter_next(&dict);
        }
    }
    dbus_message_unref(reply);
    return out;
}

void PortalTestClient::watch(const std::string& interface) {
    const std::string rule = "type='signal',interface='" + interface + "'";
    dbus_bus_add_match(connection_, rule.c_str(), nullptr);
    dbus_connection_flush(connection_);
}

std::optional<PortalTestClient::Signal> PortalTestClient::waitForSignal(const std::string& member,
                                                                        double timeout) {
    const double deadline = now() + timeout;
    while (true) {
        for (auto m = pending_.begin(); m != pending_.end(); ++m) {
            if (member != dbus_message_get_member(*m)) continue;
            Signal s{dbus_message_get_interface(*m) ? dbus_message_get_interface(*m) : "",
                     member,
                     dbus_message_get_path(*m) ? dbus_message_get_path(*m) : "",
                     {}};
            DBusMessageIter args;
            for (bool more = dbus_message_iter_init(*m, &args); more; more = dbus_message_iter_next(&args)) {
                const int type = dbus_message_iter_get_arg_type(&args);
                if (type == DBUS_TYPE_STRING || type == DBUS_TYPE_OBJECT_PATH)
                    s.strings.push_back(readString(&args));
            }
            dbus_message_unref(*m);
            pending_.erase(m);
            return s;
        }
        const double left = deadline - now();
        if (left <= 0) return std::nullopt;
        pump(std::min(left, 0.1));
    }
}

}  // namespace vocle::testing
