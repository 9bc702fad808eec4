#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "foundation/Signal.h"

namespace vocle {

// Keys and modifiers are named with macOS virtual key codes (ANSI numbering: 0 = A, 49 = Space,
// 53 = Escape) and macOS event modifier bits, so that stored shortcuts stay compatible. Each platform
// maps them to its own key symbols; on X11 Option is Alt, Command is Super and Control is Ctrl.
inline constexpr uint64_t kModifierCapsLock = 0x10000;
inline constexpr uint64_t kModifierShift = 0x20000;
inline constexpr uint64_t kModifierControl = 0x40000;
inline constexpr uint64_t kModifierOption = 0x80000;
inline constexpr uint64_t kModifierCommand = 0x100000;
// The four modifiers a shortcut may carry; everything else (locks, keypad, device bits) is masked off.
inline constexpr uint64_t kShortcutModifierMask = 0x1E0000;

namespace keycode {
inline constexpr uint16_t kA = 0;
inline constexpr uint16_t kV = 9;
inline constexpr uint16_t kReturn = 36;
inline constexpr uint16_t kTab = 48;
inline constexpr uint16_t kSpace = 49;
inline constexpr uint16_t kDelete = 51;
inline constexpr uint16_t kEscape = 53;
inline constexpr uint16_t kCommand = 55;
inline constexpr uint16_t kShift = 56;
inline constexpr uint16_t kCapsLock = 57;
inline constexpr uint16_t kOption = 58;
inline constexpr uint16_t kControl = 59;
}  // namespace keycode

enum class KeyEventType { keyDown, keyUp, flagsChanged };

// One key event as the shortcut logic sees it. `modifierFlags` holds every modifier bit the platform
// knows (Caps Lock included); consumers mask it themselves.
struct KeyEvent {
    KeyEventType type = KeyEventType::keyDown;
    uint16_t keyCode = 0;
    uint64_t modifierFlags = 0;

    friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

// Which event types a monitor wants; the values are the macOS event-mask bits.
inline constexpr uint32_t kKeyDownMask = 0x400;
inline constexpr uint32_t kFlagsChangedMask = 0x1000;

// Status codes of hot-key operations. 0 is success; positive values are the window system's own error
// codes (on X11 the protocol error, e.g. 10 BadAccess when another client holds the combination).
inline constexpr int kHotKeyOk = 0;
inline constexpr int kHotKeyBusy = 10;        // another client holds the combination (X11 BadAccess)
inline constexpr int kHotKeyNoDisplay = -1;   // the window system cannot be reached
inline constexpr int kHotKeyUnknownKey = -2;  // the key has no symbol on this keyboard
inline constexpr int kHotKeyNoHandler = -3;   // registered before a handler was installed
inline constexpr int kHotKeyRefused = -4;     // the desktop or the user declined the binding
inline constexpr int kHotKeyNeedsConsent = -5;  // the desktop would ask the user at every binding

using HotKeyHandle = uint64_t;

struct HotKeyRegistration {
    std::optional<HotKeyHandle> handle;  // present on success
    int status = kHotKeyOk;
    // Accepted, but the outcome comes later through HotKeys::observeStatus (a desktop portal).
    bool pending = false;
};

// System-wide key combinations that are delivered to us instead of the application in front.
class HotKeys {
  public:
    virtual ~HotKeys() = default;

    // Called with the id given at registration, on the main queue, once per press.
    using Handler = std::function<void(uint32_t id)>;

    // Connects the handler to the window system; returns kHotKeyOk or a status. Replaces any earlier one.
    virtual int installHandler(Handler handler) = 0;
    virtual void removeHandler() = 0;

    // Claims keyCode + modifiers (Shortcut bits only; lock keys never matter) for the id.
    virtual HotKeyRegistration registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) = 0;
    virtual void unregisterHotKey(HotKeyHandle handle) = 0;

    // For a key other applications need the rest of the time (a bare Escape), held only while it is
    // unregistered again soon. Only where the desktop grants it without asking each time; none where
    // the implementation cannot (the caller keeps to observing the key).
    virtual std::optional<HotKeyRegistration> registerTransientHotKey(uint16_t, uint64_t, uint32_t) {
        return std::nullopt;
    }
    virtual bool supportsTransientHotKeys() const { return false; }

    // Services that answer later (a desktop portal) report a registration's final status here, on the
    // main queue: kHotKeyOk once bound, else the status it failed with. Immediate ones never call it.
    using StatusHandler = std::function<void(HotKeyHandle handle, int status)>;
    [[nodiscard]] virtual Subscription observeStatus(StatusHandler) { return {}; }
};

// Observes key presses that go to other applications. It never consumes them: the focused application
// still receives every key. The handler runs on the main queue.
class KeyMonitor {
  public:
    virtual ~KeyMonitor() = default;
    using Handler = std::function<void(const KeyEvent&)>;
    [[nodiscard]] virtual Subscription addGlobalMonitor(Handler handler) = 0;
    // False where it sees only some windows (an X server under a Wayland compositor sees only its own).
    virtual bool observesAllApplications() const { return true; }
};

// Sees key events aimed at our own windows before they reach a widget. The handler returns true to
// consume the event (the widget never sees it). Called synchronously on the main thread, in the order
// the monitors were added, until one consumes.
class LocalKeyMonitor {
  public:
    virtual ~LocalKeyMonitor() = default;
    using Handler = std::function<bool(const KeyEvent&)>;
    // `mask`: kKeyDownMask and/or kFlagsChangedMask.
    [[nodiscard]] virtual Subscription addLocalMonitor(uint32_t mask, Handler handler) = 0;
};

// Synthetic keyboard input into whatever window has the focus.
class SyntheticKeys {
  public:
    virtual ~SyntheticKeys() = default;

    // Presses (down = true) or releases one key, as if typed on the keyboard.
    virtual void postKey(uint16_t keyCode, bool down) = 0;
    // Shortcut modifier bits of the modifier keys the user physically holds right now.
    virtual uint64_t heldModifiers() = 0;
    // Sends a release for every modifier key still held, so none of them leaks into synthetic input.
    virtual void releaseHeldModifiers() = 0;
    // Window class of the window that will receive the keys (X11 WM_CLASS class, e.g. "XTerm"), when
    // one is known.
    virtual std::optional<std::string> focusedWindowClass() = 0;
    // Whether keys sent now can reach the focused window at all. Asked once before each paste; when it
    // is false the paste leaves the text on the clipboard for the user.
    virtual bool canDeliver() { return true; }
    // Whether a key that is no modifier (the shortcut's own key) is still down. While it is, the keyboard
    // can still be grabbed by whoever bound the shortcut, and keys sent now would go there.
    virtual bool nonModifierKeyHeld() { return false; }
    // How long after the clipboard is written the paste chord waits, where the keys take another road than
    // the clipboard and could reach the window before the new clipboard does.
    virtual Seconds clipboardSettleTime() { return Seconds(0); }
    // While canDeliver() is false: whether it may soon turn true, because the desktop is asking the user
    // whether we may send keys. The paste then waits for the answer instead of giving up at once.
    virtual bool deliveryPending() { return false; }
};

// The system clipboard, plain text only. We stay the owner after writing, so the text can be pasted
// after the window that was in front has gone.
class Pasteboard {
  public:
    virtual ~Pasteboard() = default;
    virtual void clearContents() = 0;
    virtual void setString(const std::string& text) = 0;
    virtual std::optional<std::string> string() const = 0;
};

}  // namespace vocle
