#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/SettingsRecords.h"
#include "core/Replacement.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "modes/ModeManager.h"
#include "modes/ModesViewModel.h"
#include "modes/SettingsCoordinator.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The user's settings as the app state holds them.
struct EditableSettings {
    Observable<std::vector<Replacement>>& replacements;
    Observable<std::optional<std::string>>& vocabulary;
    const Observable<bool>& isInitializing;
};

// Writes settings.json from the app state and, outside start-up, sends the backup: on request, and
// `kSaveDelay` after the last change of the modes, replacements or vocabulary. Main queue only.
class SettingsPersistence {
public:
    static constexpr Seconds kSaveDelay{1.5};

    SettingsPersistence(MainQueue& mainQueue, const FileStorageManager& storage, ModeManager& modeManager,
                        ModesViewModel& modesViewModel, SettingsCoordinator& coordinator, EditableSettings settings);

    void startWatching();
    void persist();
    // The complete backup document of the current state.
    SettingsDoc document() const;

private:
    void scheduleSave();

    MainQueue& mainQueue_;
    const FileStorageManager& storage_;
    ModeManager& modeManager_;
    ModesViewModel& modesViewModel_;
    SettingsCoordinator& coordinator_;
    EditableSettings settings_;
    std::vector<Subscription> subscriptions_;
    Timer saveDebounce_;
    OwnerToken token_;
};

}  // namespace vocle
