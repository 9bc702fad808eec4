#pragma once

#include <memory>
#include <mutex>

#include "foundation/MainQueue.h"
#include "foundation/Signal.h"
#include "platform/linux/DesktopEntryIndex.h"
#include "platform/wayland/ToplevelTracker.h"
#include "platform/workspace.h"

struct zwlr_foreign_toplevel_manager_v1;

namespace vocle::wayland {

class WaylandConnection;

// The frontmost application on a compositor with wlr foreign-toplevel management: the activated
// toplevel's app id, named through DesktopEntryIndex as on X11. Events arrive on the connection's
// reader thread; activations are delivered on the main queue. Process ids are not part of the
// protocol and stay 0.
class WaylandWorkspace final : public Workspace {
  public:
    // Null when the compositor does not offer the protocol. Create before the connection starts reading.
    static std::unique_ptr<WaylandWorkspace> create(WaylandConnection& connection, MainQueue& main,
                                                    std::shared_ptr<const DesktopEntryIndex> index);
    ~WaylandWorkspace() override;

    std::optional<RunningApplication> frontmostApplication() const override;
    std::vector<RunningApplication> runningApplications() const override;
    Subscription observeActivations(ActivationHandler handler) override;

    // The focused toplevel's app id as the compositor gives it (the terminal rule's input).
    std::optional<std::string> focusedAppId() const;

    // An app id named through the index: its desktop-file id and name, else the app id itself.
    static RunningApplication resolve(const DesktopEntryIndex& index, const std::string& appId);

  private:
    struct Listeners;
    WaylandWorkspace(WaylandConnection& connection, MainQueue& main,
                     std::shared_ptr<const DesktopEntryIndex> index,
                     zwlr_foreign_toplevel_manager_v1* manager);

    WaylandConnection& connection_;
    MainQueue& main_;
    std::shared_ptr<const DesktopEntryIndex> index_;
    zwlr_foreign_toplevel_manager_v1* manager_;
    mutable std::mutex mutex_;
    ToplevelTracker tracker_;
    Signal<std::optional<RunningApplication>> activations_;
};

}  // namespace vocle::wayland
