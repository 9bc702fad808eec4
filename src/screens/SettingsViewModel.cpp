#include "screens/SettingsViewModel.h"

#include <algorithm>
#include <cstdio>

#include "desktop/ShortcutConflictNotice.h"
#include "foundation/Log.h"

namespace vocle {

namespace {

// "%g"-like with enough digits for a slider value, as a floating-point description prints it.
std::string volumeText(double v) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.15g", v);
    std::string s = buffer;
    if (s.find_first_of(".e") == std::string::npos) s += ".0";
    return s;
}

}  // namespace

SettingsViewModel::SettingsViewModel(const FileStorageManager& files, Capture& capture,
                                     ShortcutControl& shortcuts, LocalKeyMonitor& keyMonitor,
                                     AutostartEntry& autostart)
    : files_(files),
      capture_(capture),
      shortcuts_(shortcuts),
      keyMonitor_(keyMonitor),
      autostart_(autostart) {}

void SettingsViewModel::refreshDevices() {
    inputAvailability.set(capture_.inputAvailability());
    std::vector<std::string> names;
    deviceNameToUID_.clear();
    for (const auto& device : capture_.devices()) {
        names.push_back(device.name);
        deviceNameToUID_[device.name] = device.uid;
    }
    availableDevices.set(std::move(names));
}

void SettingsViewModel::load() {
    refreshDevices();
    const auto settings = files_.loadSettings();
    useSystemDefault.set(settings.useSystemDefaultAudio);
    enableSoundEffects.set(settings.enableSoundEffects);
    showLivePreview.set(settings.showLivePreview);
    volume.set(settings.soundVolume);
    const std::string name = settings.inputDeviceName.value_or("");
    if (name.empty() || name == "Default") {
        useSystemDefault.set(true);
        inputDevice.set("");
    } else {
        inputDevice.set(name);
    }
    startAtLogin.set(autostart_.isEnabled());
    isLoading.set(false);
    changed.emit();
}

void SettingsViewModel::checkPickerRequest() {
    if (!takePickerRequest) return;
    if (auto toggle = takePickerRequest()) openPicker.emit(*toggle);
}

bool SettingsViewModel::inputDeviceDisconnected() const {
    const auto& name = inputDevice.get();
    return !name.empty() && deviceNameToUID_.count(name) == 0;
}

std::vector<std::string> SettingsViewModel::compositorBindingLines() const {
    std::vector<std::string> lines;
    if (compositor_.family == CompositorFamily::other || !compositor_.keysymName) return lines;
    const std::pair<KeyCombination, const char*> bindings[] = {
        {shortcuts_.toggleShortcut(), "vocle-cli toggle"}, {shortcuts_.cancelShortcut(), "vocle-cli cancel"}};
    for (const auto& [combination, command] : bindings) {
        const auto key = compositor_.keysymName(combination.keyCode);
        if (!key) continue;
        if (auto line = compositorBindingLine(compositor_.family,
                                              combination.modifiers & kShortcutModifierMask, *key, command))
            lines.push_back(*line);
    }
    return lines;
}

void SettingsViewModel::copyCompositorBindings() {
    if (!compositor_.pasteboard) return;
    std::string text;
    for (const auto& line : compositorBindingLines()) text += line + "\n";
    compositor_.pasteboard->clearContents();
    compositor_.pasteboard->setString(text);
}

std::vector<std::string> SettingsViewModel::toggleShortcutParts() const {
    const auto s = shortcuts_.toggleShortcut();
    return shortcuts_.displayParts(s.keyCode, s.modifiers);
}

std::vector<std::string> SettingsViewModel::cancelShortcutParts() const {
    const auto s = shortcuts_.cancelShortcut();
    return shortcuts_.displayParts(s.keyCode, s.modifiers);
}

std::optional<std::string> SettingsViewModel::toggleShortcutWarning() const {
    const auto status = shortcuts_.toggleRegistrationFailure();
    if (!status) return std::nullopt;
    return ShortcutConflictNotice::warningText(toggleShortcutParts(), *status);
}

std::optional<std::string> SettingsViewModel::cancelShortcutWarning() const {
    const auto status = shortcuts_.cancelRegistrationFailure();
    if (!status) return std::nullopt;
    return ShortcutConflictNotice::warningText(cancelShortcutParts(), *status);
}

void SettingsViewModel::setUseSystemDefault(bool on) {
    if (on == useSystemDefault.get()) return;
    useSystemDefault.set(on);
    // Turning the default off without a choice would store no device at all; take the first source.
    if (!on && inputDevice.get().empty() && !availableDevices.get().empty())
        inputDevice.set(availableDevices.get().front());
    save();
}

void SettingsViewModel::selectInputDevice(const std::string& name) {
    inputDevice.set(name);
    useSystemDefault.set(false);
    save();
}

void SettingsViewModel::setEnableSoundEffects(bool on) {
    if (on == enableSoundEffects.get()) return;
    enableSoundEffects.set(on);
    save();
}

void SettingsViewModel::setShowLivePreview(bool on) {
    if (on == showLivePreview.get()) return;
    showLivePreview.set(on);
    save();
}

void SettingsViewModel::setVolume(double value) {
    value = std::clamp(value, 0.0, 1.0);
    if (value == volume.get()) return;
    volume.set(value);
    save();
}

void SettingsViewModel::setStartAtLogin(bool on) {
    auto error = autostart_.setEnabled(on);
    errorMessage.set(error);
    startAtLogin.set(autostart_.isEnabled());
    changed.emit();
}

void SettingsViewModel::setShowingShortcutPicker(bool showing) {
    if (showing == showingShortcutPicker.get()) return;
    showingShortcutPicker.set(showing);
    shortcuts_.setSuspended(showing);
    changed.emit();
}

void SettingsViewModel::setShowingCancelPicker(bool showing) {
    if (showing == showingCancelPicker.get()) return;
    showingCancelPicker.set(showing);
    shortcuts_.setSuspended(showing);
    changed.emit();
}

void SettingsViewModel::save() {
    auto settings = files_.loadSettings();
    settings.useSystemDefaultAudio = useSystemDefault.get();
    settings.enableSoundEffects = enableSoundEffects.get();
    settings.soundVolume = volume.get();
    settings.showLivePreview = showLivePreview.get();
    if (!useSystemDefault.get()) {
        settings.inputDeviceName = inputDevice.get();
        auto it = deviceNameToUID_.find(inputDevice.get());
        settings.inputDeviceUID = it == deviceNameToUID_.end() ? std::nullopt : std::optional(it->second);
    } else {
        settings.inputDeviceName.reset();
        settings.inputDeviceUID.reset();
    }
    files_.saveSettings(settings);
    log("Settings saved: device=", inputDevice.get(), ", useDefault=", boolText(useSystemDefault.get()),
        ", soundEffects=", boolText(enableSoundEffects.get()), ", volume=", volumeText(volume.get()));
    changed.emit();
}

}  // namespace vocle
