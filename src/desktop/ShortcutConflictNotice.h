#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "desktop/Shortcut.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/notifications.h"

namespace vocle {

class ShortcutManager;

// Tells the user, through the desktop's notification service, when a shortcut could not be had
// system-wide: the window manager or another application acts on the keys first, so pressing them
// would not reach Vocle. A notice never takes the focus from the window the user is in. Each refused
// combination is announced once, again only after it worked in between. Main queue.
class ShortcutConflictNotice {
  public:
    static constexpr const char* kChooseAction = "Choose Shortcut";

    // `choose` opens the picker for the toggle (true) or the cancel shortcut (false).
    ShortcutConflictNotice(ShortcutManager& shortcuts, DesktopNotifications& notifications,
                           std::function<void(bool toggle)> choose);

    // The line shown next to a shortcut that is not registered; `status` is the window system's.
    static std::string warningText(const std::vector<std::string>& parts, int status);

  private:
    void check();
    void announce(const Shortcut& shortcut, int status, bool toggle);

    ShortcutManager& shortcuts_;
    DesktopNotifications& notifications_;
    std::function<void(bool)> choose_;
    std::optional<Shortcut> announcedToggle_;
    std::optional<Shortcut> announcedCancel_;
    Subscription subscription_;
    OwnerToken owner_;
};

}  // namespace vocle
