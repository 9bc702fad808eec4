#include <gtest/gtest.h>

#include "platform/testing/FakeScreenCapture.h"
#include "screens/ModeDetailViewModel.h"
#include "unit/modes/ModesTestGraph.h"

using namespace vocle;
using vocle::testing::FakeScreenCapture;
using vocle::testing::ModesTestGraph;

namespace {

Json templateJson(const std::string& id, const std::string& name, std::optional<std::string> description,
                  std::optional<bool> display) {
    Json t = {{"id", id}, {"name", name}, {"prompt", name + " prompt"}, {"language", "English"}};
    if (description) t["description"] = *description;
    if (display) t["display"] = *display;
    return t;
}

class ModeDetailTest : public ::testing::Test {
  protected:
    std::unique_ptr<ModeDetailViewModel> editor(const Mode& mode, std::vector<InstalledApplication> apps = {}) {
        return std::make_unique<ModeDetailViewModel>(
            ModeDetailDependencies{g.queue, *g.modeManager, g.files, screenCapture, std::move(apps)}, mode);
    }
    ModeManager& mm() { return *g.modeManager; }

    ModesTestGraph g;
    FakeScreenCapture screenCapture;
};

TEST_F(ModeDetailTest, WithoutATemplatesCacheOnlyCustomIsOffered) {
    auto vm = editor(Mode::fresh("New Mode"));
    ASSERT_EQ(vm->modeTypes().size(), 1u);
    EXPECT_EQ(vm->modeTypes()[0], (ModeTypeItem{std::nullopt, "Custom", "Define your own prompts for specific use cases."}));
    EXPECT_TRUE(g.logs->contains("ModeDetailView: No backend templates available"));

    g.logs->clear();
    g.files.saveCloudTemplatesCache("{not json");
    auto broken = editor(Mode::fresh("New Mode"));
    EXPECT_EQ(broken->modeTypes().size(), 1u);
    EXPECT_TRUE(g.logs->contains("ModeDetailView: No backend templates available"));
}

TEST_F(ModeDetailTest, HiddenTemplatesAreLeftOutAndDescriptionsFallBackToThePrompt) {
    g.cacheTemplates({{"mode_types",
                       {templateJson("t1", "Clean", "Tidy text", std::nullopt),
                        templateJson("t2", "Secret", "hidden", false), templateJson("t3", "Email", std::nullopt, true)}}});
    auto vm = editor(Mode::fresh("New Mode"));
    ASSERT_EQ(vm->modeTypes().size(), 3u);
    EXPECT_EQ(vm->modeTypes()[0].name, "Custom");
    EXPECT_EQ(vm->modeTypes()[1], (ModeTypeItem{std::string("t1"), "Clean", "Tidy text"}));
    EXPECT_EQ(vm->modeTypes()[2], (ModeTypeItem{std::string("t3"), "Email", "Email prompt"}));

    vm->chooseModeType(vm->modeTypes()[1]);
    EXPECT_EQ(vm->selectedTypeDescription(), "Tidy text");
    // A type the cache does not know keeps its fixed text.
    vm->chooseModeType({std::nullopt, "Organized Note", ""});
    EXPECT_EQ(vm->selectedTypeDescription(), "Automatically organize your thoughts and ideas.");
    EXPECT_EQ(ModeDetailViewModel::fixedTypeDescription("Dictaphone"), "Custom mode type");
    EXPECT_EQ(ModeDetailViewModel::typeIcon("Simple Note"), "note.text");
    EXPECT_EQ(ModeDetailViewModel::typeIcon("Dictaphone"), "doc");
}

TEST_F(ModeDetailTest, SystemAudioClearsMuteAndAsksForCaptureAccessOnlyWhenNeeded) {
    Mode m = Mode::fresh("Calls");
    m.muteWhileRecording = true;
    auto vm = editor(m);
    vm->setRecordSystemAudio(true);
    EXPECT_TRUE(vm->mode.get().recordSystemAudio);
    EXPECT_FALSE(vm->mode.get().muteWhileRecording);
    EXPECT_EQ(screenCapture.requestCount, 0);

    vm->setRecordSystemAudio(false);
    vm->setMuteWhileRecording(true);
    screenCapture.preflight = false;
    vm->setRecordSystemAudio(true);
    EXPECT_EQ(screenCapture.requestCount, 1);
    EXPECT_FALSE(vm->mode.get().muteWhileRecording);
    // Turning system audio off does not bring muting back.
    vm->setRecordSystemAudio(false);
    EXPECT_FALSE(vm->mode.get().muteWhileRecording);
}

TEST_F(ModeDetailTest, WithoutSystemAudioSupportTheSwitchSpringsBackWithTheAlert) {
    screenCapture.supported = false;
    Mode m = Mode::fresh("Calls");
    m.muteWhileRecording = true;
    auto vm = editor(m);
    vm->setRecordSystemAudio(true);
    EXPECT_FALSE(vm->mode.get().recordSystemAudio);
    EXPECT_TRUE(vm->mode.get().muteWhileRecording);
    EXPECT_TRUE(vm->showIncompatibleSystemAudioAlert.get());
}

TEST_F(ModeDetailTest, ApplicationNamesComeFromTheInstalledListThenTheTableThenTheId) {
    std::vector<InstalledApplication> apps = {{"org.gnome.TextEditor", "Text Editor"}, {"firefox-esr", "Firefox ESR"}};
    Mode m = Mode::fresh("Writing");
    m.activationApplication = "org.gnome.TextEditor";
    auto vm = editor(m, apps);
    EXPECT_EQ(vm->applicationDisplayName(), "Text Editor");
    EXPECT_EQ(vm->installedApplications().front().name, "Firefox ESR");

    vm->chooseApplication("com.microsoft.VSCode");
    EXPECT_EQ(vm->applicationDisplayName(), "Visual Studio Code");
    vm->chooseApplication("org.example.Gone");
    EXPECT_EQ(vm->applicationDisplayName(), "org.example.Gone");
    vm->clearApplication();
    EXPECT_EQ(vm->mode.get().activationApplication, "");
    EXPECT_EQ(vm->applicationDisplayName(), "");
}

TEST_F(ModeDetailTest, LanguagePickerListsTheTableAndKeepsAnUnknownStoredLanguage) {
    auto vm = editor(Mode::fresh("A"));
    const auto& langs = vm->languages();
    EXPECT_EQ(langs.size(), 50u);
    EXPECT_NE(std::find(langs.begin(), langs.end(), "English"), langs.end());

    Mode odd = Mode::fresh("B");
    odd.language = "Klingon";
    auto vm2 = editor(odd);
    EXPECT_EQ(vm2->languages().front(), "Klingon");
    EXPECT_EQ(vm2->languages().size(), 51u);
}

TEST_F(ModeDetailTest, SavingTheActiveModeEndsWithTheEditedVersionActiveAndSavedTwice) {
    Mode def = Mode::fresh("Default");
    def.isDefault = true;
    Mode mail = Mode::fresh("Mail");
    g.modesStore.saveModes({def, mail});
    mm().loadModes();
    mm().setActiveMode(mail);
    g.queue.runUntilIdle();
    mm().startEditing(mail);

    auto vm = editor(mail);
    EXPECT_FALSE(vm->isNewMode());
    vm->setName("Mail (short)");
    vm->chooseModeType({std::string("t9"), "Message", ""});

    std::vector<std::string> activeNames;
    auto sub = mm().activeMode.subscribe([&](const std::optional<Mode>& m) { activeNames.push_back(m ? m->name : "none"); });
    g.logs->clear();
    vm->save();
    // The immediate re-selection sees the stored, older version.
    ASSERT_EQ(activeNames, (std::vector<std::string>{"Mail"}));
    g.queue.runUntilIdle();
    EXPECT_EQ(activeNames.back(), "Mail (short)");
    EXPECT_TRUE(g.logs->contains("ModeManager: Updated activeMode with new settings"));
    EXPECT_EQ(mm().activeMode.get()->type, std::optional<std::string>("Message"));
    EXPECT_EQ(mm().activeMode.get()->modeTypeId, std::optional<std::string>("t9"));
    auto stored = g.modesStore.loadModes();
    ASSERT_TRUE(stored);
    EXPECT_EQ((*stored)[1].name, "Mail (short)");
}

TEST_F(ModeDetailTest, ANewModeIsAddedAndActivatedAndCancelLeavesTheListAlone) {
    Mode def = Mode::fresh("Default");
    def.isDefault = true;
    g.modesStore.saveModes({def});
    mm().loadModes();
    mm().createNewMode();
    auto vm = editor(*mm().selectedMode.get());
    EXPECT_TRUE(vm->isNewMode());
    EXPECT_EQ(vm->mode.get().name, "New Mode");
    EXPECT_EQ(vm->selectedModeType.get(), "Custom");
    vm->cancel();
    g.queue.runUntilIdle();
    EXPECT_EQ(mm().modes.get().size(), 1u);
    EXPECT_FALSE(mm().isEditingMode.get());

    mm().createNewMode();
    auto vm2 = editor(*mm().selectedMode.get());
    vm2->setName("Notes");
    vm2->save();
    g.queue.runUntilIdle();
    ASSERT_EQ(mm().modes.get().size(), 2u);
    EXPECT_EQ(mm().activeMode.get()->name, "Notes");
    EXPECT_EQ(mm().modes.get()[1].modeTypeId, std::nullopt);
}

TEST_F(ModeDetailTest, DeleteAsksFirstAndTheManagerStillRefusesTheDefault) {
    Mode def = Mode::fresh("Default");
    def.isDefault = true;
    Mode mail = Mode::fresh("Mail");
    g.modesStore.saveModes({def, mail});
    mm().loadModes();

    auto vmDefault = editor(def);
    vmDefault->requestDelete();
    EXPECT_EQ(vmDefault->deleteConfirmationText(), "Are you sure you want to delete: Default");
    vmDefault->confirmDelete();
    g.queue.runUntilIdle();
    EXPECT_EQ(mm().modes.get().size(), 2u);

    auto vm = editor(mail);
    vm->requestDelete();
    EXPECT_TRUE(vm->showingDeleteConfirmation.get());
    vm->cancelDelete();
    g.queue.runUntilIdle();
    EXPECT_EQ(mm().modes.get().size(), 2u);
    vm->requestDelete();
    vm->confirmDelete();
    g.queue.runUntilIdle();
    ASSERT_EQ(mm().modes.get().size(), 1u);
    EXPECT_EQ(mm().modes.get()[0].name, "Default");
}

}  // namespace
