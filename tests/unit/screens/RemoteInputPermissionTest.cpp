#include <gtest/gtest.h>

#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeRemoteInput.h"
#include "platform/testing/FakeUrlOpener.h"
#include "screens/HomeViewModel.h"
#include "screens/PermissionsViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class RemoteInputHomeTest : public ::testing::Test {
  protected:
    RemoteInputHomeTest() { accessibility.setTrusted(true); }
    std::unique_ptr<HomeViewModel> home(RemoteInput* remote) {
        return std::make_unique<HomeViewModel>(HomeDependencies{*g.modeManager, vocabulary, selectedTab,
                                                                g.files, probe, urls, shortcuts, remote});
    }
    std::vector<std::string> titles(const HomeViewModel& vm) {
        std::vector<std::string> out;
        for (const auto& i : vm.items.get()) out.push_back(i.title);
        return out;
    }

    ModesTestGraph g;
    FakeCapture capture;
    FakeAccessibility accessibility;
    SystemPermissionProbe probe{capture, accessibility};
    FakeUrlOpener urls;
    RecordingShortcuts shortcuts;
    FakeRemoteInput remote;
    Observable<std::optional<std::string>> vocabulary;
    Observable<int> selectedTab{-1};
};

TEST_F(RemoteInputHomeTest, TheGrantIsAnExtraStepOnlyWhereTheDesktopAsksForIt) {
    auto plain = home(nullptr);
    EXPECT_EQ(plain->totalSteps(), 6);
    EXPECT_FALSE(plain->item(HomeViewModel::remoteInput));
    EXPECT_EQ(plain->progressText(), "2 of 6 complete");

    auto vm = home(&remote);
    EXPECT_EQ(titles(*vm),
              (std::vector<std::string>{"Grant microphone permission", "Grant accessibility permission",
                                        "Grant remote input permission", "Create your first custom mode",
                                        "Add/Edit replacement", "Add custom vocabulary",
                                        "Complete your first recording"}));
    EXPECT_EQ(vm->stepAt(2), HomeViewModel::remoteInput);
    EXPECT_EQ(vm->stepAt(3), HomeViewModel::customMode);
    EXPECT_EQ(vm->stepAt(6), HomeViewModel::firstRecording);
    EXPECT_EQ(vm->progressText(), "2 of 7 complete");
    EXPECT_DOUBLE_EQ(vm->progress(), 2.0 / 7);
    EXPECT_EQ(vm->item(HomeViewModel::customMode)->title, "Create your first custom mode");
}

TEST_F(RemoteInputHomeTest, TheRowAsksAgainAndFollowsTheDesktopsAnswerLive) {
    auto vm = home(&remote);
    int rebuilt = 0;
    auto sub = vm->changed.subscribe([&] { ++rebuilt; });
    EXPECT_TRUE(vm->item(HomeViewModel::remoteInput)->isClickable);

    vm->activate(HomeViewModel::remoteInput);
    EXPECT_EQ(remote.requests, 1);
    EXPECT_GE(rebuilt, 1) << "the open dialog shows on the row at once";
    EXPECT_FALSE(vm->item(HomeViewModel::remoteInput)->isClickable)
        << "no second request while the dialog is open";
    vm->activate(HomeViewModel::remoteInput);
    EXPECT_EQ(remote.requests, 1);

    remote.answer(RemoteInputState::refused);
    EXPECT_FALSE(vm->item(HomeViewModel::remoteInput)->isCompleted);
    EXPECT_TRUE(vm->item(HomeViewModel::remoteInput)->isClickable);
    vm->activate(HomeViewModel::remoteInput);
    EXPECT_EQ(remote.requests, 2);

    remote.answer(RemoteInputState::granted);
    EXPECT_TRUE(vm->item(HomeViewModel::remoteInput)->isCompleted);
    EXPECT_FALSE(vm->item(HomeViewModel::remoteInput)->isClickable);
    EXPECT_EQ(vm->progressText(), "3 of 7 complete");
    vm->activate(HomeViewModel::remoteInput);
    EXPECT_EQ(remote.requests, 2) << "a granted step does nothing";

    // The desktop ends the grant (revoked in its settings): the step is open again.
    remote.set(RemoteInputState::notGranted);
    EXPECT_EQ(vm->progressText(), "2 of 7 complete");
    EXPECT_TRUE(urls.opened.empty());
}

class RemoteInputPermissionsTest : public ::testing::Test {
  protected:
    VirtualMainQueue queue;
    FakeCapture capture;
    FakeAccessibility accessibility;
    SystemPermissionProbe probe{capture, accessibility};
    FakeUrlOpener urls;
    FakeRemoteInput remote;
};

TEST_F(RemoteInputPermissionsTest, ShownOnlyWithTheDesktopsConsentAndEnableAsksAgain) {
    PermissionsViewModel without(queue, probe, urls);
    EXPECT_FALSE(without.remoteInputState.get());
    without.enableRemoteInput();

    remote.current = RemoteInputState::refused;
    PermissionsViewModel vm(queue, probe, urls, &remote);
    EXPECT_EQ(vm.remoteInputState.get(), RemoteInputState::refused);
    EXPECT_EQ(vm.remoteInputDescription(), PermissionsViewModel::kRemoteInputRefused);

    vm.enableRemoteInput();
    EXPECT_EQ(remote.requests, 1);
    EXPECT_EQ(vm.remoteInputState.get(), RemoteInputState::asking);
    EXPECT_EQ(vm.remoteInputDescription(), "Answer your desktop's dialog to allow it");
    EXPECT_TRUE(urls.opened.empty()) << "the desktop's own dialog asks; no settings panel opens";
    EXPECT_EQ(queue.pendingCount(), 0u) << "the state is followed live, not re-read later";

    remote.answer(RemoteInputState::granted);
    EXPECT_EQ(vm.remoteInputState.get(), RemoteInputState::granted);
    EXPECT_EQ(vm.remoteInputDescription(), PermissionsViewModel::kRemoteInputDescription);
    vm.enableRemoteInput();
    EXPECT_EQ(remote.requests, 1) << "nothing to ask once granted";
}

TEST_F(RemoteInputPermissionsTest, TextsNameTheRunningDesktopsPlaces) {
    accessibility.setTrusted(false);
    {
        // A desktop we do not know: its settings in general words.
        PermissionsViewModel vm(queue, probe, urls);
        EXPECT_EQ(vm.footerText(), "You can change these later in your desktop's settings.");
        vm.enableAccessibility();
        ASSERT_TRUE(vm.alert.get());
        EXPECT_EQ(vm.alert.get()->text, PermissionsViewModel::kAlertText);
    }
    urls.application = "System Settings";
    urls.places[kAccessibilitySettingsURL] = "System Settings > Accessibility";
    PermissionsViewModel vm(queue, probe, urls);
    EXPECT_EQ(vm.footerText(), "You can change these later in System Settings.");
    vm.enableAccessibility();
    ASSERT_TRUE(vm.alert.get());
    EXPECT_EQ(
        vm.alert.get()->text,
        "Turn on assistive technologies in System Settings > Accessibility. Vocle uses the accessibility bus "
        "to read the address of the web page you are on, so that modes can follow websites.");
    for (const std::string text :
         {vm.footerText(), vm.alert.get()->text, std::string(PermissionsViewModel::kText),
          std::string(PermissionsViewModel::kRemoteInputRefused)}) {
        EXPECT_EQ(text.find("Privacy &"), std::string::npos) << text;
        EXPECT_EQ(text.find("System Preferences"), std::string::npos) << text;
    }
}

}  // namespace
