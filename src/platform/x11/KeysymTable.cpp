#include "platform/x11/KeysymTable.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <array>
#include <map>
#include <utility>

#include "platform/events.h"

namespace vocle::x11 {

namespace {

struct KeyPair {
    uint16_t mac;
    unsigned long keysym;
};

// One row per Mac key; the keysym is what the key produces without modifiers on a US layout.
constexpr std::array<KeyPair, 113> kKeys = {{
    {0, XK_a},
    {1, XK_s},
    {2, XK_d},
    {3, XK_f},
    {4, XK_h},
    {5, XK_g},
    {6, XK_z},
    {7, XK_x},
    {8, XK_c},
    {9, XK_v},
    {10, XK_section},
    {11, XK_b},
    {12, XK_q},
    {13, XK_w},
    {14, XK_e},
    {15, XK_r},
    {16, XK_y},
    {17, XK_t},
    {18, XK_1},
    {19, XK_2},
    {20, XK_3},
    {21, XK_4},
    {22, XK_6},
    {23, XK_5},
    {24, XK_equal},
    {25, XK_9},
    {26, XK_7},
    {27, XK_minus},
    {28, XK_8},
    {29, XK_0},
    {30, XK_bracketright},
    {31, XK_o},
    {32, XK_u},
    {33, XK_bracketleft},
    {34, XK_i},
    {35, XK_p},
    {36, XK_Return},
    {37, XK_l},
    {38, XK_j},
    {39, XK_apostrophe},
    {40, XK_k},
    {41, XK_semicolon},
    {42, XK_backslash},
    {43, XK_comma},
    {44, XK_slash},
    {45, XK_n},
    {46, XK_m},
    {47, XK_period},
    {48, XK_Tab},
    {49, XK_space},
    {50, XK_grave},
    {51, XK_BackSpace},
    {53, XK_Escape},
    {54, XK_Super_R},
    {55, XK_Super_L},
    {56, XK_Shift_L},
    {57, XK_Caps_Lock},
    {58, XK_Alt_L},
    {59, XK_Control_L},
    {60, XK_Shift_R},
    {61, XK_Alt_R},
    {62, XK_Control_R},
    {64, XK_F17},
    {65, XK_KP_Decimal},
    {67, XK_KP_Multiply},
    {69, XK_KP_Add},
    {71, XK_Num_Lock},
    {72, XF86XK_AudioRaiseVolume},
    {73, XF86XK_AudioLowerVolume},
    {74, XF86XK_AudioMute},
    {75, XK_KP_Divide},
    {76, XK_KP_Enter},
    {78, XK_KP_Subtract},
    {79, XK_F18},
    {80, XK_F19},
    {81, XK_KP_Equal},
    {82, XK_KP_0},
    {83, XK_KP_1},
    {84, XK_KP_2},
    {85, XK_KP_3},
    {86, XK_KP_4},
    {87, XK_KP_5},
    {88, XK_KP_6},
    {89, XK_KP_7},
    {90, XK_F20},
    {91, XK_KP_8},
    {92, XK_KP_9},
    {96, XK_F5},
    {97, XK_F6},
    {98, XK_F7},
    {99, XK_F3},
    {100, XK_F8},
    {101, XK_F9},
    {103, XK_F11},
    {105, XK_F13},
    {106, XK_F16},
    {107, XK_F14},
    {109, XK_F10},
    {111, XK_F12},
    {113, XK_F15},
    {114, XK_Help},
    {115, XK_Home},
    {116, XK_Prior},
    {117, XK_Delete},
    {118, XK_F4},
    {119, XK_End},
    {120, XK_F2},
    {121, XK_Next},
    {122, XK_F1},
    {123, XK_Left},
    {124, XK_Right},
    {125, XK_Down},
    {126, XK_Up},
}};

// Other names for keys in the table: upper-case letters, PC keys in the Mac keys' places, keypad keys
// with Num Lock off, and the alternative symbols of the modifier keys.
constexpr std::array<KeyPair, 20> kAliases = {{
    {48, XK_ISO_Left_Tab},
    {114, XK_Insert},
    {58, XK_Meta_L},
    {61, XK_Meta_R},
    {61, XK_ISO_Level3_Shift},
    {55, XK_Hyper_L},
    {54, XK_Hyper_R},
    {65, XK_KP_Delete},
    {82, XK_KP_Insert},
    {83, XK_KP_End},
    {84, XK_KP_Down},
    {85, XK_KP_Next},
    {86, XK_KP_Left},
    {87, XK_KP_Begin},
    {88, XK_KP_Right},
    {89, XK_KP_Home},
    {91, XK_KP_Up},
    {92, XK_KP_Prior},
    {71, XK_Clear},
    {10, XK_less},
}};

const std::map<unsigned long, uint16_t>& reverseTable() {
    static const std::map<unsigned long, uint16_t> table = [] {
        std::map<unsigned long, uint16_t> t;
        for (const auto& k : kKeys) {
            t.emplace(k.keysym, k.mac);
            if (k.keysym >= XK_a && k.keysym <= XK_z) t.emplace(k.keysym - XK_a + XK_A, k.mac);
        }
        // Aliases never override a key's own symbol.
        for (const auto& k : kAliases) t.emplace(k.keysym, k.mac);
        return t;
    }();
    return table;
}

}  // namespace

std::optional<unsigned long> keysymForMacKeyCode(uint16_t keyCode) {
    for (const auto& k : kKeys)
        if (k.mac == keyCode) return k.keysym;
    return std::nullopt;
}

std::optional<std::string> keysymNameForMacKeyCode(uint16_t keyCode) {
    const auto keysym = keysymForMacKeyCode(keyCode);
    if (!keysym) return std::nullopt;
    const char* name = XKeysymToString(*keysym);
    return name ? std::optional<std::string>(name) : std::nullopt;
}

std::optional<uint16_t> macKeyCodeForKeysym(unsigned long keysym) {
    const auto& table = reverseTable();
    const auto it = table.find(keysym);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

unsigned xModifiersForMacFlags(uint64_t flags, const ModifierLayout& layout) {
    unsigned state = 0;
    if (flags & kModifierShift) state |= ShiftMask;
    if (flags & kModifierControl) state |= ControlMask;
    if (flags & kModifierOption) state |= layout.alt;
    if (flags & kModifierCommand) state |= layout.super;
    if (flags & kModifierCapsLock) state |= LockMask;
    return state;
}

uint64_t macFlagsForXModifiers(unsigned state, const ModifierLayout& layout) {
    uint64_t flags = 0;
    if (state & ShiftMask) flags |= kModifierShift;
    if (state & ControlMask) flags |= kModifierControl;
    if (state & LockMask) flags |= kModifierCapsLock;
    if (layout.alt && (state & layout.alt)) flags |= kModifierOption;
    if (layout.super && (state & layout.super)) flags |= kModifierCommand;
    return flags;
}

uint64_t macFlagForModifierKeysym(unsigned long keysym) {
    switch (keysym) {
        case XK_Shift_L:
        case XK_Shift_R:
            return kModifierShift;
        case XK_Control_L:
        case XK_Control_R:
            return kModifierControl;
        case XK_Alt_L:
        case XK_Alt_R:
        case XK_Meta_L:
        case XK_Meta_R:
            return kModifierOption;
        case XK_Super_L:
        case XK_Super_R:
        case XK_Hyper_L:
        case XK_Hyper_R:
            return kModifierCommand;
        default:
            return 0;
    }
}

ModifierLayout ModifierLayout::query(Display* display) {
    ModifierLayout layout;
    if (!display) return layout;
    XModifierKeymap* map = XGetModifierMapping(display);
    if (!map) return layout;
    unsigned alt = 0, super = 0, numLock = 0, scrollLock = 0;
    // Rows 3..7 are Mod1..Mod5; each holds up to max_keypermod key codes.
    for (int mod = 3; mod < 8; ++mod) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            const KeyCode code = map->modifiermap[mod * map->max_keypermod + i];
            if (!code) continue;
            for (int level = 0; level < 2; ++level) {
                const KeySym sym = XkbKeycodeToKeysym(display, code, 0, level);
                const unsigned bit = 1u << mod;
                if ((sym == XK_Alt_L || sym == XK_Alt_R || sym == XK_Meta_L || sym == XK_Meta_R) && !alt)
                    alt = bit;
                if ((sym == XK_Super_L || sym == XK_Super_R) && !super) super = bit;
                if (sym == XK_Num_Lock) numLock = bit;
                if (sym == XK_Scroll_Lock) scrollLock = bit;
            }
        }
    }
    XFreeModifiermap(map);
    if (alt) layout.alt = alt;
    if (super) layout.super = super;
    if (numLock) layout.numLock = numLock;
    layout.scrollLock = scrollLock;
    return layout;
}

}  // namespace vocle::x11

namespace vocle::x11 {

KeycodeTranslator::~KeycodeTranslator() {
    if (display_) XCloseDisplay(display_);
}

unsigned long KeycodeTranslator::baseKeysym(unsigned keycode) {
    if (!opened_) {
        opened_ = true;
        display_ = XOpenDisplay(nullptr);
    }
    if (!display_ || keycode < 8 || keycode > 255) return 0;
    return XkbKeycodeToKeysym(display_, static_cast<KeyCode>(keycode), 0, 0);
}

std::optional<uint16_t> KeycodeTranslator::macKeyCode(unsigned keycode) {
    const unsigned long sym = baseKeysym(keycode);
    if (!sym) return std::nullopt;
    return macKeyCodeForKeysym(sym);
}

}  // namespace vocle::x11
