#pragma once

#include <memory>

#include "desktop/PasteChain.h"
#include "foundation/MainQueue.h"
#include "platform/portal/LibdbusPortalBus.h"
#include "platform/portal/RemoteDesktopKeys.h"
#include "platform/portal/RemoteDesktopPortal.h"
#include "storage/RemoteInputGrantStore.h"

namespace vocle::app {

// Pastes through the RemoteDesktop portal (GNOME, KDE Plasma): a bus connection of its own, the keyboard
// grant with its token kept in the data folder, and the keys, joined to the paste chain. A kept grant is
// taken back at once; otherwise the desktop asks at the first paste that needs it, or when the user
// enables remote input.
class RemoteDesktopPaste {
  public:
    RemoteDesktopPaste(MainQueue& main, DataFolder folder, const Clock& clock, PasteChain& chain);

    RemoteInput& grant() { return portal_; }

  private:
    RemoteInputGrantStore store_;
    portal::LibdbusPortalBus bus_;
    portal::RemoteDesktopPortal portal_;
    portal::RemoteDesktopKeys keys_;
};

}  // namespace vocle::app
