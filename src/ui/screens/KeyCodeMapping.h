#pragma once

#include <QKeyEvent>

#include <cstdint>
#include <optional>

namespace vocle {

// Translates Qt key events into the stored key numbering (macOS virtual key codes, positional) and
// modifier bits. On X11 the native scan code is the X keycode, so the position is read from it and the
// keyboard layout does not matter; without one the Qt key is used.
std::optional<uint16_t> storedKeyCode(const QKeyEvent& event);
uint64_t storedModifiers(Qt::KeyboardModifiers modifiers);
// The modifier bit a modifier key itself stands for (Shift, Control, Alt, Super), else 0.
uint64_t modifierOfKey(int qtKey);
// The flags as they are after this press or release of a modifier key.
uint64_t flagsAfter(const QKeyEvent& event);

}  // namespace vocle
