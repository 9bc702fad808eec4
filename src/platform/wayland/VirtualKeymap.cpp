#include "platform/wayland/VirtualKeymap.h"

#include <xkbcommon/xkbcommon.h>

#include <memory>

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

namespace {

// The system's full US keymap: the compositor hands the active keyboard's keymap to every client, and
// XWayland misbehaves on keymaps with only a few keys. Our three keys sit at their usual evdev places.
std::string fullUsKeymap() {
    std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> context(
        xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES), xkb_context_unref);
    if (!context) return {};
    const xkb_rule_names names{"evdev", "pc105", "us", "", ""};
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS), xkb_keymap_unref);
    if (!keymap) return {};
    std::unique_ptr<char, decltype(&free)> text(
        xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1), free);
    return text ? std::string(text.get()) : std::string();
}

}  // namespace

const std::string& VirtualKeymap::text() {
    static const std::string keymap = [] {
        std::string full = fullUsKeymap();
        return full.empty() ? minimalText() : full;
    }();
    return keymap;
}

const std::string& VirtualKeymap::minimalText() {
    // Self-contained (no includes), for systems without xkeyboard-config.
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
