#include "desktop/KeyCaps.h"

#include "platform/events.h"

namespace vocle {

std::vector<std::string> modifierKeyCaps(uint64_t modifiers) {
    std::vector<std::string> parts;
    if (modifiers & kModifierControl) parts.emplace_back("Ctrl");
    if (modifiers & kModifierOption) parts.emplace_back("Alt");
    if (modifiers & kModifierShift) parts.emplace_back("Shift");
    if (modifiers & kModifierCommand) parts.emplace_back("Super");
    return parts;
}

std::string joinKeyCaps(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts) {
        if (!text.empty()) text += '+';
        text += part;
    }
    return text;
}

}  // namespace vocle
