#include "platform/portal/BusMarshal.h"

#include <dbus/dbus.h>

namespace vocle::portal {

namespace {

bool fail(std::string* error, std::string why) {
    if (error && error->empty()) *error = std::move(why);
    return false;
}

template <class T>
bool appendBasic(DBusMessageIter* iter, int type, T value, std::string* error) {
    if (!dbus_message_iter_append_basic(iter, type, &value)) return fail(error, "out of memory");
    return true;
}

bool appendString(DBusMessageIter* iter, int type, const std::string& text, std::string* error) {
    const char* chars = text.c_str();
    if (type == DBUS_TYPE_OBJECT_PATH && !dbus_validate_path(chars, nullptr))
        return fail(error, "not an object path: " + text);
    if (type == DBUS_TYPE_STRING && !dbus_validate_utf8(chars, nullptr))
        return fail(error, "string is not UTF-8");
    return appendBasic(iter, type, chars, error);
}

bool closeContainer(DBusMessageIter* parent, DBusMessageIter* child, bool ok) {
    if (!ok) {
        dbus_message_iter_abandon_container(parent, child);
        return false;
    }
    return dbus_message_iter_close_container(parent, child);
}

}  // namespace

bool appendValue(DBusMessageIter* iter, const BusValue& value, std::string* error) {
    struct Visitor {
        DBusMessageIter* iter;
        std::string* error;
        bool operator()(bool v) const { return appendBasic<dbus_bool_t>(iter, DBUS_TYPE_BOOLEAN, v, error); }
        bool operator()(uint32_t v) const {
            return appendBasic<dbus_uint32_t>(iter, DBUS_TYPE_UINT32, v, error);
        }
        bool operator()(int32_t v) const {
            return appendBasic<dbus_int32_t>(iter, DBUS_TYPE_INT32, v, error);
        }
        bool operator()(uint64_t v) const {
            return appendBasic<dbus_uint64_t>(iter, DBUS_TYPE_UINT64, v, error);
        }
        bool operator()(int64_t v) const {
            return appendBasic<dbus_int64_t>(iter, DBUS_TYPE_INT64, v, error);
        }
        bool operator()(double v) const { return appendBasic<double>(iter, DBUS_TYPE_DOUBLE, v, error); }
        bool operator()(const std::string& v) const { return appendString(iter, DBUS_TYPE_STRING, v, error); }
        bool operator()(const ObjectPath& v) const {
            return appendString(iter, DBUS_TYPE_OBJECT_PATH, v.path, error);
        }
        bool operator()(const BusArray& a) const {
            const std::string element = a.items.empty() ? a.elementSignature : a.items.front().signature();
            if (element.empty() || !dbus_signature_validate_single(element.c_str(), nullptr))
                return fail(error, "array without a valid element signature");
            DBusMessageIter child;
            if (!dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, element.c_str(), &child))
                return fail(error, "out of memory");
            bool ok = true;
            for (const auto& item : a.items) {
                if (item.signature() != element) {
                    ok = fail(error, "array items of mixed types");
                    break;
                }
                if (!(ok = appendValue(&child, item, error))) break;
            }
            return closeContainer(iter, &child, ok);
        }
        bool operator()(const BusDict& d) const {
            DBusMessageIter array;
            if (!dbus_message_iter_open_container(iter, DBUS_TYPE_ARRAY, "{sv}", &array))
                return fail(error, "out of memory");
            bool ok = true;
            for (const auto& [key, item] : d) {
                DBusMessageIter entry, variant;
                if (!dbus_message_iter_open_container(&array, DBUS_TYPE_DICT_ENTRY, nullptr, &entry)) {
                    ok = fail(error, "out of memory");
                    break;
                }
                ok = appendString(&entry, DBUS_TYPE_STRING, key, error);
                const std::string signature = item.signature();
                if (ok)
                    ok = dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature.c_str(),
                                                          &variant);
                if (ok) ok = closeContainer(&entry, &variant, appendValue(&variant, item, error));
                ok = closeContainer(&array, &entry, ok);
                if (!ok) break;
            }
            return closeContainer(iter, &array, ok) || fail(error, "could not write a dictionary");
        }
        bool operator()(const BusStruct& s) const {
            DBusMessageIter child;
            if (!dbus_message_iter_open_container(iter, DBUS_TYPE_STRUCT, nullptr, &child))
                return fail(error, "out of memory");
            bool ok = true;
            for (const auto& field : s.fields)
                if (!(ok = appendValue(&child, field, error))) break;
            return closeContainer(iter, &child, ok);
        }
    };
    return std::visit(Visitor{iter, error}, value.storage());
}

bool appendArgs(DBusMessage* message, const std::vector<BusValue>& args, std::string* error) {
    DBusMessageIter iter;
    dbus_message_iter_init_append(message, &iter);
    for (const auto& arg : args)
        if (!appendValue(&iter, arg, error)) return false;
    return true;
}

namespace {

template <class T>
T basic(DBusMessageIter* iter) {
    T value{};
    dbus_message_iter_get_basic(iter, &value);
    return value;
}

std::string iterSignature(DBusMessageIter* iter) {
    char* raw = dbus_message_iter_get_signature(iter);
    std::string signature = raw ? raw : "";
    dbus_free(raw);
    return signature;
}

}  // namespace

BusValue readValue(DBusMessageIter* iter) {
    switch (dbus_message_iter_get_arg_type(iter)) {
        case DBUS_TYPE_BOOLEAN:
            return BusValue(basic<dbus_bool_t>(iter) != 0);
        case DBUS_TYPE_BYTE:
            return BusValue(static_cast<uint32_t>(basic<unsigned char>(iter)));
        case DBUS_TYPE_UINT16:
            return BusValue(static_cast<uint32_t>(basic<dbus_uint16_t>(iter)));
        case DBUS_TYPE_INT16:
            return BusValue(static_cast<int32_t>(basic<dbus_int16_t>(iter)));
        case DBUS_TYPE_UINT32:
        case DBUS_TYPE_UNIX_FD:
            return BusValue(static_cast<uint32_t>(basic<dbus_uint32_t>(iter)));
        case DBUS_TYPE_INT32:
            return BusValue(static_cast<int32_t>(basic<dbus_int32_t>(iter)));
        case DBUS_TYPE_UINT64:
            return BusValue(static_cast<uint64_t>(basic<dbus_uint64_t>(iter)));
        case DBUS_TYPE_INT64:
            return BusValue(static_cast<int64_t>(basic<dbus_int64_t>(iter)));
        case DBUS_TYPE_DOUBLE:
            return BusValue(basic<double>(iter));
        case DBUS_TYPE_STRING:
        case DBUS_TYPE_SIGNATURE:
            return BusValue(std::string(basic<const char*>(iter)));
        case DBUS_TYPE_OBJECT_PATH:
            return BusValue(ObjectPath{basic<const char*>(iter)});
        case DBUS_TYPE_VARIANT: {
            DBusMessageIter inner;
            dbus_message_iter_recurse(iter, &inner);
            return readValue(&inner);
        }
        case DBUS_TYPE_STRUCT:
        case DBUS_TYPE_DICT_ENTRY: {
            BusStruct s;
            DBusMessageIter child;
            dbus_message_iter_recurse(iter, &child);
            while (dbus_message_iter_get_arg_type(&child) != DBUS_TYPE_INVALID) {
                s.fields.push_back(readValue(&child));
                dbus_message_iter_next(&child);
            }
            return BusValue(std::move(s));
        }
        case DBUS_TYPE_ARRAY: {
            const std::string element = iterSignature(iter).substr(1);
            DBusMessageIter child;
            dbus_message_iter_recurse(iter, &child);
            // Dictionaries keyed by strings (a{sv}, a{ss}, a{sa{sv}}) read as BusDict.
            if (element.size() > 2 && element[0] == '{' && (element[1] == 's' || element[1] == 'o')) {
                BusDict dict;
                while (dbus_message_iter_get_arg_type(&child) == DBUS_TYPE_DICT_ENTRY) {
                    DBusMessageIter entry;
                    dbus_message_iter_recurse(&child, &entry);
                    const std::string key = basic<const char*>(&entry);
                    dbus_message_iter_next(&entry);
                    dict[key] = readValue(&entry);
                    dbus_message_iter_next(&child);
                }
                return BusValue(std::move(dict));
            }
            BusArray array{element, {}};
            while (dbus_message_iter_get_arg_type(&child) != DBUS_TYPE_INVALID) {
                array.items.push_back(readValue(&child));
                dbus_message_iter_next(&child);
            }
            return BusValue(std::move(array));
        }
        default:
            return BusValue();
    }
}

std::vector<BusValue> readArgs(DBusMessage* message) {
    std::vector<BusValue> args;
    DBusMessageIter iter;
    if (!dbus_message_iter_init(message, &iter)) return args;
    while (dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_INVALID) {
        args.push_back(readValue(&iter));
        dbus_message_iter_next(&iter);
    }
    return args;
}

}  // namespace vocle::portal
