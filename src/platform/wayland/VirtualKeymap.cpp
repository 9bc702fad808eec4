#include "platform/wayland/VirtualKeymap.h"

#include "platform/events.h"

namespace vocle::wayland {

namespace {
// evdev (linux/input-event-codes.h)
constexpr uint32_t kEvdevLeftCtrl = 29;
constexpr uint32_t kEvdevLeftShift = 42;
constexpr uint32_t kEvdevV = 47;
// XKB's fixed real modifiers
constexpr uint32_t kShiftMask = 1u << 0;
constexpr uint32_t kControlMask = 1u << 2;
}  // namespace

const std::string& VirtualKeymap::text() {
    // Self-contained (no includes), so it loads even where xkeyboard-config is missing.
    static const std::string keymap = R"(xkb_keymap {
xkb_keycodes "vocle" {
    minimum = 8;
    maximum = 255;
    <LCTL> = 37;
    <LFSH> = 50;
    <AB04> = 55;
};
xkb_types "vocle" {
    virtual_modifiers NumLock;
    type "ONE_LEVEL" {
        modifiers = none;
        level_name[Level1] = "Any";
    };
    type "TWO_LEVEL" {
        modifiers = Shift;
        map[Shift] = Level2;
        level_name[Level1] = "Base";
        level_name[Level2] = "Shift";
    };
    type "ALPHABETIC" {
        modifiers = Shift+Lock;
        map[Shift] = Level2;
        map[Lock] = Level2;
        level_name[Level1] = "Base";
        level_name[Level2] = "Caps";
    };
};
xkb_compatibility "vocle" {
    interpret Any+AnyOf(all) {
        action = SetMods(modifiers=modMapMods,clearLocks);
    };
};
xkb_symbols "vocle" {
    key <LCTL> { [ Control_L ] };
    key <LFSH> { [ Shift_L ] };
    key <AB04> { type = "ALPHABETIC", [ v, V ] };
    modifier_map Control { <LCTL> };
    modifier_map Shift { <LFSH> };
};
};
)";
    return keymap;
}

std::optional<uint32_t> VirtualKeymap::evdevCode(uint16_t keyCode) {
    switch (keyCode) {
        case keycode::kControl:
            return kEvdevLeftCtrl;
        case keycode::kShift:
            return kEvdevLeftShift;
        case keycode::kV:
            return kEvdevV;
        default:
            return std::nullopt;
    }
}

uint32_t VirtualKeymap::modifierMask(uint16_t keyCode) {
    switch (keyCode) {
        case keycode::kControl:
            return kControlMask;
        case keycode::kShift:
            return kShiftMask;
        default:
            return 0;
    }
}

}  // namespace vocle::wayland
