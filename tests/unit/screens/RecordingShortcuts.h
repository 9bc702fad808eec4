#pragma once

#include <map>
#include <string>
#include <vector>

#include "desktop/KeyCaps.h"
#include "screens/ShortcutControl.h"

namespace vocle::testing {

// Stands in for the shortcut registry at the screens' seam: remembers the calls in order.
class RecordingShortcuts final : public ShortcutControl {
  public:
    KeyCombination toggle{keys::kSpace, keys::kControl | keys::kOption};
    KeyCombination cancel{keys::kEscape, 0};
    bool suspended = false;
    std::vector<std::string> calls;

    KeyCombination toggleShortcut() const override { return toggle; }
    KeyCombination cancelShortcut() const override { return cancel; }
    void setToggleShortcut(KeyCombination s) override {
        toggle = s;
        calls.push_back("setToggle");
    }
    void setCancelShortcut(KeyCombination s) override {
        cancel = s;
        calls.push_back("setCancel");
    }
    void saveShortcuts() override { calls.push_back("save"); }
    void unregisterShortcuts() override { calls.push_back("unregister"); }
    void registerShortcuts() override { calls.push_back("register"); }
    void setSuspended(bool s) override {
        suspended = s;
        calls.push_back(s ? "suspend" : "resume");
    }
    std::optional<int> toggleFailure;
    std::optional<int> toggleRegistrationFailure() const override { return toggleFailure; }
    std::vector<std::string> displayParts(uint16_t keyCode, uint64_t modifiers) const override {
        static const std::map<uint16_t, std::string> names = {{0, "A"},   {12, "Q"},      {40, "K"},
                                                              {36, "Return"}, {49, "Space"}, {53, "Esc"}};
        std::vector<std::string> parts = modifierKeyCaps(modifiers);
        auto it = names.find(keyCode);
        parts.push_back(it == names.end() ? "Key" : it->second);
        return parts;
    }
};

}  // namespace vocle::testing
