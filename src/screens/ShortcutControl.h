#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vocle {

// A key code (macOS virtual key numbering, as stored) and modifier bits (macOS event-flag values).
struct KeyCombination {
    uint16_t keyCode = 0;
    uint64_t modifiers = 0;
    friend bool operator==(const KeyCombination&, const KeyCombination&) = default;
};

namespace keys {
inline constexpr uint64_t kShift = 0x20000;
inline constexpr uint64_t kControl = 0x40000;
inline constexpr uint64_t kOption = 0x80000;
inline constexpr uint64_t kCommand = 0x100000;
inline constexpr uint64_t kModifierMask = 0x1E0000;
inline constexpr uint16_t kReturn = 36;
inline constexpr uint16_t kSpace = 49;
inline constexpr uint16_t kEscape = 53;
}  // namespace keys

// What the screens need from the global shortcut registry. The shortcut manager satisfies it through a
// thin adapter, so the screens do not depend on the hot-key machinery.
class ShortcutControl {
  public:
    virtual ~ShortcutControl() = default;

    virtual KeyCombination toggleShortcut() const = 0;
    virtual KeyCombination cancelShortcut() const = 0;
    virtual void setToggleShortcut(KeyCombination shortcut) = 0;
    virtual void setCancelShortcut(KeyCombination shortcut) = 0;
    virtual void saveShortcuts() = 0;
    virtual void unregisterShortcuts() = 0;
    virtual void registerShortcuts() = 0;
    // While suspended, pressing the current shortcut reaches the picker instead of starting a dictation.
    virtual void setSuspended(bool suspended) = 0;
    virtual std::vector<std::string> displayParts(uint16_t keyCode, uint64_t modifiers) const = 0;
};

}  // namespace vocle
