#include "core/Mode.h"

namespace vocle {

Mode Mode::fresh(std::string name) {
    Mode m;
    m.name = std::move(name);
    return m;
}

namespace {
Uuid requireUuid(const Json& json, const char* key) {
    const std::string text = requireString(json, key);
    auto id = Uuid::parse(text);
    if (!id) throw DecodingError(std::string("Invalid UUID string for key \"") + key + "\": " + text);
    return *id;
}
}  // namespace

Mode Mode::fromJson(const Json& json) {
    requireObjectValue(json, "Mode");
    Mode m;
    m.id = requireUuid(json, "id");
    m.name = requireString(json, "name");
    m.type = optionalString(json, "type");
    m.modeTypeId = optionalString(json, "modeTypeId");
    m.isDefault = requireBool(json, "isDefault");
    m.prompt = requireString(json, "prompt");
    m.language = requireString(json, "language");
    m.muteWhileRecording = requireBool(json, "muteWhileRecording");
    m.recordSystemAudio = requireBool(json, "recordSystemAudio");
    m.activationWebsite = requireString(json, "activationWebsite");
    m.activationApplication = requireString(json, "activationApplication");
    return m;
}

Json Mode::toJson() const {
    Json j = Json::object();
    j["id"] = id.string();
    j["name"] = name;
    if (type) j["type"] = *type;
    if (modeTypeId) j["modeTypeId"] = *modeTypeId;
    j["isDefault"] = isDefault;
    j["prompt"] = prompt;
    j["language"] = language;
    j["muteWhileRecording"] = muteWhileRecording;
    j["recordSystemAudio"] = recordSystemAudio;
    j["activationWebsite"] = activationWebsite;
    j["activationApplication"] = activationApplication;
    return j;
}

}  // namespace vocle
