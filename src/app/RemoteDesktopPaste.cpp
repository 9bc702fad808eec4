#include "app/RemoteDesktopPaste.h"

#include "platform/x11/KeysymTable.h"

namespace vocle::app {

RemoteDesktopPaste::RemoteDesktopPaste(MainQueue& main, DataFolder folder, const Clock& clock,
                                       PasteChain& chain)
    : store_(std::move(folder), clock),
      bus_(main),
      portal_(bus_, {[this] { return store_.load(); },
                     [this](const std::optional<std::string>& token) { store_.save(token); }}),
      keys_(portal_, [](uint16_t keyCode) { return x11::keysymForMacKeyCode(keyCode); }) {
    chain.setRemoteDesktop(&keys_, &portal_);
    portal_.resumeKeptGrant();
}

}  // namespace vocle::app
