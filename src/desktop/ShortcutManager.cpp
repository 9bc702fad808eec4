#include "desktop/ShortcutManager.h"

#include <map>

#include "desktop/KeyCaps.h"
#include "foundation/Log.h"

namespace vocle {

ShortcutManager::ShortcutManager(MainQueue& mainQueue, const FileStorageManager& storage, HotKeys& hotKeys,
                                 KeyMonitor& keyMonitor, LocalKeyMonitor& localKeyMonitor)
    : mainQueue_(mainQueue),
      storage_(storage),
      hotKeys_(hotKeys),
      keyMonitor_(keyMonitor),
      localKeyMonitor_(localKeyMonitor) {
    statusObserver_ = hotKeys_.observeStatus(
        owner_.guard([this](HotKeyHandle handle, int status) { handleStatus(handle, status); }));
    loadShortcuts();
    registerShortcuts();
}

ShortcutManager::~ShortcutManager() {
    recordingObserver_.reset();
    unregisterShortcuts();
}

void ShortcutManager::followRecording(Observable<bool>& isRecording) {
    recordingObserver_ = isRecording.subscribe(owner_.guard([this](const bool& recording) {
        recording_ = recording;
        updateRecordingCancel();
    }));
    recording_ = isRecording.get();
    updateRecordingCancel();
}

void ShortcutManager::updateRecordingCancel() {
    const bool wanted =
        recording_ && carbonEventHandler_ && cancelShortcut.modifiers == 0 && !recordingCancelUnavailable_;
    if (!wanted) {
        if (recordingCancelRef_) hotKeys_.unregisterHotKey(*std::exchange(recordingCancelRef_, std::nullopt));
        return;
    }
    if (recordingCancelRef_) return;
    const auto cancel =
        hotKeys_.registerTransientHotKey(cancelShortcut.keyCode, cancelShortcut.modifiers, cancelHotKeyID.id);
    if (!cancel) {
        // The service has no such thing (X11): the key monitors keep serving the cancel key.
        recordingCancelUnavailable_ = true;
        return;
    }
    if (cancel->status == kHotKeyOk && cancel->handle) {
        recordingCancelRef_ = cancel->handle;
    } else {
        log("Failed to register Carbon HotKey for cancel: ", cancel->status);
        recordingCancelUnavailable_ = true;
        registrationChanged.emit();
    }
}

void ShortcutManager::handleStatus(HotKeyHandle handle, int status) {
    if (recordingCancelRef_ == handle) {
        if (status == kHotKeyOk) {
            logLine("Carbon HotKey registered successfully for cancel");
            return;
        }
        log("Failed to register Carbon HotKey for cancel: ", status);
        recordingCancelRef_.reset();
        hotKeys_.unregisterHotKey(handle);
        // Asking again at the next recording would ask again for nothing better.
        recordingCancelUnavailable_ = true;
        registrationChanged.emit();
        return;
    }
    std::optional<int>* failure = toggleHotKeyRef_ == handle   ? &toggleFailure_
                                  : cancelHotKeyRef_ == handle ? &cancelFailure_
                                                               : nullptr;
    if (!failure) return;
    const bool toggle = failure == &toggleFailure_;
    if (status == kHotKeyOk) {
        log("Carbon HotKey registered successfully for ", toggle ? "toggle" : "cancel");
        failure->reset();
    } else {
        log("Failed to register Carbon HotKey for ", toggle ? "toggle" : "cancel", ": ", status);
        *failure = status;
    }
    registrationChanged.emit();
}

bool ShortcutManager::cancelReachesAllApplications() const {
    if (cancelShortcut.modifiers != 0) return carbonEventHandler_ && !cancelFailure_;
    // Claimed for each recording by the hot-key service, until it turns out that it cannot.
    if (carbonEventHandler_ && hotKeys_.supportsTransientHotKeys() && !recordingCancelUnavailable_)
        return true;
    return keyMonitor_.observesAllApplications();
}

void ShortcutManager::loadShortcuts() {
    const AppSettings settings = storage_.loadSettings();
    // Undecodable bytes leave the shortcut in force unchanged.
    if (settings.toggleShortcut) {
        if (auto s = Shortcut::decode(*settings.toggleShortcut)) currentShortcut = *s;
    }
    if (settings.cancelShortcut) {
        if (auto s = Shortcut::decode(*settings.cancelShortcut)) cancelShortcut = *s;
    }
}

void ShortcutManager::saveShortcuts() {
    AppSettings settings = storage_.loadSettings();
    settings.toggleShortcut = currentShortcut.encode();
    settings.cancelShortcut = cancelShortcut.encode();
    storage_.saveSettings(settings);
}

void ShortcutManager::registerShortcuts() {
    log("Registering shortcuts: keyCode=", currentShortcut.keyCode,
        ", modifiers=", currentShortcut.modifiers);

    toggleFailure_.reset();
    cancelFailure_.reset();
    const int handlerStatus =
        hotKeys_.installHandler(owner_.guard([this](uint32_t id) { handleHotKey(id); }));
    if (handlerStatus != kHotKeyOk) {
        log("Failed to install Carbon event handler: ", handlerStatus);
        toggleFailure_ = handlerStatus;
        if (cancelShortcut.modifiers != 0) cancelFailure_ = handlerStatus;
    } else {
        carbonEventHandler_ = true;
        const auto toggle =
            hotKeys_.registerHotKey(currentShortcut.keyCode, currentShortcut.modifiers, hotKeyID.id);
        if (toggle.status == kHotKeyOk && toggle.handle) {
            toggleHotKeyRef_ = toggle.handle;
            if (!toggle.pending) logLine("Carbon HotKey registered successfully for toggle");
        } else {
            log("Failed to register Carbon HotKey for toggle: ", toggle.status);
            toggleFailure_ = toggle.status;
        }
        // A bare key (the default Escape) stays with the monitors: grabbing it system-wide would take it
        // away from every other application.
        if (cancelShortcut.modifiers != 0) {
            const auto cancel =
                hotKeys_.registerHotKey(cancelShortcut.keyCode, cancelShortcut.modifiers, cancelHotKeyID.id);
            if (cancel.status == kHotKeyOk && cancel.handle) {
                cancelHotKeyRef_ = cancel.handle;
                if (!cancel.pending) logLine("Carbon HotKey registered successfully for cancel");
            } else {
                log("Failed to register Carbon HotKey for cancel: ", cancel.status);
                cancelFailure_ = cancel.status;
            }
        }
    }

    eventMonitor_ =
        keyMonitor_.addGlobalMonitor(owner_.guard([this](const KeyEvent& e) { handleGlobalKey(e); }));
    localEventMonitor_ = localKeyMonitor_.addLocalMonitor(
        kKeyDownMask | kFlagsChangedMask, [this](const KeyEvent& e) { return handleLocalKey(e); });

    logLine("Shortcut registration completed");
    updateRecordingCancel();
    registrationChanged.emit();
}

void ShortcutManager::unregisterShortcuts() {
    eventMonitor_.reset();
    localEventMonitor_.reset();
    if (toggleHotKeyRef_) hotKeys_.unregisterHotKey(*std::exchange(toggleHotKeyRef_, std::nullopt));
    if (cancelHotKeyRef_) hotKeys_.unregisterHotKey(*std::exchange(cancelHotKeyRef_, std::nullopt));
    if (recordingCancelRef_) hotKeys_.unregisterHotKey(*std::exchange(recordingCancelRef_, std::nullopt));
    if (carbonEventHandler_) {
        hotKeys_.removeHandler();
        carbonEventHandler_ = false;
    }
}

void ShortcutManager::handleHotKey(uint32_t id) {
    if (isSuspended) return;
    if (id == hotKeyID.id) {
        logLine("Carbon HotKey toggle detected!");
        mainQueue_.post(owner_.guard([this] { toggleRecordingHandler(); }));
    } else if (id == cancelHotKeyID.id) {
        logLine("Carbon HotKey cancel detected!");
        mainQueue_.post(owner_.guard([this] { cancelRecordingHandler(); }));
    }
}

void ShortcutManager::handleGlobalKey(const KeyEvent& event) {
    if (isSuspended || event.type != KeyEventType::keyDown) return;
    if (currentShortcut.matches(event.keyCode, event.modifierFlags)) {
        logLine("Global NSEvent shortcut detected!");
        mainQueue_.post(owner_.guard([this] { toggleRecordingHandler(); }));
    } else if (cancelShortcut.matches(event.keyCode, event.modifierFlags)) {
        logLine("Global NSEvent cancel shortcut detected!");
        mainQueue_.post(owner_.guard([this] { cancelRecordingHandler(); }));
    }
}

bool ShortcutManager::handleLocalKey(const KeyEvent& event) {
    if (isSuspended || event.type != KeyEventType::keyDown) return false;
    const uint64_t flags = event.modifierFlags & kShortcutModifierMask;
    log("Local event - KeyCode: ", event.keyCode, ", Modifiers: ", flags,
        ", Expected: ", currentShortcut.keyCode, ", ", currentShortcut.modifiers);
    if (currentShortcut.matches(event.keyCode, flags)) {
        logLine("🔥 SHORTCUT MATCHED! Consuming event to prevent space insertion");
        log("TIMESTAMP: ", formatTimestamp(mainQueue_.clock().now()), " - USER SHORTCUT TRIGGERED");
        toggleRecordingHandler();
        return true;
    }
    if (cancelShortcut.matches(event.keyCode, flags)) {
        logLine("🔥 CANCEL SHORTCUT MATCHED! Consuming event");
        cancelRecordingHandler();
        return true;
    }
    return false;
}

std::string ShortcutManager::keyName(uint16_t keyCode) {
    static const std::map<uint16_t, const char*> names = {
        {36, "Return"}, {48, "Tab"}, {49, "Space"}, {51, "Delete"}, {53, "Esc"}, {0, "A"},  {1, "S"},
        {2, "D"},       {3, "F"},    {4, "H"},      {5, "G"},       {6, "Z"},    {7, "X"},  {8, "C"},
        {9, "V"},       {11, "B"},   {12, "Q"},     {13, "W"},      {14, "E"},   {15, "R"}, {16, "Y"},
        {17, "T"},      {31, "O"},   {32, "U"},     {34, "I"},      {35, "P"},   {37, "L"}, {38, "J"},
        {40, "K"},      {41, ";"},   {45, "N"},     {46, "M"},      {18, "1"},   {19, "2"}, {20, "3"},
        {21, "4"},      {23, "5"},   {22, "6"},     {26, "7"},      {28, "8"},   {25, "9"}, {29, "0"},
    };
    const auto it = names.find(keyCode);
    return it == names.end() ? "Key" : it->second;
}

std::vector<std::string> ShortcutManager::displayParts(uint16_t keyCode, uint64_t modifiers) {
    std::vector<std::string> parts = modifierKeyCaps(modifiers);
    parts.push_back(keyName(keyCode));
    return parts;
}

}  // namespace vocle
