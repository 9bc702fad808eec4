#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/events.h"
#include "platform/portal/PortalRequest.h"
#include "platform/portal/PortalSession.h"

namespace vocle::portal {

// An XKB keysym name ("space", "a", "Escape") for a Mac key code; none for keys without one.
using KeysymNamer = std::function<std::optional<std::string>(uint16_t keyCode)>;

// The trigger in the desktop shortcuts syntax: "CTRL+ALT+space" (CTRL, ALT, SHIFT, LOGO, then the
// keysym name). Command is LOGO. None when the key has no name.
std::optional<std::string> xdgTrigger(uint16_t keyCode, uint64_t modifiers, const KeysymNamer& namer);

// Hot keys through org.freedesktop.portal.GlobalShortcuts, for Wayland desktops whose compositor owns
// the keyboard. Each registration is a portal session of its own, named after the shortcut, so the
// desktop files our shortcuts under stable names (on Plasma the session token is the component name
// in System Settings). The shortcut's id carries its trigger: a desktop that remembers bindings keeps
// the key it stored for an id, so a new key needs a new id.
//
// Binding: the shortcuts go with CreateSession as well (Plasma 5.27 binds from there and nowhere else,
// and opens System Settings at every BindShortcuts); ListShortcuts then tells whether the desktop bound
// them already, and only if not does BindShortcuts ask the user. A transient registration never asks:
// where it would, it fails with kHotKeyNeedsConsent.
//
// registerHotKey answers at once with a handle; the outcome follows through observeStatus. Main queue.
class GlobalShortcutsPortal final : public HotKeys {
  public:
    static constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";

    struct ShortcutName {
        std::string id;           // "toggle": the session token is "vocle_toggle"
        std::string description;  // shown by the desktop next to the key
    };

    GlobalShortcutsPortal(PortalBus& bus, KeysymNamer namer, std::map<uint32_t, ShortcutName> names);

    // Whether the desktop itself stands behind an offered GlobalShortcuts interface. `currentDesktop` is
    // XDG_CURRENT_DESKTOP; `gnomeShellVersion` GNOME Shell's "ShellVersion" when it answers. GNOME has its
    // own implementation from 48 on; before that the portal forwards to any other backend installed (the
    // KDE one, say), which cannot bind keys without its own compositor.
    static bool desktopServes(const std::string& currentDesktop,
                              const std::optional<std::string>& gnomeShellVersion);
    // Closes every session: no binding outlives the app.
    ~GlobalShortcutsPortal() override;

    int installHandler(Handler handler) override;
    void removeHandler() override;
    HotKeyRegistration registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) override;
    void unregisterHotKey(HotKeyHandle handle) override;
    std::optional<HotKeyRegistration> registerTransientHotKey(uint16_t keyCode, uint64_t modifiers,
                                                              uint32_t id) override;
    bool supportsTransientHotKeys() const override { return true; }
    Subscription observeStatus(StatusHandler handler) override;

    // What the desktop says the key is ("Ctrl+Alt+Space"), once bound.
    std::optional<std::string> assignedTrigger(HotKeyHandle handle) const;
    size_t openSessionCount() const;

  private:
    struct Binding {
        uint32_t id = 0;
        std::string name;
        std::string shortcutId;  // "toggle_CTRL_ALT_space"
        std::string trigger;     // "CTRL+ALT+space"
        std::string description;
        bool transient = false;
        std::string openRequest;
        std::unique_ptr<PortalSession> session;
        std::optional<std::string> assigned;
        bool bound = false;
        bool failed = false;  // its session is gone, or never was
    };

    HotKeyRegistration add(uint16_t keyCode, uint64_t modifiers, uint32_t id, bool transient);
    void createSession(HotKeyHandle handle);
    // Ends a binding's session. The portal may handle calls out of order, so a session of the same name is
    // created only once the desktop has answered every Close for it.
    void endSession(Binding& binding);
    void closeAnswered(const std::string& token);
    void listShortcuts(HotKeyHandle handle);
    void bindShortcuts(HotKeyHandle handle);
    // Reads our shortcut from a "shortcuts" result; true when the desktop knows it.
    bool adopt(Binding& binding, const BusDict& results);
    void bound(HotKeyHandle handle);
    void fail(HotKeyHandle handle, int status, const std::string& why);
    void onActivated(const std::vector<BusValue>& args);
    BusValue shortcutList(const Binding& binding) const;
    Binding* find(HotKeyHandle handle);

    PortalBus& bus_;
    KeysymNamer namer_;
    std::map<uint32_t, ShortcutName> names_;
    PortalRequests requests_;
    std::map<HotKeyHandle, Binding> bindings_;
    std::map<std::string, int> closing_;  // token -> Close calls not yet answered
    std::map<std::string, std::vector<HotKeyHandle>> waitingForClose_;
    HotKeyHandle nextHandle_ = 1;
    std::shared_ptr<Handler> handler_;
    Signal<HotKeyHandle, int> status_;
    Subscription activated_;
    OwnerToken owner_;
};

}  // namespace vocle::portal
