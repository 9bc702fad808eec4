#include <gtest/gtest.h>

#include "core/AppConstants.h"
#include "modes/ModesViewModel.h"
#include "unit/modes/ModesTestGraph.h"

using namespace vocle;
using vocle::testing::ModesTestGraph;

namespace {

Mode makeMode(const std::string& name, bool isDefault = false) {
    Mode m = Mode::fresh(name);
    m.isDefault = isDefault;
    return m;
}

class ModeManagerTest : public ::testing::Test {
  protected:
    // Three modes on disk: the default, "Mail" (web mail, active) and "Code" (an editor).
    void seed() {
        auto def = makeMode("Default", true);
        auto mail = makeMode("Mail");
        mail.activationWebsite = "https://www.example.org/inbox";
        auto code = makeMode("Code");
        code.activationApplication = "code";
        g.modesStore.saveModes({def, mail, code});
        mm().loadModes();
        mm().setActiveMode(mail);
        g.queue.runUntilIdle();
        g.logs->clear();
    }
    ModeManager& mm() { return *g.modeManager; }
    std::vector<Mode> stored() { return g.modesStore.loadModes().value_or(std::vector<Mode>{}); }
    std::string activeName() { return mm().activeMode.get() ? mm().activeMode.get()->name : "none"; }

    ModesTestGraph g;
};

TEST_F(ModeManagerTest, DeletingTheDefaultOrTheLastModeIsRefused) {
    seed();
    const auto before = stored();
    mm().deleteMode(mm().modes.get()[0]);
    g.queue.runUntilIdle();
    EXPECT_TRUE(g.logs->contains("ModeManager: Cannot delete default mode"));
    EXPECT_EQ(mm().modes.get().size(), 3u);

    g.modesStore.saveModes({makeMode("Only")});
    mm().loadModes();
    mm().deleteMode(mm().modes.get()[0]);
    g.queue.runUntilIdle();
    EXPECT_TRUE(g.logs->contains("ModeManager: Cannot delete the only remaining mode"));
    EXPECT_EQ(mm().modes.get().size(), 1u);
    EXPECT_FALSE(g.logs->contains("deleteMode() called"));
}

TEST_F(ModeManagerTest, DeletingTheActiveModeActivatesTheDefaultOnALaterTurn) {
    seed();
    const Mode mail = mm().modes.get()[1];
    mm().startEditing(mail);
    mm().deleteMode(mail);
    EXPECT_EQ(mm().modes.get().size(), 3u) << "removal waits for the next turn of the main queue";
    g.queue.runUntilIdle();
    ASSERT_EQ(mm().modes.get().size(), 2u);
    EXPECT_EQ(activeName(), "Default");
    EXPECT_FALSE(mm().isEditingMode.get());
    EXPECT_FALSE(mm().selectedMode.get().has_value());
    EXPECT_EQ(stored().size(), 2u);
    EXPECT_TRUE(g.logs->contains("ModeManager: deleteMode() called for ID " + mail.id.string()));
    EXPECT_TRUE(g.logs->contains("ModeManager: deleteMode() finished, modes count = 2"));

    // Without a default mode the first other mode takes over.
    auto a = makeMode("A");
    auto b = makeMode("B");
    g.modesStore.saveModes({a, b});
    mm().loadModes();
    mm().setActiveMode(a);
    mm().deleteMode(a);
    g.queue.runUntilIdle();
    EXPECT_EQ(activeName(), "B");
}

TEST_F(ModeManagerTest, SavingANewModeAppendsAndActivatesItAndAnEditRefreshesOnlyTheActiveOne) {
    seed();
    mm().createNewMode();
    ASSERT_TRUE(mm().isEditingMode.get());
    Mode fresh = *mm().selectedMode.get();
    EXPECT_EQ(fresh.name, "New Mode");
    EXPECT_EQ(fresh.type, "Custom");
    EXPECT_EQ(mm().modes.get().size(), 3u) << "not listed before it is saved";
    fresh.name = "Notes";
    mm().saveMode(fresh);
    g.queue.runUntilIdle();
    ASSERT_EQ(mm().modes.get().size(), 4u);
    EXPECT_EQ(mm().modes.get().back().name, "Notes");
    EXPECT_EQ(activeName(), "Notes");
    EXPECT_FALSE(mm().isEditingMode.get());
    EXPECT_TRUE(g.logs->contains("ModeManager: Set newly created mode 'Notes' as active"));
    EXPECT_EQ(stored().size(), 4u);

    // Editing a mode that is not active leaves the active one alone.
    Mode code = mm().modes.get()[2];
    code.prompt = "Format as code comments.";
    mm().saveMode(code);
    g.queue.runUntilIdle();
    EXPECT_EQ(activeName(), "Notes");
    EXPECT_EQ(mm().modes.get()[2].prompt, "Format as code comments.");

    // Editing the active one refreshes it.
    Mode notes = mm().modes.get()[3];
    notes.language = "German";
    mm().saveMode(notes);
    g.queue.runUntilIdle();
    EXPECT_EQ(mm().activeMode.get()->language, "German");
    EXPECT_TRUE(g.logs->contains("ModeManager: Updated activeMode with new settings"));
}

TEST_F(ModeManagerTest, ActivatingAStaleCopyActivatesTheStoredVersion) {
    seed();
    Mode stale = mm().modes.get()[2];
    Mode edited = stale;
    edited.type = std::nullopt;
    edited.prompt = "newer";
    mm().saveMode(edited);
    g.queue.runUntilIdle();
    mm().setActiveMode(stale);
    EXPECT_EQ(mm().activeMode.get()->prompt, "newer");
    EXPECT_TRUE(g.logs->contains("ModeManager: Using latest mode data with type 'nil'"));
    EXPECT_TRUE(
        g.logs->contains("ModeManager: setActiveMode() called for mode 'Code' with ID " + stale.id.string()));
}

TEST_F(ModeManagerTest, CancellingTheEditorOnlyActsWhileEditing) {
    seed();
    mm().cancelEditing();
    g.queue.runUntilIdle();
    EXPECT_FALSE(g.logs->contains("cancelEditing"));
    mm().startEditing(mm().modes.get()[1]);
    EXPECT_TRUE(g.logs->contains("ModeManager: isEditingMode = true, selectedMode ID = " +
                                 mm().modes.get()[1].id.string()));
    mm().cancelEditing();
    EXPECT_TRUE(mm().isEditingMode.get());
    g.queue.runUntilIdle();
    EXPECT_FALSE(mm().isEditingMode.get());
    EXPECT_TRUE(g.logs->contains("ModeManager: cancelEditing() finished, isEditingMode = false"));
}

TEST_F(ModeManagerTest, WebsiteRequestsMatchTheHostExactlyWithoutWww) {
    seed();
    auto request = [&](const std::string& domain, const std::string& fallback = "") {
        g.center.post(Notifications::autoSwitchModeForWebsite, nullptr,
                      {{"domain", domain}, {"fallbackBundleId", fallback}});
        g.queue.runUntilIdle();
    };
    mm().setActiveMode(mm().modes.get()[0]);
    request("example.org");
    EXPECT_EQ(activeName(), "Mail");
    EXPECT_TRUE(
        g.logs->contains("  - Mode 'Mail': website 'https://www.example.org/inbox' -> domain 'example.org'"));
    EXPECT_TRUE(
        g.logs->contains("ModeManager: Found matching mode 'Mail' for website example.org, switching..."));

    mm().setActiveMode(mm().modes.get()[0]);
    request("Example.org");
    EXPECT_EQ(activeName(), "Default") << "matching is case-sensitive";
    request("docs.example.org");
    EXPECT_EQ(activeName(), "Default") << "no subdomain matching";
    EXPECT_TRUE(
        g.logs->contains("ModeManager: No mode found for website docs.example.org, fallback bundleId: ''"));

    // No site of its own: the browser's application mode applies.
    request("other.example", "code");
    EXPECT_EQ(activeName(), "Code");
    EXPECT_TRUE(g.logs->contains("AutoModeManager: Switching to mode 'Code' for application code"));

    // A website that does not parse is compared as typed.
    Mode odd = mm().modes.get()[0];
    odd.activationWebsite = "not a site";
    mm().saveMode(odd);
    g.queue.runUntilIdle();
    request("not a site");
    EXPECT_EQ(activeName(), "Default");
}

TEST_F(ModeManagerTest, ApplicationRequestsNeedAnExactId) {
    seed();
    g.center.post(Notifications::autoSwitchModeForApplication, nullptr, {{"bundleId", "Code"}});
    g.queue.runUntilIdle();
    EXPECT_EQ(activeName(), "Mail");
    EXPECT_TRUE(g.logs->contains("AutoModeManager: No mode found for application Code"));
    mm().handleApplicationSwitchRequest("");
    EXPECT_EQ(activeName(), "Mail") << "an empty id matches no mode";
    g.center.post(Notifications::autoSwitchModeForApplication, nullptr, {{"bundleId", "code"}});
    EXPECT_EQ(activeName(), "Mail") << "requests are answered on the main queue";
    g.queue.runUntilIdle();
    EXPECT_EQ(activeName(), "Code");
}

TEST_F(ModeManagerTest, FirstRunWithoutTemplatesMakesOneActiveCustomDefault) {
    mm().loadModes();
    EXPECT_TRUE(g.logs->contains("ModeManager: No saved modes found"));
    mm().createDefaultModesWithBackendTypes();
    ASSERT_EQ(mm().modes.get().size(), 1u);
    const Mode& m = mm().modes.get()[0];
    EXPECT_EQ(m.name, "Default");
    EXPECT_EQ(m.type, "Custom");
    EXPECT_FALSE(m.modeTypeId.has_value());
    EXPECT_TRUE(m.isDefault);
    EXPECT_EQ(activeName(), "Default");
    EXPECT_TRUE(
        g.logs->contains("ModeManager: CRITICAL ERROR - Cannot create default mode - mode type ID "
                         "22222222-2222-2222-2222-222222222222 not found in backend templates"));
    EXPECT_TRUE(g.logs->contains("ModeManager: Created fallback Custom mode to prevent app crash"));
    EXPECT_TRUE(g.logs->contains("ModeManager: Set active mode to default: 'Default'"));
    EXPECT_TRUE(g.logs->contains(
        "ModeManager: createDefaultModesWithBackendTypes() finished - 1 modes, active: Default"));
    EXPECT_EQ(stored().size(), 1u);
}

TEST_F(ModeManagerTest, FirstRunTakesTheDefaultTypeFromTheTemplatesCache) {
    g.cacheTemplates(Json{{"mode_types", Json::array({Json{{"id", "11111111-1111-1111-1111-111111111111"},
                                                           {"name", "Raw"},
                                                           {"prompt", ""},
                                                           {"language", "English"}},
                                                      Json{{"id", kDefaultModeTypeId},
                                                           {"name", "Clean"},
                                                           {"prompt", "Tidy."},
                                                           {"language", "English"}}})}});
    mm().createDefaultModesWithBackendTypes();
    ASSERT_EQ(mm().modes.get().size(), 1u);
    EXPECT_EQ(mm().modes.get()[0].type, "Clean");
    EXPECT_EQ(mm().modes.get()[0].modeTypeId, kDefaultModeTypeId);
    EXPECT_TRUE(
        g.logs->contains("ModeManager: Created single default mode: 'Default' with type 'Clean' and ID "
                         "'22222222-2222-2222-2222-222222222222'"));

    // An unreadable cache counts as none.
    g.files.saveCloudTemplatesCache("{\"mode_types\": 3}");
    mm().createDefaultModesWithBackendTypes();
    EXPECT_EQ(mm().modes.get()[0].type, "Custom");
}

TEST_F(ModeManagerTest, EveryChangeSchedulesABackupOnALaterTurn) {
    seed();
    EXPECT_TRUE(g.coordinator->hasPendingBackup());
    g.queue.advance(1.5);
    EXPECT_FALSE(g.coordinator->hasPendingBackup());
    mm().setActiveMode(mm().modes.get()[0]);
    EXPECT_FALSE(g.coordinator->hasPendingBackup());
    g.queue.runUntilIdle();
    EXPECT_TRUE(g.coordinator->hasPendingBackup());
    EXPECT_EQ(g.modesStore.loadModes()->size(), 3u);
}

TEST(ModesViewModel, CopiesTheManagerAtConstructionAndAnnouncesChanges) {
    ModesTestGraph g;
    auto def = makeMode("Default", true);
    g.modesStore.saveModes({def});
    g.modeManager->loadModes();
    g.modeManager->setActiveMode(def);
    ModesViewModel vm(*g.modeManager);
    ASSERT_EQ(vm.modes.get().size(), 1u);
    EXPECT_EQ(vm.activeMode.get()->id, def.id);
    EXPECT_FALSE(vm.isEditingMode.get());
    int changes = 0;
    auto sub = vm.changed.subscribe([&] { ++changes; });
    vm.isEditingMode.set(true);
    vm.modes.set({});
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(&vm.modeManager, g.modeManager.get());
}

}  // namespace
