#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vocle {

// RFC 4122 version-4 identifier; its text form is the canonical upper-case 36-character string.
class Uuid {
public:
    Uuid() = default;  // all zero
    static Uuid random();
    // Accepts either case; anything but the 8-4-4-4-12 hex form is rejected.
    static std::optional<Uuid> parse(std::string_view text);

    std::string string() const;
    const std::array<uint8_t, 16>& bytes() const { return bytes_; }
    bool isNil() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    std::array<uint8_t, 16> bytes_{};
};

}  // namespace vocle

template <>
struct std::hash<vocle::Uuid> {
    size_t operator()(const vocle::Uuid& u) const noexcept {
        size_t h = 0;
        for (auto b : u.bytes()) h = h * 131 + b;
        return h;
    }
};
