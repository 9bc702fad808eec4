#include "backend/SettingsRecords.h"

namespace vocle {

namespace {

bool isAbsent(const Json& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() || it->is_null();
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    if (isAbsent(object, key)) return std::nullopt;
    return requireBool(object, key);
}

template <class T>
std::vector<T> decodeArray(const Json& array) {
    std::vector<T> out;
    out.reserve(array.size());
    for (const auto& item : array) out.push_back(T::fromJson(item));
    return out;
}

template <class T>
std::optional<std::vector<T>> optionalArray(const Json& object, const char* key) {
    if (isAbsent(object, key)) return std::nullopt;
    return decodeArray<T>(requireArray(object, key));
}

template <class T>
Json encodeArray(const std::vector<T>& items) {
    Json out = Json::array();
    for (const auto& item : items) out.push_back(item.toJson());
    return out;
}

template <class T>
void putIfPresent(Json& json, const char* key, const std::optional<T>& value) {
    if (value) json[key] = *value;
}

}  // namespace

SettingsExample SettingsExample::fromJson(const Json& json) {
    requireObjectValue(json, "SettingsExample");
    return {requireString(json, "input"), requireString(json, "output")};
}

Json SettingsExample::toJson() const {
    return Json{{"input", input}, {"output", output}};
}

SettingsReplacement SettingsReplacement::fromJson(const Json& json) {
    requireObjectValue(json, "SettingsReplacement");
    return {requireString(json, "from"), requireString(json, "to")};
}

Json SettingsReplacement::toJson() const {
    return Json{{"from", from}, {"to", to}};
}

SettingsMode SettingsMode::fromJson(const Json& json) {
    requireObjectValue(json, "SettingsMode");
    SettingsMode m;
    m.id = requireString(json, "id");
    m.name = requireString(json, "name");
    m.type = requireString(json, "type");
    m.prompt = requireString(json, "prompt");
    m.language = requireString(json, "language");
    m.modeTypeId = optionalString(json, "mode_type_id");
    m.examples = optionalArray<SettingsExample>(json, "examples");
    m.activationWebsite = optionalString(json, "activation_website");
    m.activationApplication = optionalString(json, "activation_application");
    return m;
}

Json SettingsMode::toJson() const {
    Json j = Json::object();
    j["id"] = id;
    j["name"] = name;
    j["type"] = type;
    j["prompt"] = prompt;
    j["language"] = language;
    putIfPresent(j, "mode_type_id", modeTypeId);
    if (examples) j["examples"] = encodeArray(*examples);
    putIfPresent(j, "activation_website", activationWebsite);
    putIfPresent(j, "activation_application", activationApplication);
    return j;
}

SettingsDoc SettingsDoc::fromJson(const Json& json) {
    requireObjectValue(json, "SettingsDoc");
    SettingsDoc d;
    d.modes = optionalArray<SettingsMode>(json, "modes");
    d.textReplacements = optionalArray<SettingsReplacement>(json, "text_replacements");
    d.vocabWords = optionalString(json, "vocab_words");
    d.lastActiveModeId = optionalString(json, "last_active_mode_id");
    return d;
}

Json SettingsDoc::toJson() const {
    Json j = Json::object();
    if (modes) j["modes"] = encodeArray(*modes);
    if (textReplacements) j["text_replacements"] = encodeArray(*textReplacements);
    putIfPresent(j, "vocab_words", vocabWords);
    putIfPresent(j, "last_active_mode_id", lastActiveModeId);
    return j;
}

TemplateModeType TemplateModeType::fromJson(const Json& json) {
    requireObjectValue(json, "TemplateModeType");
    TemplateModeType t;
    t.id = requireString(json, "id");
    t.name = requireString(json, "name");
    t.prompt = requireString(json, "prompt");
    t.language = requireString(json, "language");
    t.description = optionalString(json, "description");
    t.display = optionalBool(json, "display");
    return t;
}

Json TemplateModeType::toJson() const {
    Json j = Json::object();
    j["id"] = id;
    j["name"] = name;
    j["prompt"] = prompt;
    j["language"] = language;
    putIfPresent(j, "description", description);
    putIfPresent(j, "display", display);
    return j;
}

TemplatesDoc TemplatesDoc::fromJson(const Json& json) {
    requireObjectValue(json, "TemplatesDoc");
    return {decodeArray<TemplateModeType>(requireArray(json, "mode_types"))};
}

Json TemplatesDoc::toJson() const {
    return Json{{"mode_types", encodeArray(modeTypes)}};
}

SettingsEnvelope SettingsEnvelope::fromJson(const Json& json) {
    requireObjectValue(json, "SettingsEnvelope");
    SettingsEnvelope e;
    if (!isAbsent(json, "settings")) e.settings = SettingsDoc::fromJson(json.at("settings"));
    e.settingsVersion = requireInteger(json, "settings_version");
    if (!isAbsent(json, "templates")) e.templates = TemplatesDoc::fromJson(json.at("templates"));
    e.templatesVersion = requireInteger(json, "templates_version");
    return e;
}

Json SettingsEnvelope::toJson() const {
    Json j = Json::object();
    if (settings) j["settings"] = settings->toJson();
    j["settings_version"] = settingsVersion;
    if (templates) j["templates"] = templates->toJson();
    j["templates_version"] = templatesVersion;
    return j;
}

BackupResponse BackupResponse::fromJson(const Json& json) {
    requireObjectValue(json, "BackupResponse");
    return {SettingsDoc::fromJson(requireObject(json, "settings")), requireInteger(json, "settings_version")};
}

Json BackupResponse::toJson() const {
    return Json{{"settings", settings.toJson()}, {"settings_version", settingsVersion}};
}

}  // namespace vocle
