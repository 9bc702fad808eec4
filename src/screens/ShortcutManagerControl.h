#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "screens/ShortcutControl.h"

namespace vocle {

// Lets the screens drive the shortcut manager: its `currentShortcut`, `cancelShortcut` and
// `isSuspended` fields, the three registration operations and `displayParts`. A template so that the
// screens build without the hot-key layer; the composition root instantiates it with ShortcutManager.
template <class Manager>
class ShortcutManagerControl final : public ShortcutControl {
  public:
    explicit ShortcutManagerControl(Manager& manager) : manager_(manager) {}

    KeyCombination toggleShortcut() const override {
        return {manager_.currentShortcut.keyCode, manager_.currentShortcut.modifiers};
    }
    KeyCombination cancelShortcut() const override {
        return {manager_.cancelShortcut.keyCode, manager_.cancelShortcut.modifiers};
    }
    void setToggleShortcut(KeyCombination s) override {
        manager_.currentShortcut.keyCode = s.keyCode;
        manager_.currentShortcut.modifiers = s.modifiers;
    }
    void setCancelShortcut(KeyCombination s) override {
        manager_.cancelShortcut.keyCode = s.keyCode;
        manager_.cancelShortcut.modifiers = s.modifiers;
    }
    void saveShortcuts() override { manager_.saveShortcuts(); }
    void unregisterShortcuts() override { manager_.unregisterShortcuts(); }
    void registerShortcuts() override { manager_.registerShortcuts(); }
    void setSuspended(bool suspended) override { manager_.isSuspended = suspended; }
    std::vector<std::string> displayParts(uint16_t keyCode, uint64_t modifiers) const override {
        return Manager::displayParts(keyCode, modifiers);
    }
    std::optional<int> toggleRegistrationFailure() const override {
        return manager_.toggleRegistrationFailure();
    }
    std::optional<int> cancelRegistrationFailure() const override {
        return manager_.cancelRegistrationFailure();
    }

  private:
    Manager& manager_;
};

}  // namespace vocle
