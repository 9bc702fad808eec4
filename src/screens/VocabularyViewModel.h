#pragma once

#include <optional>
#include <string>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"

namespace vocle {

// The vocabulary editor: the state's vocabulary is replaced 2 s after the last keystroke, and only
// when the text differs from what was last saved.
class VocabularyViewModel {
  public:
    VocabularyViewModel(MainQueue& main, Observable<std::optional<std::string>>& vocabulary);
    ~VocabularyViewModel();
    VocabularyViewModel(const VocabularyViewModel&) = delete;
    VocabularyViewModel& operator=(const VocabularyViewModel&) = delete;

    static constexpr Seconds kAutoSaveDelay{2.0};
    static constexpr const char* kExplanation =
        "Enter words or phrases separated by commas. This helps AI to recognise people's names, company "
        "names, acronyms, slang, or words from other languages.";
    static constexpr const char* kExamples = "Examples: John Doe, ACME Corp, Inc., AI, SaaS, c'est la vie";

    Observable<std::string> vocabularyText{""};
    Observable<std::string> lastSavedText{""};
    Observable<bool> isDirty{false};

    void setText(const std::string& text);
    // Saves a pending edit now (the screen is left).
    void flush();

  private:
    void autoSave();

    MainQueue& main_;
    Observable<std::optional<std::string>>& vocabulary_;
    Timer autoSaveTask_;
    Subscription stateSubscription_;
    OwnerToken token_;
};

// "2026-11-23 14:30:15 +0000": how the save log line prints a moment.
std::string logDateText(double unixSeconds);

}  // namespace vocle
