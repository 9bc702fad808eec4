#include "backend/SettingsDocument.h"

namespace vocle {

SettingsMode settingsMode(const Mode& mode) {
    SettingsMode m;
    m.id = mode.id.string();
    m.name = mode.name;
    m.type = mode.type.value_or("Custom");
    m.prompt = mode.prompt;
    m.language = mode.language;
    m.modeTypeId = mode.modeTypeId;
    m.examples = std::vector<SettingsExample>{};
    if (!mode.activationWebsite.empty()) m.activationWebsite = mode.activationWebsite;
    if (!mode.activationApplication.empty()) m.activationApplication = mode.activationApplication;
    return m;
}

SettingsDoc settingsDocument(const std::vector<Mode>& modes, const std::optional<Uuid>& activeModeId,
                             const std::optional<std::string>& vocabulary,
                             const std::vector<Replacement>& replacements) {
    SettingsDoc doc;
    doc.modes.emplace();
    doc.modes->reserve(modes.size());
    for (const auto& mode : modes) doc.modes->push_back(settingsMode(mode));
    doc.textReplacements.emplace();
    doc.textReplacements->reserve(replacements.size());
    for (const auto& r : replacements) doc.textReplacements->push_back({r.original, r.replacement});
    doc.vocabWords = vocabulary.value_or("");
    if (activeModeId) doc.lastActiveModeId = activeModeId->string();
    return doc;
}

}  // namespace vocle
