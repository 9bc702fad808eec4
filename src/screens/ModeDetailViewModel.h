#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
#include "platform/screen_capture.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// An application the user can tie a mode to: its desktop-file id and the name it shows.
struct InstalledApplication {
    std::string desktopId;
    std::string name;
    friend bool operator==(const InstalledApplication&, const InstalledApplication&) = default;
};

// One entry of the mode-type list; "Custom" has no id.
struct ModeTypeItem {
    std::optional<std::string> id;
    std::string name;
    std::string description;
    friend bool operator==(const ModeTypeItem&, const ModeTypeItem&) = default;
};

struct ModeDetailDependencies {
    MainQueue& mainQueue;
    ModeManager& modeManager;
    const FileStorageManager& files;
    ScreenCapture& screenCapture;
    // Sorted or not; the chooser sorts by name.
    std::vector<InstalledApplication> installedApplications;
};

// The mode editor: a working copy of one mode, handed back to the mode manager only on "Save".
class ModeDetailViewModel {
  public:
    ModeDetailViewModel(ModeDetailDependencies deps, const Mode& mode);
    ModeDetailViewModel(const ModeDetailViewModel&) = delete;
    ModeDetailViewModel& operator=(const ModeDetailViewModel&) = delete;

    static constexpr const char* kCustomType = "Custom";
    static constexpr const char* kPromptHelp =
        "Define your custom formatting rules. Use the {{input}} variables to refer to the dictated text.";
    static constexpr const char* kIncompatibleSystemAudioText =
        "Your current macOS version does not support recording system audio. You can still use microphone "
        "recording.";
    static constexpr const char* kWebsitePlaceholder = "mail.google.com";
    static constexpr const char* kAddApplication = "Add Application...";

    Observable<Mode> mode;
    Observable<std::string> selectedModeType;
    Observable<std::optional<std::string>> selectedModeTypeId;
    Observable<bool> isDropdownOpen{false};
    Observable<bool> showingDeleteConfirmation{false};
    Observable<bool> showIncompatibleSystemAudioAlert{false};
    // After any change of the values above.
    Signal<> changed;

    bool isNewMode() const { return isNewMode_; }
    const std::vector<ModeTypeItem>& modeTypes() const { return modeTypes_; }
    const std::vector<std::string>& languages() const { return languages_; }
    // The chooser's list, by name.
    const std::vector<InstalledApplication>& installedApplications() const { return applications_; }

    std::string selectedTypeDescription() const;
    // Empty when no application is tied to the mode.
    std::string applicationDisplayName() const;
    std::string deleteConfirmationText() const;

    void setName(const std::string& name);
    void setPrompt(const std::string& prompt);
    void setLanguage(const std::string& language);
    void setMuteWhileRecording(bool on);
    void setRecordSystemAudio(bool on);
    void setActivationWebsite(const std::string& website);
    void toggleDropdown();
    void chooseModeType(const ModeTypeItem& item);
    void chooseApplication(const std::string& desktopId);
    void clearApplication();

    void requestDelete();
    void cancelDelete();
    void confirmDelete();
    void dismissIncompatibleSystemAudioAlert();
    void save();
    void cancel();

    // The description shown for a type name when the templates cache does not describe it.
    static std::string fixedTypeDescription(const std::string& typeName);
    static std::string typeIcon(const std::string& typeName);
    // Installed name first, then the table of well-known ids, then the id itself.
    static std::string applicationName(const std::string& id, const std::vector<InstalledApplication>& installed);

  private:
    void update(const std::function<void(Mode&)>& change);
    void loadModeTypes();

    ModeDetailDependencies d_;
    bool isNewMode_ = false;
    std::vector<ModeTypeItem> modeTypes_;
    std::vector<std::string> languages_;
    std::vector<InstalledApplication> applications_;
    OwnerToken token_;
};

}  // namespace vocle
