#include <gtest/gtest.h>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "screens/ReplacementsViewModel.h"
#include "screens/VocabularyViewModel.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "support/TempDir.h"

using namespace vocle;

namespace {

class ReplacementsTest : public ::testing::Test {
  protected:
    ReplacementsTest() { list.set({Replacement::make("new line", "\n"), Replacement::make("sig", "Best, Ann")}); }
    bool onboardingDone() { return files.loadOnboardingState().hasAddedOrEditedReplacement; }

    vocle::testing::TempDir dir;
    VirtualMainQueue queue;
    FileStorageManager files{DataFolder{dir.path()}, queue};
    Observable<std::vector<Replacement>> list;
    ReplacementsViewModel vm{queue, list, files};
};

TEST_F(ReplacementsTest, AnEditIsSavedOneSecondAfterTheLastChangeAndCompletesTheOnboardingStep) {
    const Uuid id = list.get()[1].id;
    vm.openEdit(id);
    EXPECT_EQ(vm.drawerTitle(), "Edit Replacement");
    EXPECT_EQ(vm.drawerReplacement.get(), "Best, Ann");
    int writes = 0;
    auto sub = list.subscribe([&](const auto&) { ++writes; });

    vm.setDrawerReplacement("Best, A");
    queue.advance(0.6);
    vm.setDrawerReplacement("Best, Anna");
    queue.advance(0.99);
    EXPECT_EQ(writes, 0);
    EXPECT_FALSE(onboardingDone());
    queue.advance(0.02);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(list.get()[1].replacement, "Best, Anna");
    EXPECT_EQ(list.get()[1].id, id);
    EXPECT_TRUE(vm.showingDrawer.get());
    EXPECT_TRUE(onboardingDone());
}

TEST_F(ReplacementsTest, AnEmptiedOriginalIsNotSavedAndTheStoredPairSurvives) {
    vm.openEdit(list.get()[0].id);
    vm.setDrawerOriginal("  ");
    queue.advance(1.5);
    EXPECT_EQ(list.get()[0].original, "new line");
    EXPECT_EQ(vm.drawerError.get(), std::optional<std::string>("Original text cannot be empty."));
    vm.setDrawerOriginal("newline");
    vm.closeDrawer();  // a pending edit is kept on close
    EXPECT_EQ(list.get()[0].original, "newline");
    EXPECT_FALSE(vm.autoSavePending());
    queue.advance(2);
    EXPECT_EQ(list.get()[0].original, "newline");
}

TEST_F(ReplacementsTest, AddModeSavesOnlyWithTheButtonAndRefusesAnEmptyOriginal) {
    vm.openAdd();
    EXPECT_EQ(vm.drawerTitle(), "Add Replacement");
    vm.setDrawerOriginal("brb");
    vm.setDrawerReplacement("be right back");
    queue.advance(5);
    EXPECT_EQ(list.get().size(), 2u);
    EXPECT_TRUE(vm.saveDrawer());
    ASSERT_EQ(list.get().size(), 3u);
    EXPECT_EQ(list.get()[2].original, "brb");
    EXPECT_TRUE(onboardingDone());

    vm.openAdd();
    vm.setDrawerReplacement("orphan");
    EXPECT_FALSE(vm.saveDrawer());
    EXPECT_TRUE(vm.showingDrawer.get());
    EXPECT_EQ(list.get().size(), 3u);
}

TEST_F(ReplacementsTest, DeletingFromTheDrawerDropsAPendingAutoSave) {
    vm.openEdit(list.get()[1].id);
    vm.setDrawerReplacement("changed");
    vm.deleteEditing();
    queue.advance(2);
    ASSERT_EQ(list.get().size(), 1u);
    EXPECT_EQ(list.get()[0].original, "new line");
    EXPECT_FALSE(onboardingDone());
}

TEST_F(ReplacementsTest, LeavingTheScreenKeepsAPendingEdit) {
    auto screen = std::make_unique<ReplacementsViewModel>(queue, list, files);
    screen->openEdit(list.get()[0].id);
    screen->setDrawerReplacement("<br>");
    screen.reset();
    EXPECT_EQ(list.get()[0].replacement, "<br>");
    queue.advance(2);
    EXPECT_EQ(queue.pendingCount(), 0u);
}

class VocabularyTest : public ::testing::Test {
  protected:
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    VirtualMainQueue queue{1'795'000'000.0};  // 2026-11-18 11:06:40 UTC
    Observable<std::optional<std::string>> vocabulary{std::string("ACME")};
    VocabularyViewModel vm{queue, vocabulary};
};

TEST_F(VocabularyTest, ContinuousTypingSavesOnceTwoSecondsAfterTheLastKeystroke) {
    int saves = 0;
    auto sub = vocabulary.subscribe([&](const auto&) { ++saves; });
    std::string text = "ACME";
    for (char c : std::string(", Jane Roe")) {
        text += c;
        vm.setText(text);
        queue.advance(1.5);
    }
    EXPECT_EQ(saves, 0);
    EXPECT_TRUE(vm.isDirty.get());
    queue.advance(0.5);
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(vocabulary.get(), std::optional<std::string>("ACME, Jane Roe"));
    EXPECT_FALSE(vm.isDirty.get());
    EXPECT_EQ(logs->count("Vocabulary auto-saved at "), 1u);
    EXPECT_TRUE(logs->contains("Vocabulary auto-saved at 2026-11-18 11:06:"));
}

TEST_F(VocabularyTest, RetypingTheSavedTextSavesNothing) {
    int saves = 0;
    auto sub = vocabulary.subscribe([&](const auto&) { ++saves; });
    vm.setText("ACM");
    vm.setText("ACME");
    queue.advance(3);
    EXPECT_EQ(saves, 0);
    EXPECT_FALSE(logs->contains("Vocabulary auto-saved"));
    EXPECT_FALSE(vm.isDirty.get());
}

TEST_F(VocabularyTest, LeavingTheScreenSavesAPendingEditOnce) {
    {
        VocabularyViewModel screen(queue, vocabulary);
        screen.setText("ACME, Zed");
    }
    EXPECT_EQ(vocabulary.get(), std::optional<std::string>("ACME, Zed"));
    EXPECT_EQ(logs->count("Vocabulary auto-saved at "), 1u);
    queue.advance(3);
    EXPECT_EQ(logs->count("Vocabulary auto-saved at "), 1u);
}

TEST_F(VocabularyTest, AStartUpLoadReachesTheEditorUnlessAnEditIsPending) {
    vocabulary.set(std::string("Loaded, Words"));
    EXPECT_EQ(vm.vocabularyText.get(), "Loaded, Words");
    vm.setText("Mine");
    vocabulary.set(std::string("Remote"));
    EXPECT_EQ(vm.vocabularyText.get(), "Mine");
    queue.advance(2);
    EXPECT_EQ(vocabulary.get(), std::optional<std::string>("Mine"));
}

}  // namespace
