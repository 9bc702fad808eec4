#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Signal.h"
#include "platform/capture.h"
#include "platform/custom_keybindings.h"
#include "platform/events.h"
#include "screens/AutostartEntry.h"
#include "screens/CompositorBinding.h"
#include "screens/ShortcutControl.h"
#include "screens/ShortcutPickerViewModel.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The settings screen: shortcuts (through the pickers), the input device, sound effects and start at
// login. Every change is written to the settings file at once.
class SettingsViewModel {
  public:
    SettingsViewModel(const FileStorageManager& files, Capture& capture, ShortcutControl& shortcuts,
                      LocalKeyMonitor& keyMonitor, AutostartEntry& autostart);
    SettingsViewModel(const SettingsViewModel&) = delete;
    SettingsViewModel& operator=(const SettingsViewModel&) = delete;

    static constexpr const char* kLoadingText = "Loading settings...";
    static constexpr const char* kNotConnectedSuffix = " (not connected)";

    Observable<bool> isLoading{true};
    Observable<std::string> inputDevice{""};
    Observable<bool> useSystemDefault{true};
    Observable<bool> enableSoundEffects{true};
    Observable<double> volume{0.6};
    Observable<std::vector<std::string>> availableDevices;
    // Why the list is empty: no sound server, or no input device on it (read with the devices).
    Observable<InputAvailability> inputAvailability{InputAvailability::available};
    static constexpr const char* kNoSoundServerText =
        "No sound server was found, so Vocle cannot hear anything. Start PipeWire or PulseAudio, then come "
        "back to this screen.";
    static constexpr const char* kNoInputDeviceText =
        "No microphone was found. Connect one or turn on an input device in your sound settings.";
    Observable<bool> showingShortcutPicker{false};
    Observable<bool> showingCancelPicker{false};
    Observable<bool> startAtLogin{false};
    Observable<bool> showLivePreview{true};
    Observable<std::optional<std::string>> errorMessage;
    Signal<> changed;
    // The screen is to open a picker (true: toggle), asked for from a notice about a refused shortcut.
    Signal<bool> openPicker;
    // Where such a request waits (returns and clears it); set by the composition root.
    std::function<std::optional<bool>()> takePickerRequest;
    Subscription pickerRequests;

    // The sheets' models, for as long as a sheet is shown.
    std::unique_ptr<ShortcutPickerViewModel> makeShortcutPicker() {
        return std::make_unique<ShortcutPickerViewModel>(shortcuts_, keyMonitor_);
    }
    std::unique_ptr<CancelPickerViewModel> makeCancelPicker() {
        return std::make_unique<CancelPickerViewModel>(shortcuts_, keyMonitor_);
    }
    const std::map<std::string, std::string>& deviceNameToUID() const { return deviceNameToUID_; }
    // The chosen device is stored but no longer among the sources.
    bool inputDeviceDisconnected() const;
    std::vector<std::string> toggleShortcutParts() const;
    std::vector<std::string> cancelShortcutParts() const;
    // A warning for a shortcut the desktop would not give us; none while it works.
    std::optional<std::string> toggleShortcutWarning() const;
    std::optional<std::string> cancelShortcutWarning() const;

    using ShortcutPath = vocle::ShortcutPath;

    // A compositor that binds keys in its own configuration (sway, Hyprland, river): the screen shows the
    // lines that run vocle-cli for the stored shortcuts, and copies them. On desktops that run the
    // toggle through vocle-cli otherwise (`path`), the command to bind, and on GNOME a button that adds it.
    struct CompositorShortcuts {
        CompositorFamily family = CompositorFamily::other;
        // The XKB keysym name of a stored key code ("space", "v"); none for keys without one.
        std::function<std::optional<std::string>(uint16_t keyCode)> keysymName;
        Pasteboard* pasteboard = nullptr;
        ShortcutPath path = ShortcutPath::own;
        // vocle-cli, by its absolute path where known.
        std::string cliProgram = "vocle-cli";
        // GNOME's custom keyboard shortcuts; used on the gnomeKeybinding path.
        CustomKeybindings* keybindings = nullptr;
        // The cancel key cannot reach us from other applications: the tray menu is the way to cancel there.
        bool cancelFromTrayOnly = false;
    };
    void setCompositorShortcuts(CompositorShortcuts compositor) { compositor_ = std::move(compositor); }
    // One line for the toggle and one for the cancel shortcut; empty when the desktop needs none.
    std::vector<std::string> compositorBindingLines() const;
    std::string compositorBindingPlace() const { return compositorConfigurationPlace(compositor_.family); }
    void copyCompositorBindings();

    static constexpr const char* kAddToGnomeTitle = "Add to GNOME keyboard shortcuts";
    static constexpr const char* kGnomeKeybindingName = "Vocle: start or stop dictation";
    static constexpr const char* kCancelFromTrayText =
        "On this desktop the cancel key reaches Vocle only while its own windows have the focus. Cancel a "
        "recording from elsewhere with \"Cancel Recording\" in the tray menu.";
    // The command a desktop's keyboard settings run for the toggle shortcut; empty where none is needed.
    std::string handBindCommand() const;
    // The text above that command.
    std::string handBindNote() const;
    // On GNOME the command is the way out while our entry is not in place.
    bool showsHandBindCommand() const {
        return compositor_.path == ShortcutPath::byHand ||
               (offersGnomeKeybinding() && !gnomeKeybindingAdded.get());
    }
    void copyHandBindCommand();
    bool offersGnomeKeybinding() const { return compositor_.path == ShortcutPath::gnomeKeybinding; }
    bool showsCancelFromTrayNote() const {
        // A compositor binding (wlroots) can run `vocle-cli cancel`; its line is on the screen already.
        return compositor_.cancelFromTrayOnly && compositor_.path != ShortcutPath::compositor &&
               compositor_.path != ShortcutPath::own;
    }
    // The entry GNOME's keyboard shortcuts are to hold for the current toggle shortcut; none for a key
    // without a name there.
    std::optional<DesktopKeybinding> wantedGnomeKeybinding() const;
    // Writes it (adds ours, or updates it in place) and says how that went in gnomeKeybindingStatus.
    void addToGnomeKeyboardShortcuts();
    // What GNOME's shortcuts hold for Vocle now, in a sentence; `gnomeKeybindingProblem` when it failed.
    Observable<std::string> gnomeKeybindingStatus{""};
    Observable<bool> gnomeKeybindingProblem{false};
    // GNOME's entry runs the current toggle shortcut.
    Observable<bool> gnomeKeybindingAdded{false};

    // Reads the devices and the settings file (the screen was shown).
    void load();
    void refreshDevices();
    // Emits openPicker for a waiting request, if any.
    void checkPickerRequest();

    void setUseSystemDefault(bool on);
    void selectInputDevice(const std::string& name);
    void setEnableSoundEffects(bool on);
    void setVolume(double value);
    void setStartAtLogin(bool on);
    void setShowLivePreview(bool on);
    // The sheets suspend the global shortcuts while shown.
    void setShowingShortcutPicker(bool showing);
    void setShowingCancelPicker(bool showing);

  private:
    void save();
    // Reads GNOME's entry into the status; with `follow`, an entry of ours for an older shortcut is
    // rewritten to the current one.
    void checkGnomeKeybinding(bool follow);

    const FileStorageManager& files_;
    Capture& capture_;
    ShortcutControl& shortcuts_;
    LocalKeyMonitor& keyMonitor_;
    AutostartEntry& autostart_;
    std::map<std::string, std::string> deviceNameToUID_;
    CompositorShortcuts compositor_;
    KeyCombination toggleBeforePicker_;
};

}  // namespace vocle
