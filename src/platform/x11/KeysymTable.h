#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Xlib types without Xlib's macros: a keysym is an unsigned long, a display an opaque struct.
typedef struct _XDisplay Display;

namespace vocle::x11 {

// Which X modifier bits carry Alt (Option), Super (Command), Num Lock and Scroll Lock on this server.
// Shift, Lock and Control are fixed by the protocol.
struct ModifierLayout {
    unsigned alt = 1u << 3;    // Mod1
    unsigned super = 1u << 6;  // Mod4
    unsigned numLock = 1u << 4;
    unsigned scrollLock = 0;

    // Reads the server's modifier mapping; falls back to the usual layout for what it cannot find.
    static ModifierLayout query(Display* display);
};

// macOS virtual key code (ANSI) <-> X keysym. Letters map from both cases; keys that a PC keyboard
// has under another name (Insert for Help, Num Lock for Clear) map back to the Mac key in that place.
std::optional<unsigned long> keysymForMacKeyCode(uint16_t keyCode);
std::optional<uint16_t> macKeyCodeForKeysym(unsigned long keysym);
// The keysym's XKB name for a Mac key ("space", "a", "F5"), as compositor configurations spell keys.
std::optional<std::string> keysymNameForMacKeyCode(uint16_t keyCode);

// Shortcut modifier bits <-> X state masks. Caps Lock is reported as the macOS Caps Lock bit;
// Num Lock and Scroll Lock have no macOS counterpart and are dropped.
unsigned xModifiersForMacFlags(uint64_t flags, const ModifierLayout& layout);
uint64_t macFlagsForXModifiers(unsigned state, const ModifierLayout& layout);

// The Shortcut modifier bit a modifier key's keysym stands for (Shift_L -> Shift...), 0 for other keys.
uint64_t macFlagForModifierKeysym(unsigned long keysym);

}  // namespace vocle::x11

namespace vocle::x11 {

// X key codes (hardware positions) to Mac key codes through the keyboard's unshifted symbols, so that
// Shift+1 is still the "1" key. Opens its own connection on first use; main thread only.
class KeycodeTranslator {
  public:
    KeycodeTranslator() = default;
    ~KeycodeTranslator();
    KeycodeTranslator(const KeycodeTranslator&) = delete;
    KeycodeTranslator& operator=(const KeycodeTranslator&) = delete;

    // The unshifted keysym of the key, or 0 when there is no display or no symbol.
    unsigned long baseKeysym(unsigned keycode);
    std::optional<uint16_t> macKeyCode(unsigned keycode);

  private:
    Display* display_ = nullptr;
    bool opened_ = false;
};

}  // namespace vocle::x11
