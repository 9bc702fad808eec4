#include "screens/ShortcutPickerViewModel.h"

#include "desktop/KeyCaps.h"
#include "desktop/Shortcut.h"

namespace vocle {

namespace {

std::string keyName(const ShortcutControl& shortcuts, uint16_t keyCode) {
    auto parts = shortcuts.displayParts(keyCode, 0);
    return parts.empty() ? std::string("Key") : parts.back();
}

}  // namespace

ShortcutPickerViewModel::ShortcutPickerViewModel(ShortcutControl& shortcuts, LocalKeyMonitor& keyMonitor)
    : shortcuts_(shortcuts), keyMonitor_(keyMonitor) {}

std::vector<std::string> ShortcutPickerViewModel::previewParts() const {
    const auto& key = capturedKeyCode.get();
    auto parts = modifierKeyCaps(key ? capturedModifiers.get() : previewModifiers.get());
    if (key) parts.push_back(keyName(shortcuts_, *key));
    return parts;
}

bool ShortcutPickerViewModel::canSave() const {
    return capturedKeyCode.get().has_value() && capturedModifiers.get() != 0;
}

void ShortcutPickerViewModel::startCapturing() {
    message.set(kCapturingMessage);
    flagsMonitor_ = keyMonitor_.addLocalMonitor(
        kFlagsChangedMask, [this](const KeyEvent& e) { return handleFlagsChanged(e.modifierFlags); });
    eventMonitor_ = keyMonitor_.addLocalMonitor(
        kKeyDownMask, [this](const KeyEvent& e) { return handleKeyDown(e.keyCode, e.modifierFlags); });
    isCapturing.set(true);
    changed.emit();
}

bool ShortcutPickerViewModel::handleFlagsChanged(uint64_t flags) {
    if (!isCapturing.get()) return false;
    if (!capturedKeyCode.get()) {
        previewModifiers.set(flags & keys::kModifierMask);
        changed.emit();
    }
    return true;
}

bool ShortcutPickerViewModel::handleKeyDown(uint16_t keyCode, uint64_t flags) {
    if (!isCapturing.get()) return false;
    const uint64_t masked = flags & keys::kModifierMask;
    if (keyCode == keys::kEscape) {
        close();
        return true;
    }
    if (keyCode == keys::kReturn) {
        if (canSave()) apply({*capturedKeyCode.get(), capturedModifiers.get()});
        return true;
    }
    // A bare key would make every press of it start a dictation.
    if (masked == 0) return true;
    capturedKeyCode.set(keyCode);
    capturedModifiers.set(masked);
    previewModifiers.set(masked);
    changed.emit();
    return true;
}

void ShortcutPickerViewModel::restoreDefault() {
    const Shortcut standard = Shortcut::defaultToggle();
    apply({standard.keyCode, standard.modifiers});
}

void ShortcutPickerViewModel::cancel() { close(); }

void ShortcutPickerViewModel::save() {
    if (canSave()) apply({*capturedKeyCode.get(), capturedModifiers.get()});
}

void ShortcutPickerViewModel::apply(KeyCombination shortcut) {
    shortcuts_.setToggleShortcut(shortcut);
    shortcuts_.saveShortcuts();
    shortcuts_.unregisterShortcuts();
    shortcuts_.registerShortcuts();
    close();
}

void ShortcutPickerViewModel::close() {
    eventMonitor_.reset();
    flagsMonitor_.reset();
    isCapturing.set(false);
    changed.emit();
    dismissed.emit();
}

CancelPickerViewModel::CancelPickerViewModel(ShortcutControl& shortcuts, LocalKeyMonitor& keyMonitor)
    : shortcuts_(shortcuts), keyMonitor_(keyMonitor) {}

std::vector<std::string> CancelPickerViewModel::previewParts() const {
    if (!capturedKeyCode.get()) return {};
    return {keyName(shortcuts_, *capturedKeyCode.get())};
}

void CancelPickerViewModel::startCapturing() {
    eventMonitor_ = keyMonitor_.addLocalMonitor(kKeyDownMask, [this](const KeyEvent& e) { return handleKeyDown(e.keyCode); });
    isCapturing.set(true);
    changed.emit();
}

// Modifiers are ignored: Command+Q is captured as Q.
bool CancelPickerViewModel::handleKeyDown(uint16_t keyCode) {
    if (!isCapturing.get()) return false;
    if (keyCode == keys::kReturn) {
        if (capturedKeyCode.get()) apply({*capturedKeyCode.get(), 0});
        return true;
    }
    capturedKeyCode.set(keyCode);
    changed.emit();
    return true;
}

void CancelPickerViewModel::restoreDefault() { apply({keys::kEscape, 0}); }

void CancelPickerViewModel::close() { finish(); }

void CancelPickerViewModel::save() {
    if (capturedKeyCode.get()) apply({*capturedKeyCode.get(), 0});
}

void CancelPickerViewModel::apply(KeyCombination shortcut) {
    shortcuts_.setCancelShortcut(shortcut);
    shortcuts_.saveShortcuts();
    shortcuts_.unregisterShortcuts();
    shortcuts_.registerShortcuts();
    finish();
}

void CancelPickerViewModel::finish() {
    eventMonitor_.reset();
    isCapturing.set(false);
    changed.emit();
    dismissed.emit();
}

}  // namespace vocle
