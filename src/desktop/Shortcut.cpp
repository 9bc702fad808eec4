#include "desktop/Shortcut.h"

namespace vocle {

Shortcut Shortcut::fromJson(const Json& json) {
    requireObjectValue(json, "Shortcut");
    const int64_t code = requireInteger(json, "keyCode");
    const int64_t mods = requireInteger(json, "modifiersRaw");
    if (code < 0 || code > 0xFFFF) throw DecodingError("keyCode out of range: " + std::to_string(code));
    if (mods < 0) throw DecodingError("modifiersRaw out of range: " + std::to_string(mods));
    return {static_cast<uint16_t>(code), static_cast<uint64_t>(mods)};
}

Json Shortcut::toJson() const {
    return Json{{"keyCode", keyCode}, {"modifiersRaw", modifiers}};
}

std::string Shortcut::encode() const {
    return toCompactJson(toJson());
}

std::optional<Shortcut> Shortcut::decode(const std::string& bytes) {
    try {
        return fromJson(parseJson(bytes));
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

}  // namespace vocle
