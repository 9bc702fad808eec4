#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Signal.h"
#include "platform/capture.h"
#include "screens/AutostartEntry.h"
#include "screens/ShortcutControl.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The settings screen: shortcuts (through the pickers), the input device, sound effects and start at
// login. Every change is written to the settings file at once.
class SettingsViewModel {
  public:
    SettingsViewModel(const FileStorageManager& files, Capture& capture, ShortcutControl& shortcuts,
                      AutostartEntry& autostart);
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
    Observable<bool> showingShortcutPicker{false};
    Observable<bool> showingCancelPicker{false};
    Observable<bool> startAtLogin{false};
    Observable<std::optional<std::string>> errorMessage;
    Signal<> changed;

    // The registry the shortcut pickers apply their changes to.
    ShortcutControl& shortcuts() { return shortcuts_; }
    const std::map<std::string, std::string>& deviceNameToUID() const { return deviceNameToUID_; }
    // The chosen device is stored but no longer among the sources.
    bool inputDeviceDisconnected() const;
    std::vector<std::string> toggleShortcutParts() const;
    std::vector<std::string> cancelShortcutParts() const;

    // Reads the devices and the settings file (the screen was shown).
    void load();
    void refreshDevices();

    void setUseSystemDefault(bool on);
    void selectInputDevice(const std::string& name);
    void setEnableSoundEffects(bool on);
    void setVolume(double value);
    void setStartAtLogin(bool on);
    // The sheets suspend the global shortcuts while shown.
    void setShowingShortcutPicker(bool showing);
    void setShowingCancelPicker(bool showing);

  private:
    void save();

    const FileStorageManager& files_;
    Capture& capture_;
    ShortcutControl& shortcuts_;
    AutostartEntry& autostart_;
    std::map<std::string, std::string> deviceNameToUID_;
};

}  // namespace vocle
