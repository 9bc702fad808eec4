#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Json.h"

namespace vocle {

// Wire records of the settings and templates documents. Optional members read absent or null as
// none and are left out when none (no null is ever written). fromJson throws DecodingError.

struct SettingsExample {
    std::string input;
    std::string output;

    static SettingsExample fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SettingsExample&, const SettingsExample&) = default;
};

struct SettingsReplacement {
    std::string from;
    std::string to;

    static SettingsReplacement fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SettingsReplacement&, const SettingsReplacement&) = default;
};

struct SettingsMode {
    std::string id;
    std::string name;
    std::string type;
    std::string prompt;
    std::string language;
    std::optional<std::string> modeTypeId;  // "mode_type_id"
    std::optional<std::vector<SettingsExample>> examples;
    std::optional<std::string> activationWebsite;      // "activation_website"
    std::optional<std::string> activationApplication;  // "activation_application"

    static SettingsMode fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SettingsMode&, const SettingsMode&) = default;
};

struct SettingsDoc {
    std::optional<std::vector<SettingsMode>> modes;
    std::optional<std::vector<SettingsReplacement>> textReplacements;  // "text_replacements"
    std::optional<std::string> vocabWords;                             // "vocab_words"
    std::optional<std::string> lastActiveModeId;                       // "last_active_mode_id"

    static SettingsDoc fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SettingsDoc&, const SettingsDoc&) = default;
};

struct TemplateModeType {
    std::string id;
    std::string name;
    std::string prompt;
    std::string language;
    std::optional<std::string> description;
    std::optional<bool> display;

    static TemplateModeType fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const TemplateModeType&, const TemplateModeType&) = default;
};

struct TemplatesDoc {
    std::vector<TemplateModeType> modeTypes;  // "mode_types"

    static TemplatesDoc fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const TemplatesDoc&, const TemplatesDoc&) = default;
};

// GET "/settings".
struct SettingsEnvelope {
    std::optional<SettingsDoc> settings;
    int64_t settingsVersion = 0;  // "settings_version"
    std::optional<TemplatesDoc> templates;
    int64_t templatesVersion = 0;  // "templates_version"

    static SettingsEnvelope fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const SettingsEnvelope&, const SettingsEnvelope&) = default;
};

// POST "/settings".
struct BackupResponse {
    SettingsDoc settings;
    int64_t settingsVersion = 0;

    static BackupResponse fromJson(const Json& json);
    Json toJson() const;
    friend bool operator==(const BackupResponse&, const BackupResponse&) = default;
};

}  // namespace vocle
