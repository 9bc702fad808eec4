#include "foundation/Uuid.h"

#include <random>

namespace vocle {

Uuid Uuid::random() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    Uuid u;
    for (size_t i = 0; i < 16; i += 8) {
        uint64_t v = engine();
        for (size_t j = 0; j < 8; ++j) u.bytes_[i + j] = static_cast<uint8_t>(v >> (8 * j));
    }
    u.bytes_[6] = static_cast<uint8_t>((u.bytes_[6] & 0x0F) | 0x40);
    u.bytes_[8] = static_cast<uint8_t>((u.bytes_[8] & 0x3F) | 0x80);
    return u;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid u;
    size_t b = 0;
    for (size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        auto hex = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        int hi = hex(text[i]), lo = hex(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        u.bytes_[b++] = static_cast<uint8_t>(hi << 4 | lo);
        i += 2;
    }
    return u;
}

std::string Uuid::string() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(digits[bytes_[i] >> 4]);
        out.push_back(digits[bytes_[i] & 0xF]);
    }
    return out;
}

bool Uuid::isNil() const {
    for (auto b : bytes_) {
        if (b) return false;
    }
    return true;
}

}  // namespace vocle
