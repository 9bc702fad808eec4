#pragma once

#include <cstdint>
#include <memory>

#include "foundation/MainQueue.h"
#include "platform/events.h"
#include "platform/portal/GlobalShortcutsPortal.h"
#include "platform/portal/LibdbusPortalBus.h"

namespace vocle::app {

// Global shortcuts on a Wayland desktop that offers the GlobalShortcuts portal (KDE Plasma, GNOME 48+,
// Hyprland): the portal alone serves them. The compositor acts on its shortcuts before any client sees the
// key, XWayland's windows included, so an X grab beside it would only add a second way in. The portal's
// sessions live on a bus connection of their own and end with it.
class PortalHotKeys {
  public:
    // None when the desktop's portal has no GlobalShortcuts interface (or no portal answers).
    static std::unique_ptr<PortalHotKeys> open(MainQueue& main);

    HotKeys& hotKeys() { return portal_; }
    uint32_t version() const { return version_; }

    PortalHotKeys(MainQueue& main, uint32_t version);

  private:
    uint32_t version_;
    portal::LibdbusPortalBus bus_;
    portal::GlobalShortcutsPortal portal_;
};

// The X server under a Wayland compositor sees key presses only while one of its own windows has the
// focus: the same monitor, saying so.
class XWaylandKeyMonitor final : public KeyMonitor {
  public:
    explicit XWaylandKeyMonitor(KeyMonitor& monitor) : monitor_(monitor) {}
    Subscription addGlobalMonitor(Handler handler) override {
        return monitor_.addGlobalMonitor(std::move(handler));
    }
    bool observesAllApplications() const override { return false; }

  private:
    KeyMonitor& monitor_;
};

}  // namespace vocle::app
