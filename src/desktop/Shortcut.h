#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/Json.h"
#include "platform/events.h"

namespace vocle {

// A key combination: macOS virtual key code and modifier bits, as stored in "settings.json".
struct Shortcut {
    uint16_t keyCode = 0;
    uint64_t modifiers = 0;

    // Ctrl+Alt+Space and Escape. Alt+Space alone is the window menu of most Linux desktops (KRunner on
    // Plasma); Ctrl+Alt+Space is free in their stock bindings (docs/desktop.md).
    static Shortcut defaultToggle() { return {keycode::kSpace, kModifierControl | kModifierOption}; }
    static Shortcut defaultCancel() { return {keycode::kEscape, 0}; }

    // Keys "keyCode" and "modifiersRaw"; both required. Throws DecodingError.
    static Shortcut fromJson(const Json& json);
    Json toJson() const;
    // Compact JSON text, as it goes into the settings record.
    std::string encode() const;
    // None when the bytes are not a Shortcut.
    static std::optional<Shortcut> decode(const std::string& bytes);

    // True when a key press with these (unmasked) flags is this combination.
    bool matches(uint16_t code, uint64_t flags) const {
        return code == keyCode && (flags & kShortcutModifierMask) == modifiers;
    }

    friend bool operator==(const Shortcut&, const Shortcut&) = default;
};

}  // namespace vocle
