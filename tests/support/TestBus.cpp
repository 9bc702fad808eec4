#include "support/TestBus.h"

#include <dbus/dbus.h>

#include <chrono>
#include <stdexcept>

namespace vocle::testing {

namespace {

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void appendLeaf(DBusMessageIter* it, const TestBus::Leaf& value, bool asVariant) {
    auto open = [&](const char* signature, auto&& write) {
        if (!asVariant) return write(it);
        DBusMessageIter inner;
        dbus_message_iter_open_container(it, DBUS_TYPE_VARIANT, signature, &inner);
        write(&inner);
        dbus_message_iter_close_container(it, &inner);
    };
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                dbus_bool_t b = v;
                open("b",
                     [&](DBusMessageIter* i) { dbus_message_iter_append_basic(i, DBUS_TYPE_BOOLEAN, &b); });
            } else if constexpr (std::is_same_v<T, int32_t>) {
                open("i",
                     [&](DBusMessageIter* i) { dbus_message_iter_append_basic(i, DBUS_TYPE_INT32, &v); });
            } else if constexpr (std::is_same_v<T, uint32_t>) {
                open("u",
                     [&](DBusMessageIter* i) { dbus_message_iter_append_basic(i, DBUS_TYPE_UINT32, &v); });
            } else if constexpr (std::is_same_v<T, std::string>) {
                const char* s = v.c_str();
                open("s",
                     [&](DBusMessageIter* i) { dbus_message_iter_append_basic(i, DBUS_TYPE_STRING, &s); });
            } else {
                const char* s = v.path.c_str();
                open("o", [&](DBusMessageIter* i) {
                    dbus_message_iter_append_basic(i, DBUS_TYPE_OBJECT_PATH, &s);
                });
            }
        },
        value);
}

void appendArg(DBusMessageIter* it, const TestBus::Arg& arg) {
    if (const auto* dict = std::get_if<TestBus::Dict>(&arg)) {
        DBusMessageIter array;
        dbus_message_iter_open_container(it, DBUS_TYPE_ARRAY, "{sv}", &array);
        for (const auto& [key, value] : *dict) {
            DBusMessageIter entry;
            dbus_message_iter_open_container(&array, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
            const char* k = key.c_str();
            dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &k);
            appendLeaf(&entry, value, true);
            dbus_message_iter_close_container(&array, &entry);
        }
        dbus_message_iter_close_container(it, &array);
        return;
    }
    std::visit(
        [&](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (!std::is_same_v<T, TestBus::Dict>) appendLeaf(it, v, false);
        },
        arg);
}

std::optional<TestBus::Leaf> readLeaf(DBusMessageIter* it) {
    switch (dbus_message_iter_get_arg_type(it)) {
        case DBUS_TYPE_BOOLEAN: {
            dbus_bool_t b;
            dbus_message_iter_get_basic(it, &b);
            return TestBus::Leaf(static_cast<bool>(b));
        }
        case DBUS_TYPE_INT32: {
            int32_t i;
            dbus_message_iter_get_basic(it, &i);
            return TestBus::Leaf(i);
        }
        case DBUS_TYPE_UINT32: {
            uint32_t u;
            dbus_message_iter_get_basic(it, &u);
            return TestBus::Leaf(u);
        }
        case DBUS_TYPE_STRING: {
            const char* s;
            dbus_message_iter_get_basic(it, &s);
            return TestBus::Leaf(std::string(s));
        }
        case DBUS_TYPE_OBJECT_PATH: {
            const char* s;
            dbus_message_iter_get_basic(it, &s);
            return TestBus::Leaf(TestBus::ObjectPath{s});
        }
        case DBUS_TYPE_VARIANT: {
            DBusMessageIter inner;
            dbus_message_iter_recurse(it, &inner);
            return readLeaf(&inner);
        }
        default:
            return std::nullopt;
    }
}

TestBus::Args readArgs(DBusMessage* message) {
    TestBus::Args out;
    DBusMessageIter it;
    if (!dbus_message_iter_init(message, &it)) return out;
    do {
        if (dbus_message_iter_get_arg_type(&it) == DBUS_TYPE_ARRAY &&
            dbus_message_iter_get_element_type(&it) == DBUS_TYPE_DICT_ENTRY) {
            TestBus::Dict dict;
            DBusMessageIter array;
            dbus_message_iter_recurse(&it, &array);
            while (dbus_message_iter_get_arg_type(&array) == DBUS_TYPE_DICT_ENTRY) {
                DBusMessageIter entry;
                dbus_message_iter_recurse(&array, &entry);
                if (dbus_message_iter_get_arg_type(&entry) == DBUS_TYPE_STRING) {
                    const char* key;
                    dbus_message_iter_get_basic(&entry, &key);
                    dbus_message_iter_next(&entry);
                    if (auto value = readLeaf(&entry)) dict[key] = *value;
                }
                dbus_message_iter_next(&array);
            }
            out.emplace_back(std::move(dict));
        } else if (auto leaf = readLeaf(&it)) {
            std::visit([&](auto&& v) { out.emplace_back(std::move(v)); }, std::move(*leaf));
        }
    } while (dbus_message_iter_next(&it));
    return out;
}

}  // namespace

TestBus::TestBus(const std::string& address) {
    DBusError error;
    dbus_error_init(&error);
    connection_ = dbus_connection_open_private(address.c_str(), &error);
    if (connection_ && !dbus_bus_register(connection_, &error)) {
        dbus_connection_close(connection_);
        dbus_connection_unref(connection_);
        connection_ = nullptr;
    }
    if (!connection_) {
        const std::string why = dbus_error_is_set(&error) ? error.message : "unknown error";
        dbus_error_free(&error);
        throw std::runtime_error("TestBus: cannot connect to " + address + ": " + why);
    }
    dbus_connection_set_exit_on_disconnect(connection_, false);
}

TestBus::~TestBus() {
    dbus_connection_close(connection_);
    dbus_connection_unref(connection_);
}

std::string TestBus::uniqueName() const {
    return dbus_bus_get_unique_name(connection_);
}

bool TestBus::hasOwner(const std::string& name) {
    DBusError error;
    dbus_error_init(&error);
    const bool owned = dbus_bus_name_has_owner(connection_, name.c_str(), &error);
    dbus_error_free(&error);
    return owned;
}

TestBus::Args TestBus::call(const std::string& destination, const std::string& path,
                            const std::string& interface, const std::string& method, const Args& args,
                            double timeout) {
    DBusMessage* message =
        dbus_message_new_method_call(destination.c_str(), path.c_str(), interface.c_str(), method.c_str());
    DBusMessageIter it;
    dbus_message_iter_init_append(message, &it);
    for (const auto& arg : args) appendArg(&it, arg);
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(connection_, message,
                                                                   static_cast<int>(timeout * 1000), &error);
    dbus_message_unref(message);
    if (!reply) {
        const std::string why =
            std::string(error.name ? error.name : "") + ": " + (error.message ? error.message : "");
        dbus_error_free(&error);
        throw std::runtime_error(interface + "." + method + " failed: " + why);
    }
    Args out = readArgs(reply);
    dbus_message_unref(reply);
    return out;
}

std::optional<TestBus::Leaf> TestBus::property(const std::string& destination, const std::string& path,
                                               const std::string& interface, const std::string& name) {
    try {
        const Args reply =
            call(destination, path, "org.freedesktop.DBus.Properties", "Get", {interface, name});
        if (reply.empty()) return std::nullopt;
        std::optional<Leaf> out;
        std::visit(
            [&](const auto& v) {
                using T = std::decay_t<decltype(v)>;
                if constexpr (!std::is_same_v<T, Dict>) out = v;
            },
            reply.front());
        return out;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

void TestBus::addMatch(const std::string& rule) {
    DBusError error;
    dbus_error_init(&error);
    dbus_bus_add_match(connection_, rule.c_str(), &error);
    const bool failed = dbus_error_is_set(&error);
    const std::string why = failed ? error.message : "";
    dbus_error_free(&error);
    if (failed) throw std::runtime_error("TestBus: match '" + rule + "' refused: " + why);
}

std::optional<TestBus::Args> TestBus::waitForSignal(const std::string& path, const std::string& interface,
                                                    const std::string& member, double timeout,
                                                    const std::function<void()>& meanwhile) {
    const double deadline = now() + timeout;
    while (true) {
        while (DBusMessage* message = dbus_connection_pop_message(connection_)) {
            const bool match = dbus_message_is_signal(message, interface.c_str(), member.c_str()) &&
                               dbus_message_has_path(message, path.c_str());
            std::optional<Args> body;
            if (match) body = readArgs(message);
            dbus_message_unref(message);
            if (body) return body;
        }
        if (meanwhile) meanwhile();
        const double left = deadline - now();
        if (left <= 0) return std::nullopt;
        if (!dbus_connection_read_write(connection_, static_cast<int>(std::min(left, 0.05) * 1000) + 1))
            return std::nullopt;
    }
}

}  // namespace vocle::testing
