#include "foundation/Json.h"

namespace vocle {

std::string toPrettyJson(const Json& value) {
    return value.dump(2, ' ', false, Json::error_handler_t::replace);
}

std::string toCompactJson(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json parseJson(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& e) {
        throw DecodingError(std::string("The data is not valid JSON: ") + e.what());
    }
}

void requireObjectValue(const Json& value, const char* what) {
    if (!value.is_object()) throw DecodingError(std::string("Expected an object for ") + what);
}

const Json& requireKey(const Json& object, const char* key) {
    if (!object.is_object()) throw DecodingError(std::string("Expected an object holding \"") + key + "\"");
    auto it = object.find(key);
    if (it == object.end()) throw DecodingError(std::string("No value associated with key \"") + key + "\"");
    return *it;
}

namespace {
[[noreturn]] void typeMismatch(const char* key, const char* expected) {
    throw DecodingError(std::string("Expected ") + expected + " value for key \"" + key + "\"");
}
}  // namespace

std::string requireString(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (!v.is_string()) typeMismatch(key, "a string");
    return v.get<std::string>();
}

bool requireBool(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (!v.is_boolean()) typeMismatch(key, "a boolean");
    return v.get<bool>();
}

double requireNumber(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (!v.is_number()) typeMismatch(key, "a number");
    return v.get<double>();
}

int64_t requireInteger(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (v.is_number_integer()) return v.get<int64_t>();
    if (v.is_number_float()) {
        const double d = v.get<double>();
        if (d == static_cast<double>(static_cast<int64_t>(d))) return static_cast<int64_t>(d);
    }
    typeMismatch(key, "an integer");
}

const Json& requireArray(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (!v.is_array()) typeMismatch(key, "an array");
    return v;
}

const Json& requireObject(const Json& object, const char* key) {
    const Json& v = requireKey(object, key);
    if (!v.is_object()) typeMismatch(key, "an object");
    return v;
}

std::optional<std::string> optionalString(const Json& object, const char* key) {
    if (!object.is_object()) throw DecodingError(std::string("Expected an object holding \"") + key + "\"");
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    if (!it->is_string()) typeMismatch(key, "a string");
    return it->get<std::string>();
}

}  // namespace vocle
