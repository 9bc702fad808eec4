#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/SettingsCoordinator.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"

namespace vocle {

// The dictation modes, the active one, and the mode editor's state. Every change of the list or of
// the active mode is written to "modes.json" at once and handed on for a cloud backup. Answers the
// automatic switch requests. Main queue only.
class ModeManager {
  public:
    ModeManager(MainQueue& main, NotificationCenter& center, const LocalSettingsStore& store,
                const FileStorageManager& files, SettingsCoordinator& settingsCoordinator);
    ModeManager(const ModeManager&) = delete;
    ModeManager& operator=(const ModeManager&) = delete;

    Observable<std::vector<Mode>> modes;
    // A copy, refreshed from `modes` whenever it is set.
    Observable<std::optional<Mode>> activeMode;
    Observable<std::optional<Mode>> selectedMode;
    Observable<bool> isEditingMode{false};

    void loadModes();
    void saveModes();
    void setActiveMode(const Mode& mode);

    void createNewMode();
    void startEditing(const Mode& mode);
    // The three below do their work on a later turn of the main queue, so that the editor finishes
    // its own update first.
    void saveMode(const Mode& mode);
    void cancelEditing();
    void deleteMode(const Mode& mode);

    // First run: one "Default" mode typed from the cached templates, and an active mode.
    void createDefaultModesWithBackendTypes();

    void handleWebsiteSwitchRequest(const std::string& domain, const std::string& fallbackBundleId);
    void handleApplicationSwitchRequest(const std::string& bundleId);

  private:
    Mode makeDefaultMode(bool& fromTemplate) const;
    void logEditorState() const;

    MainQueue& main_;
    const LocalSettingsStore& store_;
    const FileStorageManager& files_;
    SettingsCoordinator& settingsCoordinator_;
    Subscription applicationObserver_;
    Subscription websiteObserver_;
    OwnerToken token_;
};

}  // namespace vocle
