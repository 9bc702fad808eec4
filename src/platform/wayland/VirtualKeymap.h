#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vocle::wayland {

// The keyboard a virtual keyboard announces: the US layout (Control, Shift and V at their evdev places),
// in XKB text form, so the compositor and every client read the same symbols whatever the user's own
// layout is. Where the system has no XKB data, a keymap of only the keys a paste needs.
// Keys travel as evdev codes (XKB codes minus 8); the compositor does not derive modifier state from
// a virtual keyboard's keys, so the sender announces the masks itself.
struct VirtualKeymap {
    static const std::string& text();
    static const std::string& minimalText();
    // The evdev code of a key given as a macOS virtual key code; none for keys this keymap lacks.
    static std::optional<uint32_t> evdevCode(uint16_t keyCode);
    // The XKB modifier mask a modifier key sets while down (0 for other keys).
    static uint32_t modifierMask(uint16_t keyCode);
};

}  // namespace vocle::wayland
