#include "appstate/SettingsPersistence.h"

#include "backend/SettingsDocument.h"
#include "foundation/Log.h"

namespace vocle {

SettingsPersistence::SettingsPersistence(MainQueue& mainQueue, const FileStorageManager& storage,
                                         ModeManager& modeManager, ModesViewModel& modesViewModel,
                                         SettingsCoordinator& coordinator, EditableSettings settings)
    : mainQueue_(mainQueue),
      storage_(storage),
      modeManager_(modeManager),
      modesViewModel_(modesViewModel),
      coordinator_(coordinator),
      settings_(settings) {}

void SettingsPersistence::startWatching() {
    // Judged when the value changes (always on the main queue), not a turn later, so that the writes
    // of the start-up run itself never schedule a save.
    auto trigger = token_.guard([this] {
        if (!settings_.isInitializing.get()) scheduleSave();
    });
    subscriptions_.push_back(modesViewModel_.modes.subscribe([trigger](const std::vector<Mode>&) mutable { trigger(); }));
    subscriptions_.push_back(
        settings_.replacements.subscribe([trigger](const std::vector<Replacement>&) mutable { trigger(); }));
    subscriptions_.push_back(
        settings_.vocabulary.subscribe([trigger](const std::optional<std::string>&) mutable { trigger(); }));
}

void SettingsPersistence::scheduleSave() {
    saveDebounce_.start(mainQueue_, kSaveDelay, token_.guard([this] { persist(); }));
}

void SettingsPersistence::persist() {
    auto settings = storage_.loadSettings();
    settings.textReplacements.clear();
    for (const auto& r : settings_.replacements.get())
        settings.textReplacements.push_back(StoredTextReplacement::fromReplacement(r));
    settings.vocabularyWords = settings_.vocabulary.get().value_or("");
    const auto& active = modeManager_.activeMode.get();
    settings.lastActiveModeId = active ? std::optional(active->id.string()) : std::nullopt;
    storage_.saveSettings(settings);
    if (!settings_.isInitializing.get()) {
        coordinator_.scheduleBackup(document());
        log("AppState: Backed up settings to cloud");
    }
}

SettingsDoc SettingsPersistence::document() const {
    const auto& active = modeManager_.activeMode.get();
    return settingsDocument(modeManager_.modes.get(), active ? std::optional(active->id) : std::nullopt,
                            settings_.vocabulary.get(), settings_.replacements.get());
}

}  // namespace vocle
