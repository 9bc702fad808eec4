#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/events.h"

namespace vocle {

// A key code (macOS virtual key numbering, as stored) and modifier bits (macOS event-flag values).
struct KeyCombination {
    uint16_t keyCode = 0;
    uint64_t modifiers = 0;
    friend bool operator==(const KeyCombination&, const KeyCombination&) = default;
};

// Short names for the pickers' rules.
namespace keys {
inline constexpr uint64_t kShift = kModifierShift;
inline constexpr uint64_t kControl = kModifierControl;
inline constexpr uint64_t kOption = kModifierOption;
inline constexpr uint64_t kCommand = kModifierCommand;
inline constexpr uint64_t kModifierMask = kShortcutModifierMask;
inline constexpr uint16_t kReturn = keycode::kReturn;
inline constexpr uint16_t kSpace = keycode::kSpace;
inline constexpr uint16_t kEscape = keycode::kEscape;
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
    // The window system's status when a shortcut could not be registered system-wide; none when it is.
    virtual std::optional<int> toggleRegistrationFailure() const { return std::nullopt; }
    virtual std::optional<int> cancelRegistrationFailure() const { return std::nullopt; }
};

}  // namespace vocle
