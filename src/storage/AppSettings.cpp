#include "storage/AppSettings.h"

#include "foundation/Base64.h"
#include "foundation/Clock.h"

namespace vocle {

StoredTextReplacement StoredTextReplacement::fromJson(const Json& json) {
    requireObjectValue(json, "StoredTextReplacement");
    return {Uuid::random(), requireString(json, "from"), requireString(json, "to")};
}

Json StoredTextReplacement::toJson() const { return Json{{"from", from}, {"to", to}}; }

const AppSettings& AppSettings::defaults() {
    static const AppSettings value{};
    return value;
}

namespace {
std::optional<std::string> optionalBlob(const Json& json, const char* key) {
    auto text = optionalString(json, key);
    if (!text) return std::nullopt;
    auto bytes = base64::decode(*text);
    if (!bytes) throw DecodingError(std::string("Invalid Base64 data for key \"") + key + "\"");
    return bytes;
}
}  // namespace

AppSettings AppSettings::fromJson(const Json& json) {
    requireObjectValue(json, "AppSettings");
    AppSettings s;
    for (const auto& item : requireArray(json, "textReplacements")) {
        s.textReplacements.push_back(StoredTextReplacement::fromJson(item));
    }
    s.vocabularyWords = requireString(json, "vocabularyWords");
    s.lastActiveModeId = optionalString(json, "lastActiveModeId");
    s.useSystemDefaultAudio = requireBool(json, "useSystemDefaultAudio");
    s.inputDeviceUID = optionalString(json, "inputDeviceUID");
    s.inputDeviceName = optionalString(json, "inputDeviceName");
    s.enableSoundEffects = requireBool(json, "enableSoundEffects");
    s.soundVolume = requireNumber(json, "soundVolume");
    s.toggleShortcut = optionalBlob(json, "toggleShortcut");
    s.cancelShortcut = optionalBlob(json, "cancelShortcut");
    if (auto it = json.find("showLivePreview"); it != json.end()) {
        if (!it->is_boolean()) throw DecodingError("AppSettings.showLivePreview is not a boolean");
        s.showLivePreview = it->get<bool>();
    }
    return s;
}

Json AppSettings::toJson() const {
    Json j = Json::object();
    Json list = Json::array();
    for (const auto& r : textReplacements) list.push_back(r.toJson());
    j["textReplacements"] = std::move(list);
    j["vocabularyWords"] = vocabularyWords;
    if (lastActiveModeId) j["lastActiveModeId"] = *lastActiveModeId;
    j["useSystemDefaultAudio"] = useSystemDefaultAudio;
    if (inputDeviceUID) j["inputDeviceUID"] = *inputDeviceUID;
    if (inputDeviceName) j["inputDeviceName"] = *inputDeviceName;
    j["enableSoundEffects"] = enableSoundEffects;
    j["soundVolume"] = soundVolume;
    if (toggleShortcut) j["toggleShortcut"] = base64::encode(*toggleShortcut);
    if (cancelShortcut) j["cancelShortcut"] = base64::encode(*cancelShortcut);
    j["showLivePreview"] = showLivePreview;
    return j;
}

OnboardingState OnboardingState::fromJson(const Json& json) {
    requireObjectValue(json, "OnboardingState");
    OnboardingState s;
    s.firstRecordingComplete = requireBool(json, "firstRecordingComplete");
    s.isFirstLaunch = requireBool(json, "isFirstLaunch");
    s.lastSelectedTab = static_cast<int>(requireInteger(json, "lastSelectedTab"));
    s.hasAddedOrEditedReplacement = requireBool(json, "hasAddedOrEditedReplacement");
    return s;
}

Json OnboardingState::toJson() const {
    return Json{{"firstRecordingComplete", firstRecordingComplete},
                {"isFirstLaunch", isFirstLaunch},
                {"lastSelectedTab", lastSelectedTab},
                {"hasAddedOrEditedReplacement", hasAddedOrEditedReplacement}};
}

CloudTemplatesCache CloudTemplatesCache::fromJson(const Json& json) {
    requireObjectValue(json, "CloudTemplatesCache");
    return {requireString(json, "templatesJSON"), fromReferenceDate(requireNumber(json, "cachedAt"))};
}

Json CloudTemplatesCache::toJson() const {
    return Json{{"templatesJSON", templatesJSON}, {"cachedAt", toReferenceDate(cachedAt)}};
}

}  // namespace vocle
