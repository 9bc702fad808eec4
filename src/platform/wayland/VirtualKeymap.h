#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vocle::wayland {

// The keyboard a virtual keyboard announces: only the keys a paste needs (Control, Shift, V), in XKB text
// form so the compositor and every client read the same symbols whatever the user's own layout is.
// Keys travel as evdev codes (XKB codes minus 8); the compositor does not derive modifier state from
// a virtual keyboard's keys, so the sender announces the masks itself.
struct VirtualKeymap {
    static const std::string& text();
    // The evdev code of a key given as a macOS virtual key code; none for keys this keymap lacks.
    static std::optional<uint32_t> evdevCode(uint16_t keyCode);
    // The XKB modifier mask a modifier key sets while down (0 for other keys).
    static uint32_t modifierMask(uint16_t keyCode);
};

}  // namespace vocle::wayland
