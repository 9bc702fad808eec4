#pragma once

#include <memory>
#include <string>
#include <vector>

#include "foundation/MainQueue.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/wayland/VirtualKeyboardKeys.h"
#include "platform/wayland/WaylandClipboard.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandVirtualKeyboard.h"
#include "platform/wayland/WaylandWorkspace.h"

namespace vocle::wayland {

// The compositor services of one Wayland session on our own connection: each member is null when the
// compositor does not offer its protocol. Teardown stops the reading thread before any object goes.
class WaylandDesktop {
  public:
    // Null when no compositor answers.
    static std::unique_ptr<WaylandDesktop> open(MainQueue& main,
                                                std::shared_ptr<const DesktopEntryIndex> index,
                                                const std::string& displayName = {});
    ~WaylandDesktop();

    WaylandConnection& connection() { return *connection_; }
    VirtualKeyboardKeys* virtualKeyboard() { return keys_.get(); }
    WaylandClipboard* clipboard() { return clipboard_.get(); }
    WaylandWorkspace* workspace() { return workspace_.get(); }

    // What the session offers, for the start-up line: "compositor sway; virtual keyboard, data control,
    // foreign toplevel".
    std::string summary() const;

  private:
    explicit WaylandDesktop(std::unique_ptr<WaylandConnection> connection);

    std::unique_ptr<WaylandConnection> connection_;
    std::unique_ptr<WaylandWorkspace> workspace_;
    std::unique_ptr<WaylandClipboard> clipboard_;
    std::unique_ptr<WaylandVirtualKeyboard> keyboard_;
    std::unique_ptr<VirtualKeyboardKeys> keys_;
};

// The protocols we use among the offered global interfaces, by their plain names.
std::vector<std::string> usableProtocols(const std::vector<WaylandGlobal>& globals);

}  // namespace vocle::wayland
