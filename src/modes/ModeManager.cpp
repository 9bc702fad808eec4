#include "modes/ModeManager.h"

#include <algorithm>

#include "backend/SettingsDocument.h"
#include "backend/SettingsRecords.h"
#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "modes/ExtractDomain.h"

namespace vocle {

namespace {

std::string orNil(const std::optional<std::string>& text) {
    return text.value_or("nil");
}

// The display name of the default template type in the cached templates; none when the cache is
// missing, unreadable or lacks that type.
std::optional<std::string> defaultTemplateName(const FileStorageManager& files) {
    auto cached = files.loadCloudTemplatesCache();
    if (!cached) return std::nullopt;
    try {
        const auto doc = TemplatesDoc::fromJson(parseJson(*cached));
        for (const auto& type : doc.modeTypes) {
            if (type.id == kDefaultModeTypeId) return type.name;
        }
    } catch (const DecodingError&) {
    }
    return std::nullopt;
}

}  // namespace

ModeManager::ModeManager(MainQueue& main, NotificationCenter& center, const LocalSettingsStore& store,
                         const FileStorageManager& files, SettingsCoordinator& settingsCoordinator)
    : main_(main), store_(store), files_(files), settingsCoordinator_(settingsCoordinator) {
    applicationObserver_ = center.addObserver(Notifications::autoSwitchModeForApplication,
                                              token_.guard([this](const Notification& n) {
                                                  if (auto bundleId = n.string("bundleId"))
                                                      handleApplicationSwitchRequest(*bundleId);
                                              }),
                                              &main_);
    websiteObserver_ = center.addObserver(
        Notifications::autoSwitchModeForWebsite, token_.guard([this](const Notification& n) {
            auto domain = n.string("domain");
            if (!domain) return;
            handleWebsiteSwitchRequest(*domain, n.string("fallbackBundleId").value_or(""));
        }),
        &main_);
}

void ModeManager::loadModes() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    auto stored = store_.loadModes();
    if (stored && !stored->empty()) {
        const size_t n = stored->size();
        modes.set(std::move(*stored));
        log("ModeManager: Loaded ", n, " modes from storage");
    } else {
        modes.set({});
        log("ModeManager: No saved modes found");
    }
}

void ModeManager::saveModes() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    store_.saveModes(modes.get());
    // This document lacks the user's text settings on purpose: the application state schedules its
    // complete one after every mode change, and the coordinator keeps only the last of a burst.
    main_.post(token_.guard([this] {
        std::optional<Uuid> activeId;
        if (activeMode.get()) activeId = activeMode.get()->id;
        settingsCoordinator_.scheduleBackup(settingsDocument(modes.get(), activeId, std::string(), {}));
    }));
}

void ModeManager::setActiveMode(const Mode& mode) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    log("ModeManager: setActiveMode() called for mode '", mode.name, "' with ID ", mode.id.string());
    const auto& list = modes.get();
    auto stored = std::find_if(list.begin(), list.end(), [&](const Mode& m) { return m.id == mode.id; });
    if (stored != list.end()) {
        activeMode.set(*stored);
        log("ModeManager: Using latest mode data with type '", orNil(stored->type), "'");
    } else {
        activeMode.set(mode);
    }
    saveModes();
}

void ModeManager::createNewMode() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    log("ModeManager: createNewMode() called");
    Mode mode = Mode::fresh("New Mode");
    mode.type = "Custom";
    mode.modeTypeId.reset();
    selectedMode.set(mode);
    isEditingMode.set(true);
    logEditorState();
}

void ModeManager::startEditing(const Mode& mode) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    log("ModeManager: startEditing() called for ID ", mode.id.string());
    selectedMode.set(mode);
    isEditingMode.set(true);
    logEditorState();
}

void ModeManager::logEditorState() const {
    log("ModeManager: isEditingMode = ", boolText(isEditingMode.get()),
        ", selectedMode ID = ", selectedMode.get() ? selectedMode.get()->id.string() : std::string("nil"));
}

void ModeManager::saveMode(const Mode& mode) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    main_.post(token_.guard([this, mode] {
        log("ModeManager: saveMode() called for ID ", mode.id.string());
        auto list = modes.get();
        auto existing =
            std::find_if(list.begin(), list.end(), [&](const Mode& m) { return m.id == mode.id; });
        if (existing != list.end()) {
            *existing = mode;
            modes.set(std::move(list));
            if (activeMode.get() && activeMode.get()->id == mode.id) {
                activeMode.set(mode);
                log("ModeManager: Updated activeMode with new settings");
            }
        } else {
            // A new mode is always made active.
            list.push_back(mode);
            modes.set(std::move(list));
            activeMode.set(mode);
            log("ModeManager: Set newly created mode '", mode.name, "' as active");
        }
        isEditingMode.set(false);
        selectedMode.set(std::nullopt);
        saveModes();
        log("ModeManager: saveMode() finished, isEditingMode = ", boolText(isEditingMode.get()));
    }));
}

void ModeManager::cancelEditing() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    main_.post(token_.guard([this] {
        if (!isEditingMode.get()) return;
        log("ModeManager: cancelEditing() called");
        isEditingMode.set(false);
        selectedMode.set(std::nullopt);
        log("ModeManager: cancelEditing() finished, isEditingMode = ", boolText(isEditingMode.get()));
    }));
}

void ModeManager::deleteMode(const Mode& mode) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    if (mode.isDefault) {
        log("ModeManager: Cannot delete default mode");
        return;
    }
    if (modes.get().size() < 2) {
        log("ModeManager: Cannot delete the only remaining mode");
        return;
    }
    main_.post(token_.guard([this, id = mode.id] {
        log("ModeManager: deleteMode() called for ID ", id.string());
        auto list = modes.get();
        if (activeMode.get() && activeMode.get()->id == id) {
            auto next = std::find_if(list.begin(), list.end(), [](const Mode& m) { return m.isDefault; });
            if (next == list.end()) {
                next = std::find_if(list.begin(), list.end(), [&](const Mode& m) { return m.id != id; });
            }
            if (next != list.end()) activeMode.set(*next);
        }
        std::erase_if(list, [&](const Mode& m) { return m.id == id; });
        modes.set(std::move(list));
        isEditingMode.set(false);
        selectedMode.set(std::nullopt);
        saveModes();
        log("ModeManager: deleteMode() finished, modes count = ", modes.get().size());
    }));
}

Mode ModeManager::makeDefaultMode(bool& fromTemplate) const {
    Mode mode = Mode::fresh(kDefaultModeName);
    mode.isDefault = true;
    mode.prompt = "";
    mode.language = "English";
    if (auto name = defaultTemplateName(files_)) {
        fromTemplate = true;
        mode.type = *name;
        mode.modeTypeId = kDefaultModeTypeId;
    } else {
        fromTemplate = false;
        mode.type = "Custom";
        mode.modeTypeId.reset();
    }
    return mode;
}

void ModeManager::createDefaultModesWithBackendTypes() {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    log("ModeManager: createDefaultModesWithBackendTypes() called");
    bool fromTemplate = false;
    Mode mode = makeDefaultMode(fromTemplate);
    if (fromTemplate) {
        modes.set({mode});
        log("ModeManager: Created single default mode: '", mode.name, "' with type '", orNil(mode.type),
            "' and ID '", orNil(mode.modeTypeId), "'");
    } else {
        log("ModeManager: CRITICAL ERROR - Cannot create default mode - mode type ID ", kDefaultModeTypeId,
            " not found in backend templates");
        log("ModeManager: This should not happen as templates should be fetched before calling this method");
        modes.set({mode});
        log("ModeManager: Created fallback Custom mode to prevent app crash");
    }
    saveModes();

    const auto& list = modes.get();
    const auto& active = activeMode.get();
    const bool activeStillListed =
        active && std::any_of(list.begin(), list.end(), [&](const Mode& m) { return m.id == active->id; });
    if (!activeStillListed) {
        auto firstDefault = std::find_if(list.begin(), list.end(), [](const Mode& m) { return m.isDefault; });
        if (firstDefault != list.end()) {
            activeMode.set(*firstDefault);
            log("ModeManager: Set active mode to default: '", firstDefault->name, "'");
        } else if (!list.empty()) {
            activeMode.set(list.front());
            log("ModeManager: No default mode found, set active mode to first available: '",
                list.front().name, "'");
        } else {
            Mode another = makeDefaultMode(fromTemplate);
            if (fromTemplate) {
                log("ModeManager: No modes available, created default mode: '", another.name, "' with type '",
                    orNil(another.type), "'");
            } else {
                log("ModeManager: No modes available, created fallback Custom mode");
            }
            auto updated = modes.get();
            updated.push_back(another);
            modes.set(std::move(updated));
            activeMode.set(another);
            saveModes();
        }
    }
    log("ModeManager: createDefaultModesWithBackendTypes() finished - ", modes.get().size(),
        " modes, active: ", activeMode.get() ? activeMode.get()->name : std::string("none"));
}

void ModeManager::handleWebsiteSwitchRequest(const std::string& domain, const std::string& fallbackBundleId) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    log("ModeManager: Received auto-switch request for website: ", domain);
    log("ModeManager: Available modes with websites:");
    std::optional<Mode> match;
    for (const auto& mode : modes.get()) {
        if (mode.activationWebsite.empty()) continue;
        // A website that does not parse is compared as typed.
        const std::string key = extractDomain(mode.activationWebsite).value_or(mode.activationWebsite);
        log("  - Mode '", mode.name, "': website '", mode.activationWebsite, "' -> domain '", key, "'");
        if (!match && key == domain) match = mode;
    }
    if (match) {
        log("ModeManager: Found matching mode '", match->name, "' for website ", domain, ", switching...");
        setActiveMode(*match);
        return;
    }
    log("ModeManager: No mode found for website ", domain, ", fallback bundleId: '", fallbackBundleId, "'");
    // A browser can carry a mode for every site without one of its own.
    if (!fallbackBundleId.empty()) handleApplicationSwitchRequest(fallbackBundleId);
}

void ModeManager::handleApplicationSwitchRequest(const std::string& bundleId) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    const auto& list = modes.get();
    // An empty id would otherwise match every mode without an application.
    auto match = bundleId.empty() ? list.end() : std::find_if(list.begin(), list.end(), [&](const Mode& m) {
        return m.activationApplication == bundleId;
    });
    if (match == list.end()) {
        log("AutoModeManager: No mode found for application ", bundleId);
        return;
    }
    log("AutoModeManager: Switching to mode '", match->name, "' for application ", bundleId);
    setActiveMode(Mode(*match));
}

}  // namespace vocle
