#include <gtest/gtest.h>

#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeUrlOpener.h"
#include "screens/HomeViewModel.h"
#include "screens/PermissionsViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class HomeTest : public ::testing::Test {
  protected:
    HomeTest() {
        accessibility.setTrusted(false);
        capture.deviceList.clear();
        capture.defaultUid.reset();
    }
    std::unique_ptr<HomeViewModel> home() {
        return std::make_unique<HomeViewModel>(
            HomeDependencies{*g.modeManager, vocabulary, selectedTab, g.files, probe, urls, shortcuts});
    }
    std::vector<bool> completed(const HomeViewModel& vm) {
        std::vector<bool> out;
        for (const auto& i : vm.items.get()) out.push_back(i.isCompleted);
        return out;
    }
    // A mode made from a backend template, as start-up creates the default one.
    Mode templated(const std::string& name, const std::string& type) {
        Mode m = Mode::fresh(name);
        m.type = type;
        m.modeTypeId = "22222222-2222-2222-2222-222222222222";
        return m;
    }

    ModesTestGraph g;
    FakeCapture capture;
    FakeAccessibility accessibility;
    SystemPermissionProbe probe{capture, accessibility};
    FakeUrlOpener urls;
    RecordingShortcuts shortcuts;
    Observable<std::optional<std::string>> vocabulary;
    Observable<int> selectedTab{-1};
};

TEST_F(HomeTest, AFreshInstallationWithoutASourceShowsNoneOfSixComplete) {
    g.modesStore.saveModes({templated("Default", "Clean")});
    g.modeManager->loadModes();
    auto vm = home();
    EXPECT_EQ(vm->progressText(), "0 of 6 complete");
    EXPECT_DOUBLE_EQ(vm->progress(), 0.0);
    ASSERT_EQ(vm->items.get().size(), 6u);
    EXPECT_EQ(vm->items.get()[0].title, "Grant microphone permission");
    EXPECT_EQ(vm->items.get()[5].title, "Complete your first recording");
    EXPECT_EQ(vm->toggleShortcutParts(), (std::vector<std::string>{"Ctrl", "Alt", "Space"}));
}

TEST_F(HomeTest, MicrophoneCountsOnlyWhenASourceExistsAndOpens) {
    capture.deviceList = {{"alsa_input.pci", "Built-in Audio"}};
    capture.defaultUid = "alsa_input.pci";
    capture.configureSession = [](FakeCaptureSession& s) { s.inputError = Error{"pulse", 1, "busy"}; };
    auto vm = home();
    EXPECT_FALSE(vm->microphoneAuthorized.get());
    capture.configureSession = nullptr;
    accessibility.setTrusted(true);
    vm->refresh();
    EXPECT_TRUE(vm->microphoneAuthorized.get());
    EXPECT_EQ(vm->progressText(), "2 of 6 complete");
    EXPECT_FALSE(vm->items.get()[0].isClickable);
}

TEST_F(HomeTest, AModeWithoutTemplateIdCompletesTheCustomStepWhateverItsType) {
    g.modesStore.saveModes({templated("Default", "Clean")});
    g.modeManager->loadModes();
    auto vm = home();
    EXPECT_FALSE(vm->items.get()[HomeViewModel::customMode].isCompleted);
    Mode scratch = Mode::fresh("Scratch");
    scratch.type = "Email";
    scratch.modeTypeId.reset();
    g.modeManager->saveMode(scratch);
    g.queue.runUntilIdle();
    EXPECT_TRUE(vm->items.get()[HomeViewModel::customMode].isCompleted);

    // A template-made mode typed "Custom" counts too.
    g.modesStore.saveModes({templated("Default", "Clean"), templated("Mine", "Custom")});
    g.modeManager->loadModes();
    EXPECT_TRUE(vm->items.get()[HomeViewModel::customMode].isCompleted);
}

TEST_F(HomeTest, VocabularyReplacementAndRecordingStepsFollowTheirSources) {
    auto vm = home();
    vocabulary.set(std::string(""));
    EXPECT_FALSE(vm->items.get()[HomeViewModel::vocabulary].isCompleted);
    vocabulary.set(std::string("ACME"));
    EXPECT_TRUE(vm->items.get()[HomeViewModel::vocabulary].isCompleted);

    auto state = g.files.loadOnboardingState();
    state.hasAddedOrEditedReplacement = true;
    state.firstRecordingComplete = true;
    g.files.saveOnboardingState(state);
    EXPECT_FALSE(vm->items.get()[HomeViewModel::replacement].isCompleted);
    vm->refresh();  // the record is read on each evaluation
    EXPECT_TRUE(vm->items.get()[HomeViewModel::replacement].isCompleted);
    EXPECT_TRUE(vm->items.get()[HomeViewModel::firstRecording].isCompleted);
}

TEST_F(HomeTest, ActionsSwitchTabsStartANewModeAndOpenSettingsOnlyWhileIncomplete) {
    auto vm = home();
    vm->activate(HomeViewModel::customMode);
    EXPECT_EQ(selectedTab.get(), 0);
    EXPECT_TRUE(g.modeManager->isEditingMode.get());
    EXPECT_EQ(g.modeManager->selectedMode.get()->name, "New Mode");
    vm->activate(HomeViewModel::replacement);
    EXPECT_EQ(selectedTab.get(), 1);
    vm->activate(HomeViewModel::vocabulary);
    EXPECT_EQ(selectedTab.get(), 2);

    vm->activate(HomeViewModel::microphone);
    vm->activate(HomeViewModel::accessibility);
    EXPECT_EQ(urls.opened, (std::vector<std::string>{kMicrophoneSettingsURL, kAccessibilitySettingsURL}));
    EXPECT_EQ(accessibility.promptCount(), 1);

    accessibility.setTrusted(true);
    vm->refresh();
    vm->activate(HomeViewModel::accessibility);
    EXPECT_EQ(urls.opened.size(), 2u);
}

class PermissionsTest : public ::testing::Test {
  protected:
    PermissionsTest() { accessibility.setTrusted(false); }
    VirtualMainQueue queue;
    FakeCapture capture;
    FakeAccessibility accessibility;
    SystemPermissionProbe probe{capture, accessibility};
    FakeUrlOpener urls;
};

TEST_F(PermissionsTest, AccessibilityEnablePromptsOpensSettingsAlertsAndRereadsOneSecondLater) {
    PermissionsViewModel vm(queue, probe, urls);
    EXPECT_TRUE(vm.microphoneAuthorized.get());
    EXPECT_FALSE(vm.accessibilityAuthorized.get());

    vm.enableAccessibility();
    EXPECT_EQ(accessibility.promptCount(), 1);
    EXPECT_EQ(urls.opened, (std::vector<std::string>{kAccessibilitySettingsURL}));
    ASSERT_TRUE(vm.alert.get());
    EXPECT_EQ(vm.alert.get()->title, "Accessibility Permission Required");
    EXPECT_EQ(std::string(PermissionsViewModel::kAlertText).find("System Settings"), std::string::npos);
    EXPECT_FALSE(vm.openProblem.get());

    accessibility.setTrusted(true);  // the user turns the bus on meanwhile
    queue.advance(0.9);
    EXPECT_FALSE(vm.accessibilityAuthorized.get());
    queue.advance(0.2);
    EXPECT_TRUE(vm.accessibilityAuthorized.get());
}

TEST_F(PermissionsTest, MicrophoneEnableRereadsAfterASecondAndAnAlreadyTrustedBusShowsNoAlert) {
    capture.deviceList.clear();
    capture.defaultUid.reset();
    accessibility.setTrusted(true);
    PermissionsViewModel vm(queue, probe, urls);
    EXPECT_FALSE(vm.microphoneAuthorized.get());
    // Where the desktop has no sound panel, what to check is shown instead of nothing at all.
    urls.failWith = "Open your desktop's sound settings and check that a microphone is connected.";
    vm.enableMicrophone();
    EXPECT_EQ(urls.opened, (std::vector<std::string>{kMicrophoneSettingsURL}));
    EXPECT_EQ(vm.openProblem.get(), urls.failWith);
    urls.failWith.reset();
    capture.deviceList = {{"alsa_input.usb", "USB Mic"}};
    capture.defaultUid = "alsa_input.usb";
    queue.advance(1.0);
    EXPECT_TRUE(vm.microphoneAuthorized.get());

    vm.enableAccessibility();
    EXPECT_FALSE(vm.alert.get());
    EXPECT_EQ(urls.opened.size(), 1u);
}

TEST_F(PermissionsTest, NoRecheckAfterTheScreenIsGone) {
    auto vm = std::make_unique<PermissionsViewModel>(queue, probe, urls);
    vm->enableMicrophone();
    vm.reset();
    queue.advance(2);
    EXPECT_EQ(queue.pendingCount(), 0u);
}

}  // namespace
