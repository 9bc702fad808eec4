#include "foundation/Text.h"

#include <cstdint>

namespace vocle {

namespace {
// Length of the UTF-8 sequence starting at `i`, 0 when it is malformed.
size_t sequenceLength(std::string_view s, size_t i) {
    const auto c = static_cast<uint8_t>(s[i]);
    size_t len = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
    if (len == 0 || i + len > s.size()) return 0;
    for (size_t k = 1; k < len; ++k) {
        if ((static_cast<uint8_t>(s[i + k]) & 0xC0) != 0x80) return 0;
    }
    return len;
}

uint32_t decodeAt(std::string_view s, size_t i, size_t len) {
    const auto b = [&](size_t k) { return static_cast<uint32_t>(static_cast<uint8_t>(s[i + k])); };
    switch (len) {
        case 1: return b(0);
        case 2: return (b(0) & 0x1F) << 6 | (b(1) & 0x3F);
        case 3: return (b(0) & 0x0F) << 12 | (b(1) & 0x3F) << 6 | (b(2) & 0x3F);
        default: return (b(0) & 0x07) << 18 | (b(1) & 0x3F) << 12 | (b(2) & 0x3F) << 6 | (b(3) & 0x3F);
    }
}

bool isSpace(uint32_t cp) {
    return (cp >= 0x09 && cp <= 0x0D) || cp == 0x20 || cp == 0x85 || cp == 0xA0 || cp == 0x1680 ||
           (cp >= 0x2000 && cp <= 0x200A) || cp == 0x2028 || cp == 0x2029 || cp == 0x202F || cp == 0x205F ||
           cp == 0x3000;
}
}  // namespace

bool isValidUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const size_t len = sequenceLength(text, i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

std::string trimWhitespace(std::string_view text) {
    size_t begin = 0, end = 0;
    bool seen = false;
    for (size_t i = 0; i < text.size();) {
        size_t len = sequenceLength(text, i);
        if (len == 0) len = 1;  // malformed bytes are content, not space
        const bool space = len == 1 ? isSpace(static_cast<uint8_t>(text[i])) && static_cast<uint8_t>(text[i]) < 0x80
                                    : isSpace(decodeAt(text, i, len));
        if (!space) {
            if (!seen) begin = i;
            seen = true;
            end = i + len;
        }
        i += len;
    }
    return seen ? std::string(text.substr(begin, end - begin)) : std::string();
}

std::string firstCharacters(std::string_view text, size_t count) {
    size_t i = 0;
    for (size_t n = 0; n < count && i < text.size(); ++n) {
        const size_t len = sequenceLength(text, i);
        i += len ? len : 1;
    }
    return std::string(text.substr(0, i));
}

}  // namespace vocle
