#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Replacement.h"
#include "foundation/Json.h"
#include "foundation/Uuid.h"

namespace vocle {

// A replacement as stored: only "from" and "to" are written; every decode gets a fresh id.
struct StoredTextReplacement {
    Uuid id = Uuid::random();
    std::string from;
    std::string to;

    static StoredTextReplacement fromJson(const Json& json);
    Json toJson() const;
    static StoredTextReplacement fromReplacement(const Replacement& r) { return {Uuid::random(), r.original, r.replacement}; }
    Replacement toReplacement() const { return Replacement::make(from, to); }
};

// The user's settings record, "settings.json". Optional fields are written only when present.
struct AppSettings {
    std::vector<StoredTextReplacement> textReplacements;
    std::string vocabularyWords;
    std::optional<std::string> lastActiveModeId;
    bool useSystemDefaultAudio = true;
    std::optional<std::string> inputDeviceUID;
    std::optional<std::string> inputDeviceName;
    bool enableSoundEffects = true;
    double soundVolume = 0.6;
    // JSON bytes of a Shortcut record; Base64 in the file. None means the built-in default.
    std::optional<std::string> toggleShortcut;
    std::optional<std::string> cancelShortcut;
    // The recogniser's words beside the indicator while recording; absent in older files (on).
    bool showLivePreview = true;

    static const AppSettings& defaults();
    static AppSettings fromJson(const Json& json);
    Json toJson() const;
};

// The home checklist's record, "onboarding.json". All four keys are required.
struct OnboardingState {
    bool firstRecordingComplete = false;
    bool isFirstLaunch = true;
    int lastSelectedTab = -1;
    bool hasAddedOrEditedReplacement = false;

    static OnboardingState fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const OnboardingState&, const OnboardingState&) = default;
};

// The backend's template document as last fetched; `cachedAt` is seconds since 1970.
struct CloudTemplatesCache {
    std::string templatesJSON;
    double cachedAt = 0;

    static CloudTemplatesCache fromJson(const Json& json);
    Json toJson() const;
};

}  // namespace vocle
