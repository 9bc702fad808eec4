#pragma once

#include <functional>

#include "foundation/Signal.h"

namespace vocle {

// Where keys sent into other applications need the desktop's consent (the RemoteDesktop portal of GNOME
// and KDE Plasma), this is that grant. The user consents once; the desktop may keep the grant, so a later
// start asks nothing.
enum class RemoteInputState {
    notGranted,  // never asked, or a kept grant the desktop no longer accepts
    asking,      // the desktop's consent dialog is open
    granted,
    refused,  // the user declined, or the desktop ended the grant
};

class RemoteInput {
  public:
    virtual ~RemoteInput() = default;

    virtual RemoteInputState state() const = 0;
    // Asks for the grant: the desktop shows its consent dialog unless it accepts a kept one. `done` runs
    // on the main queue with the outcome; a request while one is open joins it.
    virtual void request(std::function<void(RemoteInputState)> done = {}) = 0;
    // Every change of state, on the main queue.
    [[nodiscard]] virtual Subscription observeState(std::function<void(RemoteInputState)> handler) = 0;
};

}  // namespace vocle
