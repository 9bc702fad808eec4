#include "ui/screens/KeyCodeMapping.h"

#include <array>
#include <utility>

#include "screens/ShortcutControl.h"

namespace vocle {

namespace {

// X keycode (evdev + 8) → key code, for the keys of a standard 105-key board.
constexpr std::array<std::pair<uint32_t, uint16_t>, 58> kByScanCode = {{
    {9, 53},   {10, 18},  {11, 19},  {12, 20},  {13, 21},  {14, 23},  {15, 22},  {16, 26},  {17, 28},  {18, 25},
    {19, 29},  {20, 27},  {21, 24},  {22, 51},  {23, 48},  {24, 12},  {25, 13},  {26, 14},  {27, 15},  {28, 17},
    {29, 16},  {30, 32},  {31, 34},  {32, 31},  {33, 35},  {34, 33},  {35, 30},  {36, 36},  {38, 0},   {39, 1},
    {40, 2},   {41, 3},   {42, 5},   {43, 4},   {44, 38},  {45, 40},  {46, 37},  {47, 41},  {48, 39},  {49, 50},
    {51, 42},  {52, 6},   {53, 7},   {54, 8},   {55, 9},   {56, 11},  {57, 45},  {58, 46},  {59, 43},  {60, 47},
    {61, 44},  {65, 49},  {67, 122}, {68, 120}, {69, 99},  {70, 118}, {71, 96},  {72, 97},
}};

constexpr std::array<std::pair<uint32_t, uint16_t>, 6> kMoreScanCodes = {{
    {73, 98}, {74, 100}, {75, 101}, {76, 109}, {95, 103}, {96, 111},
}};

std::optional<uint16_t> byQtKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z) {
        static const std::array<uint16_t, 26> codes = {0,  11, 8,  2,  14, 3,  5,  4,  34, 38, 40, 37, 46,
                                                       45, 31, 35, 12, 15, 1,  17, 32, 9,  13, 7,  16, 6};
        return codes[key - Qt::Key_A];
    }
    if (key >= Qt::Key_0 && key <= Qt::Key_9) {
        static const std::array<uint16_t, 10> digits = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25};
        return digits[key - Qt::Key_0];
    }
    switch (key) {
        case Qt::Key_Return:
        case Qt::Key_Enter:
            return keys::kReturn;
        case Qt::Key_Tab:
            return 48;
        case Qt::Key_Space:
            return keys::kSpace;
        case Qt::Key_Backspace:
            return 51;
        case Qt::Key_Escape:
            return keys::kEscape;
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<uint16_t> storedKeyCode(const QKeyEvent& event) {
    const uint32_t scan = event.nativeScanCode();
    if (scan == 0) return byQtKey(event.key());
    for (const auto& [x, code] : kByScanCode)
        if (x == scan) return code;
    for (const auto& [x, code] : kMoreScanCodes)
        if (x == scan) return code;
    return byQtKey(event.key());
}

uint64_t storedModifiers(Qt::KeyboardModifiers modifiers) {
    uint64_t flags = 0;
    if (modifiers & Qt::ShiftModifier) flags |= keys::kShift;
    if (modifiers & Qt::ControlModifier) flags |= keys::kControl;
    if (modifiers & Qt::AltModifier) flags |= keys::kOption;
    if (modifiers & Qt::MetaModifier) flags |= keys::kCommand;
    return flags;
}

uint64_t modifierOfKey(int qtKey) {
    switch (qtKey) {
        case Qt::Key_Shift:
            return keys::kShift;
        case Qt::Key_Control:
            return keys::kControl;
        case Qt::Key_Alt:
        case Qt::Key_AltGr:
            return keys::kOption;
        case Qt::Key_Meta:
        case Qt::Key_Super_L:
        case Qt::Key_Super_R:
            return keys::kCommand;
        default:
            return 0;
    }
}

uint64_t flagsAfter(const QKeyEvent& event) {
    uint64_t flags = storedModifiers(event.modifiers());
    const uint64_t own = modifierOfKey(event.key());
    if (event.type() == QEvent::KeyPress) flags |= own;
    if (event.type() == QEvent::KeyRelease) flags &= ~own;
    return flags;
}

}  // namespace vocle
