#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/events.h"

namespace vocle::wayland {

// What a virtual keyboard on the compositor accepts; WaylandVirtualKeyboard speaks it on the wire.
class VirtualKeyboardSink {
  public:
    virtual ~VirtualKeyboardSink() = default;
    virtual void keymap(const std::string& xkbText) = 0;
    virtual void key(uint32_t evdevCode, bool down) = 0;
    virtual void modifiers(uint32_t depressed) = 0;
};

// Synthetic keys through a virtual keyboard: uploads VirtualKeymap once, sends each key with the
// modifier state it leaves behind. The virtual keyboard's modifiers are its own, so keys the user
// still holds on the real keyboard do not mix into ours: heldModifiers() therefore reports none.
// The focused window's class is the focused toplevel's app id, asked of `focusedAppId`.
class VirtualKeyboardKeys final : public SyntheticKeys {
  public:
    VirtualKeyboardKeys(VirtualKeyboardSink& sink, std::function<std::optional<std::string>()> focusedAppId);

    void postKey(uint16_t keyCode, bool down) override;
    uint64_t heldModifiers() override { return 0; }
    void releaseHeldModifiers() override;
    std::optional<std::string> focusedWindowClass() override;

  private:
    VirtualKeyboardSink& sink_;
    std::function<std::optional<std::string>()> focusedAppId_;
    uint32_t depressed_ = 0;
};

}  // namespace vocle::wayland
