#include <gtest/gtest.h>

// After gtest: X.h defines macros (None) that gtest uses as names.
#include <X11/X.h>
#include <X11/keysym.h>

#include "desktop/ShortcutManager.h"
#include "platform/x11/KeysymTable.h"

using namespace vocle;
using namespace vocle::x11;

namespace {

TEST(KeysymTable, MacKeysMapToXAndBack) {
    const std::vector<std::pair<uint16_t, unsigned long>> cases = {
        {0, XK_a},
        {1, XK_s},
        {9, XK_v},
        {12, XK_q},
        {46, XK_m},
        {18, XK_1},
        {23, XK_5},
        {22, XK_6},
        {29, XK_0},
        {24, XK_equal},
        {27, XK_minus},
        {33, XK_bracketleft},
        {30, XK_bracketright},
        {39, XK_apostrophe},
        {41, XK_semicolon},
        {42, XK_backslash},
        {43, XK_comma},
        {44, XK_slash},
        {47, XK_period},
        {50, XK_grave},
        {36, XK_Return},
        {48, XK_Tab},
        {49, XK_space},
        {51, XK_BackSpace},
        {53, XK_Escape},
        {117, XK_Delete},
        {115, XK_Home},
        {119, XK_End},
        {116, XK_Prior},
        {121, XK_Next},
        {123, XK_Left},
        {124, XK_Right},
        {125, XK_Down},
        {126, XK_Up},
        {122, XK_F1},
        {120, XK_F2},
        {99, XK_F3},
        {118, XK_F4},
        {96, XK_F5},
        {97, XK_F6},
        {98, XK_F7},
        {100, XK_F8},
        {101, XK_F9},
        {109, XK_F10},
        {103, XK_F11},
        {111, XK_F12},
        {82, XK_KP_0},
        {76, XK_KP_Enter},
        {56, XK_Shift_L},
        {59, XK_Control_L},
        {58, XK_Alt_L},
        {55, XK_Super_L},
        {57, XK_Caps_Lock},
    };
    for (auto [mac, sym] : cases) {
        EXPECT_EQ(keysymForMacKeyCode(mac), sym) << "mac " << mac;
        EXPECT_EQ(macKeyCodeForKeysym(sym), mac) << "keysym 0x" << std::hex << sym;
    }
}

TEST(KeysymTable, EveryNamedShortcutKeyRoundTrips) {
    // The keys the pickers can show by name must all be reachable on X and come back unchanged.
    int named = 0;
    for (uint16_t code = 0; code < 128; ++code) {
        if (ShortcutManager::keyName(code) == "Key") continue;
        ++named;
        const auto sym = keysymForMacKeyCode(code);
        ASSERT_TRUE(sym) << code;
        EXPECT_EQ(macKeyCodeForKeysym(*sym), code) << code;
    }
    EXPECT_EQ(named, 42);  // five named keys, 26 letters and ";", ten digits
}

TEST(KeysymTable, OtherNamesOfTheSameKeys) {
    EXPECT_EQ(macKeyCodeForKeysym(XK_A), 0) << "upper case is the same key";
    EXPECT_EQ(macKeyCodeForKeysym(XK_Z), 6);
    EXPECT_EQ(macKeyCodeForKeysym(XK_ISO_Left_Tab), 48) << "Shift+Tab";
    EXPECT_EQ(macKeyCodeForKeysym(XK_Insert), 114) << "PC Insert sits where the Mac Help key is";
    EXPECT_EQ(keysymForMacKeyCode(114), static_cast<unsigned long>(XK_Help));
    EXPECT_EQ(macKeyCodeForKeysym(XK_Meta_L), 58);
    EXPECT_EQ(macKeyCodeForKeysym(XK_KP_Home), 89) << "keypad 7 with Num Lock off";
}

TEST(KeysymTable, UnknownKeysAndSymbols) {
    EXPECT_FALSE(keysymForMacKeyCode(52));
    EXPECT_FALSE(keysymForMacKeyCode(200));
    EXPECT_FALSE(macKeyCodeForKeysym(XK_exclam)) << "shifted symbols are not keys";
    EXPECT_FALSE(macKeyCodeForKeysym(XK_Kanji));
    EXPECT_FALSE(macKeyCodeForKeysym(0));
}

TEST(KeysymTable, ModifierFlagsToXMasksAndBack) {
    const ModifierLayout usual;
    EXPECT_EQ(xModifiersForMacFlags(kModifierOption, usual), Mod1Mask);
    EXPECT_EQ(xModifiersForMacFlags(kModifierCommand, usual), Mod4Mask);
    EXPECT_EQ(xModifiersForMacFlags(kModifierShift | kModifierControl, usual), ShiftMask | ControlMask);
    EXPECT_EQ(xModifiersForMacFlags(kShortcutModifierMask, usual),
              ShiftMask | ControlMask | Mod1Mask | Mod4Mask);
    EXPECT_EQ(xModifiersForMacFlags(0, usual), 0u);

    EXPECT_EQ(macFlagsForXModifiers(Mod1Mask, usual), kModifierOption);
    EXPECT_EQ(macFlagsForXModifiers(ShiftMask | LockMask, usual), kModifierShift | kModifierCapsLock);
    EXPECT_EQ(macFlagsForXModifiers(Mod2Mask, usual), 0u) << "Num Lock has no Mac bit";
    for (uint64_t flags = 0; flags <= kShortcutModifierMask; flags += kModifierShift)
        EXPECT_EQ(macFlagsForXModifiers(xModifiersForMacFlags(flags, usual), usual), flags)
            << std::hex << flags;

    // A server that puts Alt on Mod5 and Super on Mod3.
    ModifierLayout odd;
    odd.alt = Mod5Mask;
    odd.super = Mod3Mask;
    EXPECT_EQ(xModifiersForMacFlags(kModifierOption | kModifierCommand, odd), Mod5Mask | Mod3Mask);
    EXPECT_EQ(macFlagsForXModifiers(Mod5Mask | Mod1Mask, odd), kModifierOption);
}

TEST(KeysymTable, ModifierKeysymsNameTheirBits) {
    EXPECT_EQ(macFlagForModifierKeysym(XK_Shift_R), kModifierShift);
    EXPECT_EQ(macFlagForModifierKeysym(XK_Control_L), kModifierControl);
    EXPECT_EQ(macFlagForModifierKeysym(XK_Alt_R), kModifierOption);
    EXPECT_EQ(macFlagForModifierKeysym(XK_Super_R), kModifierCommand);
    EXPECT_EQ(macFlagForModifierKeysym(XK_Caps_Lock), 0u);
    EXPECT_EQ(macFlagForModifierKeysym(XK_a), 0u);
}

}  // namespace
