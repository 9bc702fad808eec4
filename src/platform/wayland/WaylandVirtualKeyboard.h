#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/wayland/VirtualKeyboardKeys.h"

struct zwp_virtual_keyboard_manager_v1;
struct zwp_virtual_keyboard_v1;

namespace vocle::wayland {

class WaylandConnection;

// A virtual keyboard on the connection's seat (zwp_virtual_keyboard_manager_v1).
class WaylandVirtualKeyboard final : public VirtualKeyboardSink {
  public:
    // Null when the compositor does not offer the protocol or there is no seat.
    static std::unique_ptr<WaylandVirtualKeyboard> create(WaylandConnection& connection);
    ~WaylandVirtualKeyboard() override;

    void keymap(const std::string& xkbText) override;
    void key(uint32_t evdevCode, bool down) override;
    void modifiers(uint32_t depressed) override;

  private:
    WaylandVirtualKeyboard(WaylandConnection& connection, zwp_virtual_keyboard_manager_v1* manager,
                           zwp_virtual_keyboard_v1* keyboard);
    uint32_t timestamp() const;

    WaylandConnection& connection_;
    zwp_virtual_keyboard_manager_v1* manager_;
    zwp_virtual_keyboard_v1* keyboard_;
};

}  // namespace vocle::wayland
