#include "screens/SettingsViewModel.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "desktop/KeyCaps.h"
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

// "<Control><Alt>space" as "Ctrl+Alt+Space", for a binding someone else wrote.
std::string acceleratorLabel(std::string accelerator) {
    static const std::pair<const char*, const char*> names[] = {
        {"<Control>", "Ctrl+"}, {"<Primary>", "Ctrl+"}, {"<Ctrl>", "Ctrl+"}, {"<Alt>", "Alt+"},
        {"<Shift>", "Shift+"},  {"<Super>", "Super+"},  {"<Meta>", "Meta+"}};
    std::string out;
    while (!accelerator.empty() && accelerator.front() == '<') {
        const auto end = accelerator.find('>');
        if (end == std::string::npos) break;
        const std::string modifier = accelerator.substr(0, end + 1);
        std::string name = modifier.substr(1, modifier.size() - 2) + "+";
        for (const auto& [from, to] : names)
            if (modifier == from) name = to;
        out += name;
        accelerator.erase(0, end + 1);
    }
    if (!accelerator.empty())
        accelerator[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(accelerator[0])));
    return out + accelerator;
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
    checkGnomeKeybinding(false);
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

std::string SettingsViewModel::handBindCommand() const {
    if (compositor_.path != ShortcutPath::gnomeKeybinding && compositor_.path != ShortcutPath::byHand)
        return {};
    return shellCommand(compositor_.cliProgram, "toggle");
}

std::string SettingsViewModel::handBindNote() const {
    if (compositor_.path == ShortcutPath::gnomeKeybinding)
        return "Or add it yourself in Settings > Keyboard > View and Customize Shortcuts > Custom Shortcuts, "
               "with this command:";
    return "Your desktop runs the shortcut: in its keyboard settings, bind " +
           joinKeyCaps(toggleShortcutParts()) + " to this command:";
}

void SettingsViewModel::copyHandBindCommand() {
    if (!compositor_.pasteboard) return;
    compositor_.pasteboard->clearContents();
    compositor_.pasteboard->setString(handBindCommand());
}

std::optional<DesktopKeybinding> SettingsViewModel::wantedGnomeKeybinding() const {
    if (!compositor_.keysymName) return std::nullopt;
    const auto toggle = shortcuts_.toggleShortcut();
    const auto key = compositor_.keysymName(toggle.keyCode);
    if (!key) return std::nullopt;
    return DesktopKeybinding{kGnomeKeybindingName, handBindCommand(),
                             gtkAccelerator(toggle.modifiers & kShortcutModifierMask, *key)};
}

void SettingsViewModel::addToGnomeKeyboardShortcuts() {
    if (!offersGnomeKeybinding() || !compositor_.keybindings) return;
    const auto wanted = wantedGnomeKeybinding();
    const auto keys = joinKeyCaps(toggleShortcutParts());
    std::optional<std::string> error;
    if (!wanted) {
        error = "GNOME has no name for the key of " + keys + ". Choose another shortcut above.";
    } else {
        error = compositor_.keybindings->write(*wanted);
    }
    gnomeKeybindingProblem.set(error.has_value());
    gnomeKeybindingAdded.set(!error.has_value());
    if (error) {
        log("❌ Settings: Could not add the toggle shortcut to GNOME's keyboard shortcuts: ", *error);
        gnomeKeybindingStatus.set(*error);
    } else {
        log("Settings: GNOME's keyboard shortcuts run \"", wanted->command, "\" on ", wanted->binding);
        gnomeKeybindingStatus.set("Added: GNOME starts and stops dictation on " + keys + ".");
    }
    changed.emit();
}

void SettingsViewModel::checkGnomeKeybinding(bool follow) {
    if (!offersGnomeKeybinding() || !compositor_.keybindings) return;
    gnomeKeybindingAdded.set(false);
    if (auto reason = compositor_.keybindings->unavailableReason()) {
        gnomeKeybindingProblem.set(true);
        gnomeKeybindingStatus.set(*reason);
        return;
    }
    const auto entry = compositor_.keybindings->find();
    gnomeKeybindingProblem.set(false);
    if (!entry) {
        gnomeKeybindingStatus.set("");
        return;
    }
    const auto wanted = wantedGnomeKeybinding();
    const bool current = wanted && entry->binding == wanted->binding && entry->command == wanted->command;
    if (current) {
        gnomeKeybindingAdded.set(true);
        gnomeKeybindingStatus.set("Added: GNOME starts and stops dictation on " +
                                  joinKeyCaps(toggleShortcutParts()) + ".");
    } else if (follow && wanted) {
        addToGnomeKeyboardShortcuts();
    } else if (wanted && entry->binding == wanted->binding) {
        // Made by hand, or by a Vocle installed elsewhere.
        gnomeKeybindingStatus.set("GNOME's keyboard shortcuts run \"" + entry->command + "\" on " +
                                  joinKeyCaps(toggleShortcutParts()) + ". Add again to run \"" +
                                  wanted->command + "\" instead.");
    } else {
        const std::string theirs =
            entry->binding.empty() ? std::string("no key") : acceleratorLabel(entry->binding);
        gnomeKeybindingStatus.set("GNOME's keyboard shortcuts start dictation on " + theirs +
                                  ". Add again to use " + joinKeyCaps(toggleShortcutParts()) + ".");
    }
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
    // A new toggle shortcut moves GNOME's entry along with it; a picker closed without one leaves alone an
    // entry the user changed in GNOME.
    if (showing) {
        toggleBeforePicker_ = shortcuts_.toggleShortcut();
    } else {
        checkGnomeKeybinding(toggleBeforePicker_ != shortcuts_.toggleShortcut());
    }
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
