#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "modes/ModeManager.h"
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
};

// The "Getting Started" checklist. Evaluated when the screen is shown and whenever the modes or the
// vocabulary change; the onboarding record is read on every evaluation.
class HomeViewModel {
  public:
    explicit HomeViewModel(HomeDependencies deps);
    HomeViewModel(const HomeViewModel&) = delete;
    HomeViewModel& operator=(const HomeViewModel&) = delete;

    static constexpr int kTotalSteps = 6;
    static constexpr const char* kTitle = "Getting Started";

    enum Step { microphone = 0, accessibility, customMode, replacement, vocabulary, firstRecording };

    Observable<bool> microphoneAuthorized{false};
    Observable<bool> accessibilityAuthorized{false};
    Observable<std::vector<ChecklistItem>> items;
    // Why a settings panel did not open (or what to check where the desktop has none).
    Observable<std::optional<std::string>> openProblem;
    Signal<> changed;

    int completedCount() const;
    // "{completed} of 6 complete"
    std::string progressText() const;
    // completed ÷ 6, for the bar's filled width.
    double progress() const;
    std::vector<std::string> toggleShortcutParts() const;

    // Re-reads the permissions and the onboarding record (the screen was shown).
    void refresh();
    void activate(Step step);

  private:
    void open(const char* url);

    void evaluate();

    HomeDependencies d_;
    std::vector<Subscription> subscriptions_;
    OwnerToken token_;
};

}  // namespace vocle
