#include "platform/portal/RemoteDesktopKeys.h"

#include "foundation/Log.h"

namespace vocle::portal {

RemoteDesktopKeys::RemoteDesktopKeys(RemoteDesktopPortal& portal, KeysymLookup keysymFor)
    : portal_(portal), keysymFor_(std::move(keysymFor)) {}

void RemoteDesktopKeys::postKey(uint16_t keyCode, bool down) {
    const auto keysym = keysymFor_ ? keysymFor_(keyCode) : std::nullopt;
    if (!keysym) {
        log("⚠️ Remote input: no key symbol for key code ", keyCode);
        return;
    }
    portal_.sendKeysym(static_cast<uint32_t>(*keysym), down);
}

}  // namespace vocle::portal
