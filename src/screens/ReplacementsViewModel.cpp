#include "screens/ReplacementsViewModel.h"

#include <algorithm>

#include "foundation/Text.h"

namespace vocle {

ReplacementsViewModel::ReplacementsViewModel(MainQueue& main, Observable<std::vector<Replacement>>& replacements,
                                             const FileStorageManager& files)
    : main_(main), replacements_(replacements), files_(files) {
    listSubscription_ = replacements_.subscribe([this](const auto&) { changed.emit(); });
}

// Leaving the screen keeps a pending edit.
ReplacementsViewModel::~ReplacementsViewModel() {
    if (autoSaveTask_.isActive()) {
        autoSaveTask_.cancel();
        commitEdit();
    }
}

std::string ReplacementsViewModel::drawerTitle() const {
    return drawerMode.get() == DrawerMode::add ? "Add Replacement" : "Edit Replacement";
}

void ReplacementsViewModel::openAdd() {
    autoSaveTask_.cancel();
    drawerMode.set(DrawerMode::add);
    editingReplacement.set(std::nullopt);
    drawerOriginal.set("");
    drawerReplacement.set("");
    drawerError.set(std::nullopt);
    showingDrawer.set(true);
    changed.emit();
}

void ReplacementsViewModel::openEdit(const Uuid& id) {
    const auto& list = replacements_.get();
    auto it = std::find_if(list.begin(), list.end(), [&](const Replacement& r) { return r.id == id; });
    if (it == list.end()) return;
    if (autoSaveTask_.isActive()) {
        autoSaveTask_.cancel();
        commitEdit();
    }
    drawerMode.set(DrawerMode::edit);
    editingReplacement.set(*it);
    drawerOriginal.set(it->original);
    drawerReplacement.set(it->replacement);
    drawerError.set(std::nullopt);
    showingDrawer.set(true);
    changed.emit();
}

void ReplacementsViewModel::setDrawerOriginal(const std::string& text) {
    if (text == drawerOriginal.get()) return;
    drawerOriginal.set(text);
    drawerError.set(std::nullopt);
    if (drawerMode.get() == DrawerMode::edit) scheduleAutoSave();
    changed.emit();
}

void ReplacementsViewModel::setDrawerReplacement(const std::string& text) {
    if (text == drawerReplacement.get()) return;
    drawerReplacement.set(text);
    if (drawerMode.get() == DrawerMode::edit) scheduleAutoSave();
    changed.emit();
}

void ReplacementsViewModel::scheduleAutoSave() {
    autoSaveTask_.start(main_, kAutoSaveDelay, token_.guard([this] {
        commitEdit();
        changed.emit();
    }));
}

bool ReplacementsViewModel::commitEdit() {
    const auto& editing = editingReplacement.get();
    if (!editing) return false;
    // An emptied original would match nothing; the stored pair stays until the field is filled again.
    if (trimWhitespace(drawerOriginal.get()).empty()) {
        drawerError.set(std::string(kEmptyOriginalError));
        return false;
    }
    auto list = replacements_.get();
    auto it = std::find_if(list.begin(), list.end(), [&](const Replacement& r) { return r.id == editing->id; });
    if (it == list.end()) return false;
    if (it->original != drawerOriginal.get() || it->replacement != drawerReplacement.get()) {
        it->original = drawerOriginal.get();
        it->replacement = drawerReplacement.get();
        editingReplacement.set(*it);
        replacements_.set(std::move(list));
    }
    markOnboardingStep();
    return true;
}

bool ReplacementsViewModel::saveDrawer() {
    autoSaveTask_.cancel();
    if (drawerMode.get() == DrawerMode::edit) {
        if (!commitEdit()) {
            changed.emit();
            return false;
        }
        showingDrawer.set(false);
        changed.emit();
        return true;
    }
    if (trimWhitespace(drawerOriginal.get()).empty()) {
        drawerError.set(std::string(kEmptyOriginalError));
        changed.emit();
        return false;
    }
    auto list = replacements_.get();
    list.push_back(Replacement::make(drawerOriginal.get(), drawerReplacement.get()));
    replacements_.set(std::move(list));
    markOnboardingStep();
    showingDrawer.set(false);
    changed.emit();
    return true;
}

void ReplacementsViewModel::deleteEditing() {
    autoSaveTask_.cancel();
    if (auto editing = editingReplacement.get()) deleteReplacement(editing->id);
    editingReplacement.set(std::nullopt);
    showingDrawer.set(false);
    changed.emit();
}

void ReplacementsViewModel::deleteReplacement(const Uuid& id) {
    auto list = replacements_.get();
    auto end = std::remove_if(list.begin(), list.end(), [&](const Replacement& r) { return r.id == id; });
    if (end == list.end()) return;
    list.erase(end, list.end());
    replacements_.set(std::move(list));
}

void ReplacementsViewModel::closeDrawer() {
    if (autoSaveTask_.isActive()) {
        autoSaveTask_.cancel();
        commitEdit();
    }
    showingDrawer.set(false);
    changed.emit();
}

void ReplacementsViewModel::markOnboardingStep() {
    auto state = files_.loadOnboardingState();
    state.hasAddedOrEditedReplacement = true;
    files_.saveOnboardingState(state);
}

}  // namespace vocle
