#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/custom_keybindings.h"

namespace vocle::testing {

// The desktop's keybinding list as a value: `entry` is ours, `failWith` makes the next writes fail.
class FakeCustomKeybindings final : public CustomKeybindings {
  public:
    std::optional<std::string> missing;
    std::optional<std::string> failWith;
    std::optional<DesktopKeybinding> entry;
    std::vector<DesktopKeybinding> writes;

    std::optional<std::string> unavailableReason() const override { return missing; }
    std::optional<DesktopKeybinding> find() const override { return missing ? std::nullopt : entry; }
    std::optional<std::string> write(const DesktopKeybinding& binding) override {
        if (missing) return missing;
        if (failWith) return failWith;
        writes.push_back(binding);
        entry = binding;
        return std::nullopt;
    }
};

}  // namespace vocle::testing
