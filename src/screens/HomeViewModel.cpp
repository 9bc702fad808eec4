#include "screens/HomeViewModel.h"

#include <algorithm>

namespace vocle {

HomeViewModel::HomeViewModel(HomeDependencies deps) : d_(deps) {
    subscriptions_.push_back(d_.modeManager.modes.subscribe([this](const auto&) { evaluate(); }));
    subscriptions_.push_back(d_.vocabulary.subscribe([this](const auto&) { evaluate(); }));
    if (d_.remoteInput)
        subscriptions_.push_back(
            d_.remoteInput->observeState(token_.guard([this](RemoteInputState) { evaluate(); })));
    refresh();
}

void HomeViewModel::refresh() {
    microphoneAuthorized.set(d_.permissions.microphoneAuthorized());
    accessibilityAuthorized.set(d_.permissions.accessibilityTrusted(false));
    evaluate();
}

void HomeViewModel::evaluate() {
    const auto onboarding = d_.files.loadOnboardingState();
    const auto& modes = d_.modeManager.modes.get();
    const bool hasCustomMode = std::any_of(modes.begin(), modes.end(), [](const Mode& m) {
        return m.type == std::optional<std::string>("Custom") || !m.modeTypeId.has_value();
    });
    const auto& vocabulary = d_.vocabulary.get();
    const bool hasVocabulary = vocabulary.has_value() && !vocabulary->empty();
    const bool mic = microphoneAuthorized.get();
    const bool ax = accessibilityAuthorized.get();
    std::vector<ChecklistItem> list;
    steps_.clear();
    auto add = [&](Step step, ChecklistItem item) {
        steps_.push_back(step);
        list.push_back(std::move(item));
    };
    add(microphone, {"Grant microphone permission", mic, !mic});
    add(accessibility, {"Grant accessibility permission", ax, !ax});
    if (d_.remoteInput) {
        const auto state = d_.remoteInput->state();
        // While the desktop's dialog is open a click would only join the same request.
        add(remoteInput, {"Grant remote input permission", state == RemoteInputState::granted,
                          state == RemoteInputState::notGranted || state == RemoteInputState::refused});
    }
    add(customMode, {"Create your first custom mode", hasCustomMode, true});
    add(replacement, {"Add/Edit replacement", onboarding.hasAddedOrEditedReplacement, true});
    add(HomeViewModel::vocabulary, {"Add custom vocabulary", hasVocabulary, true});
    add(firstRecording, {"Complete your first recording", onboarding.firstRecordingComplete, false});
    items.set(std::move(list));
    changed.emit();
}

int HomeViewModel::completedCount() const {
    const auto& list = items.get();
    return static_cast<int>(
        std::count_if(list.begin(), list.end(), [](const ChecklistItem& i) { return i.isCompleted; }));
}

std::string HomeViewModel::progressText() const {
    return std::to_string(completedCount()) + " of " + std::to_string(totalSteps()) + " complete";
}

double HomeViewModel::progress() const {
    return totalSteps() == 0 ? 0.0 : static_cast<double>(completedCount()) / totalSteps();
}

std::optional<ChecklistItem> HomeViewModel::item(Step step) const {
    for (size_t row = 0; row < steps_.size(); ++row)
        if (steps_[row] == step) return items.get().at(row);
    return std::nullopt;
}

std::vector<std::string> HomeViewModel::toggleShortcutParts() const {
    const auto s = d_.shortcuts.toggleShortcut();
    return d_.shortcuts.displayParts(s.keyCode, s.modifiers);
}

void HomeViewModel::open(const char* url) {
    openProblem.set(std::nullopt);
    d_.urlOpener.openURL(url, token_.guard([this](const std::string& message) {
        openProblem.set(message);
        changed.emit();
    }));
}

void HomeViewModel::activate(Step step) {
    switch (step) {
        case microphone:
            if (!microphoneAuthorized.get()) open(kMicrophoneSettingsURL);
            break;
        case accessibility:
            if (accessibilityAuthorized.get()) break;
            if (!d_.permissions.accessibilityTrusted(true)) open(kAccessibilitySettingsURL);
            accessibilityAuthorized.set(d_.permissions.accessibilityTrusted(false));
            evaluate();
            break;
        case customMode:
            d_.selectedTab.set(0);
            d_.modeManager.createNewMode();
            break;
        case replacement:
            d_.selectedTab.set(1);
            break;
        case vocabulary:
            d_.selectedTab.set(2);
            break;
        case firstRecording:
            break;
        case remoteInput:
            if (d_.remoteInput && (d_.remoteInput->state() == RemoteInputState::notGranted ||
                                   d_.remoteInput->state() == RemoteInputState::refused))
                d_.remoteInput->request();
            break;
    }
}

}  // namespace vocle
