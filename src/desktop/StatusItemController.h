#pragma once

#include <functional>
#include <string>
#include <vector>

#include "foundation/Signal.h"

namespace vocle {

// The tray icon's menu as data: titles, order, enabling and the icon state. A tray widget draws it and
// calls trigger() with the chosen entry. Main queue only.
class StatusItemController {
public:
    enum class Action {
        toggleRecording,
        cancelRecording,
        retryFailedDictations,
        showPermissions,
        checkForUpdates,
        openMainWindow,
        signOut,
        quit
    };

    struct Entry {
        bool separator = false;
        Action action = Action::toggleRecording;
        std::string title;
        std::string shortcutText;  // shown after the title, in the secondary colour; never a key equivalent
        bool enabled = true;
    };

    // What the menu acts on. Every hook may be empty (a vanished state makes its entries no-ops).
    struct Hooks {
        std::function<void()> toggleRecording;
        std::function<void()> cancelRecording;
        std::function<void()> retryFailedDictations;
        std::function<void()> signOut;
        std::function<void()> showPermissions;
        std::function<void()> checkForUpdates;
        std::function<void()> openMainWindow;
        std::function<void()> quit;
        // The current shortcuts as shown on key caps ("Ctrl+Alt+Space", "Esc").
        std::function<std::string()> toggleShortcutText;
        std::function<std::string()> cancelShortcutText;
    };

    static constexpr const char* kTooltip = "Vocle";

    StatusItemController(Observable<bool>& isRecording, Hooks hooks);

    // Subscribes to the recording flag (idempotent updates; binding twice is harmless).
    void bind();
    // Re-reads the shortcut texts (after the user changed a shortcut).
    void refreshShortcuts();

    const std::vector<Entry>& menu() const { return menu_; }
    bool isRecording() const { return isRecording_; }
    // Fired after the menu or the icon state changed.
    Signal<> changed;

    // Kept dictations ready for another try: shown on the icon and offered as a menu entry while non-zero.
    void setFailedDictations(size_t count);
    size_t failedDictations() const { return failedDictations_; }
    // "Retry 2 failed dictations" (singular for one).
    static std::string retryTitle(size_t count);
    // "Vocle", with the kept dictations when there are some.
    std::string tooltip() const;

    void trigger(Action action);
    void updateForRecording(bool isRecording);

private:
    void rebuild();

    Observable<bool>& recordingFlag_;
    Hooks hooks_;
    bool isRecording_ = false;
    size_t failedDictations_ = 0;
    std::vector<Entry> menu_;
    std::vector<Subscription> cancellables_;
};

}  // namespace vocle
