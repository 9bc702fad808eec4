#include "platform/wayland/VirtualKeyboardKeys.h"

#include "foundation/Log.h"
#include "platform/wayland/VirtualKeymap.h"

namespace vocle::wayland {

VirtualKeyboardKeys::VirtualKeyboardKeys(VirtualKeyboardSink& sink,
                                         std::function<std::optional<std::string>()> focusedAppId)
    : sink_(sink), focusedAppId_(std::move(focusedAppId)) {
    sink_.keymap(VirtualKeymap::text());
}

void VirtualKeyboardKeys::postKey(uint16_t keyCode, bool down) {
    const auto code = VirtualKeymap::evdevCode(keyCode);
    if (!code) {
        log("⚠️ Virtual keyboard: key ", keyCode, " is not on its keymap");
        return;
    }
    sink_.key(*code, down);
    if (const uint32_t mask = VirtualKeymap::modifierMask(keyCode)) {
        depressed_ = down ? (depressed_ | mask) : (depressed_ & ~mask);
        sink_.modifiers(depressed_);
    }
}

void VirtualKeyboardKeys::releaseHeldModifiers() {
    // Our own keys are always released by the sequence that pressed them; a leftover would be a bug
    // upstream, and is cleared rather than left to stick.
    if (depressed_ == 0) return;
    for (uint16_t key : {keycode::kShift, keycode::kControl})
        if (depressed_ & VirtualKeymap::modifierMask(key)) postKey(key, false);
}

std::optional<std::string> VirtualKeyboardKeys::focusedWindowClass() {
    return focusedAppId_ ? focusedAppId_() : std::nullopt;
}

}  // namespace vocle::wayland
