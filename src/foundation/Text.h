#pragma once

#include <string>
#include <string_view>

namespace vocle {

// Trims ASCII and Unicode whitespace and newlines at both ends.
std::string trimWhitespace(std::string_view text);
bool isValidUtf8(std::string_view text);
// The first `count` characters (code points), never splitting a UTF-8 sequence.
std::string firstCharacters(std::string_view text, size_t count);

}  // namespace vocle
