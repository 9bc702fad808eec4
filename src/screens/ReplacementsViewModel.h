#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Replacement.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "storage/FileStorageManager.h"

namespace vocle {

enum class DrawerMode { add, edit };

// The replacements table and its drawer. Edits go straight into the application state's list, which
// saves it; an edit in the drawer is saved 1 s after the last change without a button.
class ReplacementsViewModel {
  public:
    ReplacementsViewModel(MainQueue& main, Observable<std::vector<Replacement>>& replacements,
                          const FileStorageManager& files);
    ~ReplacementsViewModel();
    ReplacementsViewModel(const ReplacementsViewModel&) = delete;
    ReplacementsViewModel& operator=(const ReplacementsViewModel&) = delete;

    static constexpr Seconds kAutoSaveDelay{1.0};
    static constexpr const char* kTitle = "Replacements";
    static constexpr const char* kDescription =
        "Replace common misspellings or automate text entry. You can replace names, phrases, or create "
        "shortcuts for frequently used text.";
    static constexpr const char* kEmptyTitle = "No Replacements";
    static constexpr const char* kEmptyText = "Add a text replacement to get started.";
    static constexpr const char* kOriginalPlaceholder = "Enter the text to replace";
    static constexpr const char* kEmptyOriginalError = "Original text cannot be empty.";

    Observable<bool> showingDrawer{false};
    Observable<DrawerMode> drawerMode{DrawerMode::add};
    Observable<std::optional<Replacement>> editingReplacement;
    Observable<std::string> drawerOriginal{""};
    Observable<std::string> drawerReplacement{""};
    Observable<std::optional<std::string>> drawerError;
    // After any change of the drawer or of the list.
    Signal<> changed;

    const std::vector<Replacement>& replacements() const { return replacements_.get(); }
    std::string drawerTitle() const;
    bool autoSavePending() const { return autoSaveTask_.isActive(); }

    void openAdd();
    void openEdit(const Uuid& id);
    void setDrawerOriginal(const std::string& text);
    void setDrawerReplacement(const std::string& text);
    // "Save" in add mode (and an immediate save in edit mode); false when the input was refused.
    bool saveDrawer();
    void deleteEditing();
    void deleteReplacement(const Uuid& id);
    // Closing keeps a pending edit: it is saved at once.
    void closeDrawer();

  private:
    void scheduleAutoSave();
    bool commitEdit();
    void markOnboardingStep();

    MainQueue& main_;
    Observable<std::vector<Replacement>>& replacements_;
    const FileStorageManager& files_;
    Timer autoSaveTask_;
    Subscription listSubscription_;
    OwnerToken token_;
};

}  // namespace vocle
