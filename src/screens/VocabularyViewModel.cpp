#include "screens/VocabularyViewModel.h"

#include <ctime>

#include "foundation/Log.h"

namespace vocle {

std::string logDateText(double unixSeconds) {
    std::time_t t = static_cast<std::time_t>(unixSeconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &tm);
    return buffer;
}

VocabularyViewModel::VocabularyViewModel(MainQueue& main, Observable<std::optional<std::string>>& vocabulary)
    : main_(main), vocabulary_(vocabulary) {
    const std::string initial = vocabulary_.get().value_or("");
    vocabularyText.set(initial);
    lastSavedText.set(initial);
    // Start-up may load the vocabulary after the screen was built; an edit in progress wins.
    stateSubscription_ = vocabulary_.subscribe([this](const std::optional<std::string>& value) {
        const std::string text = value.value_or("");
        if (isDirty.get() || text == lastSavedText.get()) return;
        lastSavedText.set(text);
        vocabularyText.set(text);
    });
}

// Leaving the screen keeps what was typed.
VocabularyViewModel::~VocabularyViewModel() { flush(); }

void VocabularyViewModel::setText(const std::string& text) {
    if (text == vocabularyText.get()) return;
    vocabularyText.set(text);
    isDirty.set(true);
    autoSaveTask_.start(main_, kAutoSaveDelay, token_.guard([this] { autoSave(); }));
}

void VocabularyViewModel::flush() {
    if (!autoSaveTask_.isActive()) return;
    autoSaveTask_.cancel();
    autoSave();
}

void VocabularyViewModel::autoSave() {
    isDirty.set(false);
    if (vocabularyText.get() == lastSavedText.get()) return;
    const std::string text = vocabularyText.get();
    lastSavedText.set(text);
    vocabulary_.set(text);
    log("Vocabulary auto-saved at ", logDateText(main_.clock().now()));
}

}  // namespace vocle
