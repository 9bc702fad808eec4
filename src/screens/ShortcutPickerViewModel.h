#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Signal.h"
#include "platform/events.h"
#include "screens/ShortcutControl.h"

namespace vocle {

// The toggle-shortcut sheet: a non-empty modifier combination plus one key. While capturing it holds two
// in-application key monitors (modifier changes and key-downs) that consume every key event, so nothing
// reaches a text field or the sheet's own Esc handling.
class ShortcutPickerViewModel {
  public:
    ShortcutPickerViewModel(ShortcutControl& shortcuts, LocalKeyMonitor& keyMonitor);
    ShortcutPickerViewModel(const ShortcutPickerViewModel&) = delete;
    ShortcutPickerViewModel& operator=(const ShortcutPickerViewModel&) = delete;

    static constexpr const char* kTitle = "Change Shortcut";
    static constexpr const char* kHint =
        "Hold one or more modifiers (Ctrl, Alt, Shift, Super) and press one key (e.g. Space, A–Z, 0–9). Esc "
        "cancels.";
    static constexpr const char* kCapturingMessage = "Press a shortcut… (Esc to cancel)";

    Observable<std::optional<uint16_t>> capturedKeyCode;
    Observable<uint64_t> capturedModifiers{0};
    Observable<uint64_t> previewModifiers{0};
    Observable<std::string> message{""};
    Observable<bool> isCapturing{false};
    // After any of the values above changed.
    Signal<> changed;
    // The sheet is to close; capture has already stopped.
    Signal<> dismissed;

    // Modifier symbols in the fixed order, then the captured key's name.
    std::vector<std::string> previewParts() const;
    bool canSave() const;

    void startCapturing();
    void restoreDefault();
    void cancel();
    void save();

  private:
    bool handleFlagsChanged(uint64_t flags);
    bool handleKeyDown(uint16_t keyCode, uint64_t flags);
    void apply(KeyCombination shortcut);
    // Removes the monitors, then tells the sheet to close.
    void close();

    ShortcutControl& shortcuts_;
    LocalKeyMonitor& keyMonitor_;
    Subscription eventMonitor_;
    Subscription flagsMonitor_;
};

// The cancel-shortcut sheet: one key, modifiers ignored. Escape is capturable here, so only "Close"
// dismisses without saving.
class CancelPickerViewModel {
  public:
    CancelPickerViewModel(ShortcutControl& shortcuts, LocalKeyMonitor& keyMonitor);
    CancelPickerViewModel(const CancelPickerViewModel&) = delete;
    CancelPickerViewModel& operator=(const CancelPickerViewModel&) = delete;

    static constexpr const char* kTitle = "Change Cancel Recording Shortcut";
    static constexpr const char* kInitialMessage =
        "Press one key (e.g. Esc, Space, A–Z, 0–9). Press Return to save.";

    Observable<std::optional<uint16_t>> capturedKeyCode;
    Observable<std::string> message{kInitialMessage};
    Observable<bool> isCapturing{false};
    Signal<> changed;
    Signal<> dismissed;

    std::vector<std::string> previewParts() const;
    bool canSave() const { return capturedKeyCode.get().has_value(); }

    void startCapturing();

    void restoreDefault();
    void close();
    void save();

  private:
    bool handleKeyDown(uint16_t keyCode);
    void apply(KeyCombination shortcut);
    void finish();

    ShortcutControl& shortcuts_;
    LocalKeyMonitor& keyMonitor_;
    Subscription eventMonitor_;
};

}  // namespace vocle
