#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
#include "platform/remote_input.h"
#include "platform/url_opener.h"
#include "screens/PermissionProbe.h"
#include "screens/ShortcutControl.h"
#include "storage/FileStorageManager.h"

namespace vocle {

struct ChecklistItem {
    std::string title;
    bool isCompleted = false;
    bool isClickable = false;
    friend bool operator==(const ChecklistItem&, const ChecklistItem&) = default;
};

struct HomeDependencies {
    ModeManager& modeManager;
    Observable<std::optional<std::string>>& vocabulary;
    Observable<int>& selectedTab;
    const FileStorageManager& files;
    PermissionProbe& permissions;
    UrlOpener& urlOpener;
    ShortcutControl& shortcuts;
    // The desktop's consent for keys sent into other windows; null where none is needed (X11, wlroots).
    RemoteInput* remoteInput = nullptr;
};

// The "Getting Started" checklist. Evaluated when the screen is shown and whenever the modes, the
// vocabulary or the remote-input grant change; the onboarding record is read on every evaluation. Where
// the desktop asks consent for keys, the grant is one more step after the accessibility one.
class HomeViewModel {
  public:
    explicit HomeViewModel(HomeDependencies deps);
    HomeViewModel(const HomeViewModel&) = delete;
    HomeViewModel& operator=(const HomeViewModel&) = delete;

    // Without the remote-input step.
    static constexpr int kTotalSteps = 6;
    static constexpr const char* kTitle = "Getting Started";

    enum Step {
        microphone = 0,
        accessibility,
        customMode,
        replacement,
        vocabulary,
        firstRecording,
        remoteInput
    };

    Observable<bool> microphoneAuthorized{false};
    Observable<bool> accessibilityAuthorized{false};
    Observable<std::vector<ChecklistItem>> items;
    // Why a settings panel did not open (or what to check where the desktop has none).
    Observable<std::optional<std::string>> openProblem;
    Signal<> changed;

    int completedCount() const;
    int totalSteps() const { return static_cast<int>(items.get().size()); }
    // "{completed} of {total} complete"
    std::string progressText() const;
    // completed ÷ total, for the bar's filled width.
    double progress() const;
    // The step shown in row `row`, and the row of a step (none when this desktop does not show it).
    Step stepAt(int row) const { return steps_.at(static_cast<size_t>(row)); }
    std::optional<ChecklistItem> item(Step step) const;
    std::vector<std::string> toggleShortcutParts() const;

    // Re-reads the permissions and the onboarding record (the screen was shown).
    void refresh();
    void activate(Step step);

  private:
    void open(const char* url);

    void evaluate();

    HomeDependencies d_;
    std::vector<Step> steps_;
    std::vector<Subscription> subscriptions_;
    OwnerToken token_;
};

}  // namespace vocle
