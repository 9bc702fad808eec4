#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vocle::base64 {

// Standard alphabet with padding, no line breaks.
std::string encode(const void* data, size_t size);
inline std::string encode(std::string_view bytes) { return encode(bytes.data(), bytes.size()); }
inline std::string encode(const std::vector<uint8_t>& bytes) { return encode(bytes.data(), bytes.size()); }
size_t encodedSize(size_t rawSize);
// Writes encodedSize(size) characters to `out`; lets callers encode straight into a larger buffer.
void encodeInto(const void* data, size_t size, char* out);

// Strict: rejects characters outside the alphabet and bad padding. Whitespace is not allowed.
std::optional<std::string> decode(std::string_view text);

}  // namespace vocle::base64
