#include "desktop/ShortcutConflictNotice.h"

#include "desktop/KeyCaps.h"
#include "desktop/ShortcutManager.h"

namespace vocle {

ShortcutConflictNotice::ShortcutConflictNotice(ShortcutManager& shortcuts,
                                               DesktopNotifications& notifications,
                                               std::function<void(bool)> choose)
    : shortcuts_(shortcuts), notifications_(notifications), choose_(std::move(choose)) {
    subscription_ = shortcuts_.registrationChanged.subscribe([this] { check(); });
    check();  // the manager registered once already while it was built
}

std::string ShortcutConflictNotice::warningText(const std::vector<std::string>& parts, int status) {
    const std::string keys = joinKeyCaps(parts);
    if (status == kHotKeyBusy)
        return keys + " is already used by your desktop or another application. Choose another shortcut.";
    if (status == kHotKeyRefused)
        return "Your desktop did not allow " + keys +
               " as a shortcut for Vocle. Choose another shortcut, or allow it in your desktop's keyboard "
               "settings.";
    return keys + " could not be set up as a system-wide shortcut. Choose another shortcut.";
}

void ShortcutConflictNotice::check() {
    if (auto status = shortcuts_.toggleRegistrationFailure()) {
        if (announcedToggle_ != shortcuts_.currentShortcut)
            announce(shortcuts_.currentShortcut, *status, true);
    } else {
        announcedToggle_.reset();
    }
    if (auto status = shortcuts_.cancelRegistrationFailure()) {
        if (announcedCancel_ != shortcuts_.cancelShortcut)
            announce(shortcuts_.cancelShortcut, *status, false);
    } else {
        announcedCancel_.reset();
    }
}

void ShortcutConflictNotice::announce(const Shortcut& shortcut, int status, bool toggle) {
    (toggle ? announcedToggle_ : announcedCancel_) = shortcut;
    const auto parts = ShortcutManager::displayParts(shortcut.keyCode, shortcut.modifiers);
    DesktopNotice notice;
    notice.title = std::string(toggle ? "Dictation shortcut " : "Cancel shortcut ") + joinKeyCaps(parts) +
                   (status == kHotKeyBusy ? " is taken" : " is unavailable");
    notice.body = warningText(parts, status);
    notice.actions = {kChooseAction};
    // The user may answer long after; a notice outliving this object does nothing.
    notifications_.notify(notice, owner_.guard([this, toggle](int action) {
        if (action == 0 && choose_) choose_(toggle);
    }));
}

}  // namespace vocle
