#pragma once

#include <nlohmann/json.hpp>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace vocle {

using Json = nlohmann::json;

// A record could not be decoded: a key is missing or has the wrong type, or the text is not JSON.
class DecodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string toPrettyJson(const Json& value);
std::string toCompactJson(const Json& value);
// Throws DecodingError with the parser's message.
Json parseJson(std::string_view text);

// Strict field access for decoders: a missing key or a mistyped value is a DecodingError naming the key.
const Json& requireKey(const Json& object, const char* key);
std::string requireString(const Json& object, const char* key);
bool requireBool(const Json& object, const char* key);
double requireNumber(const Json& object, const char* key);
int64_t requireInteger(const Json& object, const char* key);
const Json& requireArray(const Json& object, const char* key);
const Json& requireObject(const Json& object, const char* key);
// Absent or null reads as none; present with another type is a DecodingError.
std::optional<std::string> optionalString(const Json& object, const char* key);
void requireObjectValue(const Json& value, const char* what);

}  // namespace vocle
