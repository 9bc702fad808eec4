#pragma once

#include <string>
#include <string_view>

namespace vocle::server {

// Lower-case hex SHA-256 of the bytes.
std::string sha256Hex(std::string_view bytes);

// Bytes from the OpenSSL CSPRNG; throws std::runtime_error if it cannot deliver.
std::string randomBytes(size_t count);

// 256 random bits as unpadded base64url: safe inside a header value and after ";refresh=".
std::string randomToken();

// HMAC-SHA256 of `label` under `key`, as unpadded base64url: a token only the key's holder can compute.
std::string derivedToken(std::string_view key, std::string_view label);

// `digits` decimal digits, uniformly distributed (leading zeros kept).
std::string randomDigits(int digits);

// Compares in time independent of where the first difference is.
bool constantTimeEquals(std::string_view a, std::string_view b);

}  // namespace vocle::server
