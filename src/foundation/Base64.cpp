#include "foundation/Base64.h"

#include <array>

namespace vocle::base64 {

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> makeReverse() {
    std::array<int8_t, 256> table{};
    for (auto& v : table) v = -1;
    for (int i = 0; i < 64; ++i) table[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
    return table;
}
constexpr auto kReverse = makeReverse();
}  // namespace

size_t encodedSize(size_t rawSize) { return (rawSize + 2) / 3 * 4; }

void encodeInto(const void* data, size_t size, char* out) {
    const auto* in = static_cast<const uint8_t*>(data);
    size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        uint32_t v = uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8 | in[i + 2];
        *out++ = kAlphabet[v >> 18];
        *out++ = kAlphabet[(v >> 12) & 63];
        *out++ = kAlphabet[(v >> 6) & 63];
        *out++ = kAlphabet[v & 63];
    }
    if (size - i == 1) {
        uint32_t v = uint32_t(in[i]) << 16;
        *out++ = kAlphabet[v >> 18];
        *out++ = kAlphabet[(v >> 12) & 63];
        *out++ = '=';
        *out++ = '=';
    } else if (size - i == 2) {
        uint32_t v = uint32_t(in[i]) << 16 | uint32_t(in[i + 1]) << 8;
        *out++ = kAlphabet[v >> 18];
        *out++ = kAlphabet[(v >> 12) & 63];
        *out++ = kAlphabet[(v >> 6) & 63];
        *out++ = '=';
    }
}

std::string encode(const void* data, size_t size) {
    std::string out(encodedSize(size), '\0');
    encodeInto(data, size, out.data());
    return out;
}

std::optional<std::string> decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int v[4];
        int pad = 0;
        for (int k = 0; k < 4; ++k) {
            const char c = text[i + k];
            if (c == '=' && last && k >= 2) {
                v[k] = 0;
                ++pad;
                continue;
            }
            if (pad) return std::nullopt;  // data after padding
            v[k] = kReverse[static_cast<uint8_t>(c)];
            if (v[k] < 0) return std::nullopt;
        }
        const uint32_t n = uint32_t(v[0]) << 18 | uint32_t(v[1]) << 12 | uint32_t(v[2]) << 6 | uint32_t(v[3]);
        out.push_back(static_cast<char>(n >> 16));
        if (pad < 2) out.push_back(static_cast<char>((n >> 8) & 0xFF));
        if (pad < 1) out.push_back(static_cast<char>(n & 0xFF));
    }
    return out;
}

}  // namespace vocle::base64
