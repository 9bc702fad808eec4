#pragma once

#include <functional>
#include <string>

#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/portal/PortalBus.h"

namespace vocle::portal {

// An open portal session (org.freedesktop.portal.Session). Destroying it closes it, so a quitting
// process leaves no grant running in the desktop; the desktop may also end it (Closed), which is
// reported once.
class PortalSession {
  public:
    PortalSession(PortalBus& bus, std::string handle);
    ~PortalSession();
    PortalSession(const PortalSession&) = delete;
    PortalSession& operator=(const PortalSession&) = delete;

    const std::string& handle() const { return handle_; }
    bool isOpen() const { return open_; }
    // Asks the desktop to end the session; no Closed report follows. `done` runs once the desktop has
    // answered (or the call failed), e.g. before the same session name is used again.
    void close(std::function<void()> done = {});
    // The desktop ended the session (revoked, or its service stopped).
    void onClosed(std::function<void()> handler) { onClosed_ = std::move(handler); }

  private:
    PortalBus& bus_;
    std::string handle_;
    bool open_ = true;
    std::function<void()> onClosed_;
    Subscription closed_;
    OwnerToken owner_;
};

}  // namespace vocle::portal
