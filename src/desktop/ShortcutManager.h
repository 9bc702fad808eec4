#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "desktop/Shortcut.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/events.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The toggle and cancel shortcuts: kept in the settings file, detected by a system hot key, a global key
// monitor (other applications) and a local one (our own windows), and turned into handler calls on the
// main queue. Main thread only.
class ShortcutManager {
  public:
    struct HotKeyId {
        uint32_t signature = 0;
        uint32_t id = 0;
    };
    static constexpr uint32_t kHotKeySignature = 0x4448544B;  // 'DHTK'

    // Loads the stored shortcuts and registers them.
    ShortcutManager(MainQueue& mainQueue, const FileStorageManager& storage, HotKeys& hotKeys,
                    KeyMonitor& keyMonitor, LocalKeyMonitor& localKeyMonitor);
    ~ShortcutManager();
    ShortcutManager(const ShortcutManager&) = delete;
    ShortcutManager& operator=(const ShortcutManager&) = delete;

    std::function<void()> toggleRecordingHandler = [] {};
    std::function<void()> cancelRecordingHandler = [] {};
    // While true no path triggers anything and every key passes through.
    bool isSuspended = false;

    const HotKeyId hotKeyID{kHotKeySignature, 1};
    const HotKeyId cancelHotKeyID{kHotKeySignature, 2};
    // Kept with the manager for compatibility; the shortcuts live in the settings file.
    const std::string defaultsKeyToggle = "vocle.toggleShortcut";
    const std::string defaultsKeyCancel = "vocle.cancelShortcut";

    // Replace, then saveShortcuts(), unregisterShortcuts(), registerShortcuts().
    Shortcut currentShortcut = Shortcut::defaultToggle();
    Shortcut cancelShortcut = Shortcut::defaultCancel();

    void loadShortcuts();
    void saveShortcuts();
    void unregisterShortcuts();
    void registerShortcuts();

    // What is registered now (for the screens and tests).
    bool hasGlobalMonitor() const { return eventMonitor_.isActive(); }
    bool hasLocalMonitor() const { return localEventMonitor_.isActive(); }
    std::optional<HotKeyHandle> toggleHotKeyRef() const { return toggleHotKeyRef_; }
    std::optional<HotKeyHandle> cancelHotKeyRef() const { return cancelHotKeyRef_; }

    // The window system's status for a shortcut it would not grant (10: another client holds it), or none
    // when it is registered. The monitors still catch the keys, but the desktop acts on them first.
    std::optional<int> toggleRegistrationFailure() const { return toggleFailure_; }
    std::optional<int> cancelRegistrationFailure() const { return cancelFailure_; }
    // After every registerShortcuts(), with the outcome readable above, and when a service that answers
    // later (the desktop portal) reports the outcome.
    Signal<> registrationChanged;

    // Whether pressing the cancel shortcut in any application reaches us. When false the indicator and the
    // tray menu are the way to cancel from elsewhere, and the Settings screen says so.
    bool cancelReachesAllApplications() const;

    // A bare cancel key (Escape) is claimed system-wide only while a recording runs, where the hot-key
    // service can do that without asking the user each time; the rest of the time it stays with the
    // other applications.
    void followRecording(Observable<bool>& isRecording);
    std::optional<HotKeyHandle> recordingCancelHotKeyRef() const { return recordingCancelRef_; }

    // Key-cap labels: "Ctrl" "Alt" "Shift" "Super" (in this order) for the modifiers present, then the key
    // name.
    static std::vector<std::string> displayParts(uint16_t keyCode, uint64_t modifiers);
    // "Return", "Tab", "Space", "Delete", "Esc", a letter or digit, else "Key".
    static std::string keyName(uint16_t keyCode);

  private:
    void handleHotKey(uint32_t id);
    void handleStatus(HotKeyHandle handle, int status);
    void updateRecordingCancel();
    void handleGlobalKey(const KeyEvent& event);
    bool handleLocalKey(const KeyEvent& event);

    MainQueue& mainQueue_;
    const FileStorageManager& storage_;
    HotKeys& hotKeys_;
    KeyMonitor& keyMonitor_;
    LocalKeyMonitor& localKeyMonitor_;

    Subscription eventMonitor_;
    Subscription localEventMonitor_;
    std::optional<HotKeyHandle> toggleHotKeyRef_;
    std::optional<HotKeyHandle> cancelHotKeyRef_;
    std::optional<int> toggleFailure_;
    std::optional<int> cancelFailure_;
    bool carbonEventHandler_ = false;
    Subscription statusObserver_;
    Subscription recordingObserver_;
    bool recording_ = false;
    std::optional<HotKeyHandle> recordingCancelRef_;
    // The service cannot claim the bare cancel key for a recording; decided once, kept for the run.
    bool recordingCancelUnavailable_ = false;
    OwnerToken owner_;
};

}  // namespace vocle
