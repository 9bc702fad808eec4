#include "screens/ModeDetailViewModel.h"

#include <algorithm>
#include <map>

#include "backend/LanguageCodes.h"
#include "backend/SettingsRecords.h"
#include "foundation/Json.h"
#include "foundation/Log.h"

namespace vocle {

namespace {

std::optional<TemplatesDoc> cachedTemplates(const FileStorageManager& files) {
    auto cached = files.loadCloudTemplatesCache();
    if (!cached) return std::nullopt;
    try {
        return TemplatesDoc::fromJson(parseJson(*cached));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string templateDescription(const TemplateModeType& t) { return t.description.value_or(t.prompt); }

}  // namespace

ModeDetailViewModel::ModeDetailViewModel(ModeDetailDependencies deps, const Mode& m) : d_(std::move(deps)) {
    mode.set(m);
    selectedModeType.set(m.type.value_or(kCustomType));
    selectedModeTypeId.set(m.modeTypeId);
    const auto& existing = d_.modeManager.modes.get();
    isNewMode_ = std::none_of(existing.begin(), existing.end(), [&](const Mode& x) { return x.id == m.id; });

    for (const auto& [name, code] : languageCodeMapping()) languages_.push_back(name);
    if (std::find(languages_.begin(), languages_.end(), m.language) == languages_.end())
        languages_.insert(languages_.begin(), m.language);

    applications_ = d_.installedApplications;
    std::stable_sort(applications_.begin(), applications_.end(),
                     [](const InstalledApplication& a, const InstalledApplication& b) { return a.name < b.name; });
    loadModeTypes();
}

void ModeDetailViewModel::loadModeTypes() {
    modeTypes_.push_back({std::nullopt, kCustomType, fixedTypeDescription(kCustomType)});
    auto doc = cachedTemplates(d_.files);
    if (!doc) {
        log("ModeDetailView: No backend templates available");
        return;
    }
    for (const auto& t : doc->modeTypes) {
        if (t.display.has_value() && !*t.display) continue;
        modeTypes_.push_back({t.id, t.name, templateDescription(t)});
    }
}

std::string ModeDetailViewModel::selectedTypeDescription() const {
    const auto& name = selectedModeType.get();
    if (auto doc = cachedTemplates(d_.files)) {
        for (const auto& t : doc->modeTypes)
            if (t.name == name) return templateDescription(t);
    }
    return fixedTypeDescription(name);
}

std::string ModeDetailViewModel::applicationDisplayName() const {
    const auto& id = mode.get().activationApplication;
    return id.empty() ? std::string() : applicationName(id, applications_);
}

std::string ModeDetailViewModel::deleteConfirmationText() const {
    return "Are you sure you want to delete: " + mode.get().name;
}

void ModeDetailViewModel::update(const std::function<void(Mode&)>& change) {
    Mode m = mode.get();
    change(m);
    mode.set(std::move(m));
    changed.emit();
}

void ModeDetailViewModel::setName(const std::string& name) {
    update([&](Mode& m) { m.name = name; });
}
void ModeDetailViewModel::setPrompt(const std::string& prompt) {
    update([&](Mode& m) { m.prompt = prompt; });
}
void ModeDetailViewModel::setLanguage(const std::string& language) {
    update([&](Mode& m) { m.language = language; });
}
void ModeDetailViewModel::setMuteWhileRecording(bool on) {
    update([&](Mode& m) { m.muteWhileRecording = on; });
}
void ModeDetailViewModel::setActivationWebsite(const std::string& website) {
    update([&](Mode& m) { m.activationWebsite = website; });
}

void ModeDetailViewModel::setRecordSystemAudio(bool on) {
    if (!on) {
        update([](Mode& m) { m.recordSystemAudio = false; });
        return;
    }
    if (!d_.screenCapture.isSupported()) {
        update([](Mode& m) { m.recordSystemAudio = false; });
        showIncompatibleSystemAudioAlert.set(true);
        changed.emit();
        return;
    }
    // Muting the output would leave the captured system audio silent.
    update([](Mode& m) {
        m.muteWhileRecording = false;
        m.recordSystemAudio = true;
    });
    if (!d_.screenCapture.preflightAccess()) {
        bool granted = d_.screenCapture.requestAccess();
        d_.mainQueue.post(token_.guard([granted] {
            if (!granted) log("ModeDetailView: Screen capture access not granted");
        }));
    }
}

void ModeDetailViewModel::toggleDropdown() {
    isDropdownOpen.set(!isDropdownOpen.get());
    changed.emit();
}

void ModeDetailViewModel::chooseModeType(const ModeTypeItem& item) {
    selectedModeType.set(item.name);
    selectedModeTypeId.set(item.id);
    isDropdownOpen.set(false);
    changed.emit();
}

void ModeDetailViewModel::chooseApplication(const std::string& desktopId) {
    update([&](Mode& m) { m.activationApplication = desktopId; });
}

void ModeDetailViewModel::clearApplication() {
    update([](Mode& m) { m.activationApplication.clear(); });
}

void ModeDetailViewModel::requestDelete() {
    showingDeleteConfirmation.set(true);
    changed.emit();
}

void ModeDetailViewModel::cancelDelete() {
    showingDeleteConfirmation.set(false);
    changed.emit();
}

void ModeDetailViewModel::confirmDelete() {
    showingDeleteConfirmation.set(false);
    changed.emit();
    d_.modeManager.deleteMode(mode.get());
}

void ModeDetailViewModel::dismissIncompatibleSystemAudioAlert() {
    showIncompatibleSystemAudioAlert.set(false);
    changed.emit();
}

void ModeDetailViewModel::save() {
    Mode m = mode.get();
    m.type = selectedModeType.get();
    m.modeTypeId = selectedModeTypeId.get();
    mode.set(m);
    auto& manager = d_.modeManager;
    manager.saveMode(m);
    // saveMode's body runs on a later turn, so this first re-selects the stored version; the queued
    // save then replaces it with the edited one.
    const auto& active = manager.activeMode.get();
    if (active && active->id == m.id) manager.setActiveMode(m);
}

void ModeDetailViewModel::cancel() { d_.modeManager.cancelEditing(); }

std::string ModeDetailViewModel::fixedTypeDescription(const std::string& typeName) {
    static const std::map<std::string, std::string> fixed = {
        {"Raw", "Unprocessed transcription."},
        {"Clean", "Fillers removed and proper punctuation."},
        {"Message", "Formats text for chat messages and short communications."},
        {"Email", "Structures text in email format with greetings and signatures."},
        {"Simple Note", "Simple shorthand bullet format for notes and quick thoughts."},
        {"Organized Note", "Automatically organize your thoughts and ideas."},
        {"Custom", "Define your own prompts for specific use cases."},
    };
    if (auto it = fixed.find(typeName); it != fixed.end()) return it->second;
    return typeName.empty() ? std::string() : std::string("Custom mode type");
}

std::string ModeDetailViewModel::typeIcon(const std::string& typeName) {
    static const std::map<std::string, std::string> icons = {
        {"Raw", "doc.text"},       {"Clean", "sparkles"},          {"Message", "message"},
        {"Email", "envelope"},     {"Simple Note", "note.text"},   {"Organized Note", "list.bullet"},
        {"Custom", "wand.and.stars"},
    };
    if (auto it = icons.find(typeName); it != icons.end()) return it->second;
    return "doc";
}

std::string ModeDetailViewModel::applicationName(const std::string& id,
                                                 const std::vector<InstalledApplication>& installed) {
    for (const auto& app : installed)
        if (app.desktopId == id) return app.name.empty() ? id : app.name;
    static const std::map<std::string, std::string> wellKnown = {
        {"com.apple.Safari", "Safari"},
        {"com.google.Chrome", "Google Chrome"},
        {"org.mozilla.firefox", "Firefox"},
        {"company.thebrowser.Browser", "Arc"},
        {"com.microsoft.VSCode", "Visual Studio Code"},
        {"com.apple.TextEdit", "TextEdit"},
        {"com.apple.Notes", "Notes"},
        {"com.apple.mail", "Mail"},
    };
    if (auto it = wellKnown.find(id); it != wellKnown.end()) return it->second;
    return id;
}

}  // namespace vocle
