#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/events.h"
#include "platform/portal/RemoteDesktopPortal.h"

namespace vocle::portal {

// Keys through the RemoteDesktop portal's keyboard (NotifyKeyboardKeysym): the desktop turns each keysym
// into a key of the user's own layout, so Ctrl+V is Ctrl+V on any layout. Keys go out only with a grant.
class RemoteDesktopKeys final : public SyntheticKeys {
  public:
    // Mac key code -> X keysym; the X11 layer's table.
    using KeysymLookup = std::function<std::optional<unsigned long>(uint16_t keyCode)>;

    RemoteDesktopKeys(RemoteDesktopPortal& portal, KeysymLookup keysymFor);

    void postKey(uint16_t keyCode, bool down) override;
    // The portal cannot read the keyboard: the paste chain asks XWayland where it can.
    uint64_t heldModifiers() override { return 0; }
    // Keys the user holds are on another device of the seat; ours cannot release them.
    void releaseHeldModifiers() override {}
    std::optional<std::string> focusedWindowClass() override { return std::nullopt; }
    bool canDeliver() override { return portal_.state() == RemoteInputState::granted; }
    // Our keys travel through the portal service, the clipboard through the compositor (on GNOME through
    // XWayland, which mutter bridges a moment later): a Ctrl+V that comes first pastes the old clipboard.
    static constexpr Seconds kClipboardSettle{0.1};
    Seconds clipboardSettleTime() override { return kClipboardSettle; }

  private:
    RemoteDesktopPortal& portal_;
    KeysymLookup keysymFor_;
};

}  // namespace vocle::portal
