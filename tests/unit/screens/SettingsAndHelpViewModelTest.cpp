#include <gtest/gtest.h>

#include <filesystem>

#include "backend/SupportService.h"
#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeUrlOpener.h"
#include "screens/HelpViewModel.h"
#include "screens/SettingsViewModel.h"
#include "unit/modes/ModesTestGraph.h"
#include "unit/screens/RecordingShortcuts.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

class SettingsTest : public ::testing::Test {
  protected:
    SettingsTest() {
        env.set("HOME", (dir.path() / "home").string());
        env.set("XDG_CONFIG_HOME", (dir.path() / "config").string());
        capture.deviceList = {{"alsa_input.usb-mic", "USB Microphone"}, {"alsa_input.pci", "Built-in Audio"}};
    }
    AppSettings stored() { return files.loadSettings(); }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    TempDir dir;
    VirtualMainQueue queue;
    FileStorageManager files{DataFolder{dir.path() / "data"}, queue};
    FakeCapture capture;
    RecordingShortcuts shortcuts;
    MapEnvironment env;
    AutostartEntry autostart{env, "/opt/Vocle Beta/bin/vocle"};
    FakeLocalKeyMonitor keyMonitor;
    SettingsViewModel vm{files, capture, shortcuts, keyMonitor, autostart};
};

TEST_F(SettingsTest, LoadingTreatsAMissingOrDefaultNameAsTheSystemDefault) {
    auto s = stored();
    s.useSystemDefaultAudio = false;
    s.inputDeviceName = "Default";
    s.soundVolume = 0.25;
    s.enableSoundEffects = false;
    files.saveSettings(s);
    EXPECT_TRUE(vm.isLoading.get());
    vm.load();
    EXPECT_FALSE(vm.isLoading.get());
    EXPECT_TRUE(vm.useSystemDefault.get());
    EXPECT_EQ(vm.inputDevice.get(), "");
    EXPECT_DOUBLE_EQ(vm.volume.get(), 0.25);
    EXPECT_FALSE(vm.enableSoundEffects.get());
    EXPECT_EQ(vm.availableDevices.get(), (std::vector<std::string>{"USB Microphone", "Built-in Audio"}));
}

TEST_F(SettingsTest, ChoosingADeviceStoresItsSourceNameAndTheDefaultToggleClearsBoth) {
    vm.load();
    vm.selectInputDevice("Built-in Audio");
    EXPECT_FALSE(stored().useSystemDefaultAudio);
    EXPECT_EQ(stored().inputDeviceName, std::optional<std::string>("Built-in Audio"));
    EXPECT_EQ(stored().inputDeviceUID, std::optional<std::string>("alsa_input.pci"));
    EXPECT_TRUE(logs->contains("Settings saved: device=Built-in Audio, useDefault=false, soundEffects=true, volume=0.6"));

    vm.setUseSystemDefault(true);
    EXPECT_TRUE(stored().useSystemDefaultAudio);
    EXPECT_FALSE(stored().inputDeviceName.has_value());
    EXPECT_FALSE(stored().inputDeviceUID.has_value());
}

TEST_F(SettingsTest, ADeviceNoLongerConnectedIsKeptByNameWithoutIdentifier) {
    auto s = stored();
    s.useSystemDefaultAudio = false;
    s.inputDeviceName = "Headset";
    s.inputDeviceUID = "bluez_source.00_11";
    files.saveSettings(s);
    vm.load();
    EXPECT_EQ(vm.inputDevice.get(), "Headset");
    EXPECT_TRUE(vm.inputDeviceDisconnected());

    vm.selectInputDevice("Headset");
    EXPECT_EQ(stored().inputDeviceName, std::optional<std::string>("Headset"));
    EXPECT_FALSE(stored().inputDeviceUID.has_value());

    capture.deviceList.push_back({"bluez_source.00_11", "Headset"});
    vm.refreshDevices();
    EXPECT_FALSE(vm.inputDeviceDisconnected());
}

TEST_F(SettingsTest, AVolumeChangeAloneRewritesTheFileAndKeepsTheShortcuts) {
    auto s = stored();
    s.toggleShortcut = R"({"keyCode":0,"modifiersRaw":262144})";
    files.saveSettings(s);
    vm.load();
    logs->clear();
    vm.setVolume(0.35);
    EXPECT_DOUBLE_EQ(stored().soundVolume, 0.35);
    EXPECT_EQ(stored().toggleShortcut, s.toggleShortcut);
    EXPECT_TRUE(logs->contains("Settings saved: device=, useDefault=true, soundEffects=true, volume=0.35"));
    vm.setVolume(0.35);
    EXPECT_EQ(logs->count("Settings saved:"), 1u);
}

TEST_F(SettingsTest, TheLivePreviewIsOnUnlessTurnedOffAndTheChoiceIsKeptInTheFile) {
    vm.load();
    EXPECT_TRUE(vm.showLivePreview.get()) << "on for a file written before the setting existed";
    vm.setShowLivePreview(false);
    EXPECT_FALSE(stored().showLivePreview);
    EXPECT_FALSE(stored().toJson().at("showLivePreview").get<bool>());
    SettingsViewModel reopened{files, capture, shortcuts, keyMonitor, autostart};
    reopened.load();
    EXPECT_FALSE(reopened.showLivePreview.get());
    reopened.setShowLivePreview(true);
    EXPECT_TRUE(stored().showLivePreview);
    // A file without the key (older versions) reads as on.
    auto json = stored().toJson();
    json.erase("showLivePreview");
    EXPECT_TRUE(AppSettings::fromJson(json).showLivePreview);
    json["showLivePreview"] = "no";
    EXPECT_THROW(AppSettings::fromJson(json), DecodingError);
}

TEST_F(SettingsTest, OpeningEitherPickerSuspendsTheGlobalShortcutsUntilItCloses) {
    vm.setShowingShortcutPicker(true);
    EXPECT_TRUE(shortcuts.suspended);
    vm.setShowingShortcutPicker(false);
    EXPECT_FALSE(shortcuts.suspended);
    vm.setShowingCancelPicker(true);
    EXPECT_TRUE(shortcuts.suspended);
    vm.setShowingCancelPicker(false);
    EXPECT_EQ(shortcuts.calls, (std::vector<std::string>{"suspend", "resume", "suspend", "resume"}));
    EXPECT_EQ(vm.cancelShortcutParts(), (std::vector<std::string>{"Esc"}));
}

TEST_F(SettingsTest, StartAtLoginWritesAndRemovesTheAutostartEntry) {
    const auto path = dir.path() / "config" / "autostart" / "vocle.desktop";
    EXPECT_EQ(autostart.path(), path);
    vm.load();
    EXPECT_FALSE(vm.startAtLogin.get());
    vm.setStartAtLogin(true);
    EXPECT_TRUE(vm.startAtLogin.get());
    auto text = readFile(path);
    ASSERT_TRUE(text);
    EXPECT_NE(text->find("[Desktop Entry]\nType=Application\nName=Vocle\n"), std::string::npos);
    // A path with a space is quoted, as the desktop-entry rules require.
    EXPECT_NE(text->find("\nExec=\"/opt/Vocle Beta/bin/vocle\"\n"), std::string::npos);

    // The desktop's own "off" switch is honoured.
    writeFileAtomically(path, *text + "Hidden=true\n");
    vm.load();
    EXPECT_FALSE(vm.startAtLogin.get());

    vm.setStartAtLogin(false);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(vm.errorMessage.get());
}

TEST_F(SettingsTest, AnUnwritableAutostartFolderIsReportedAndNothingElseChanges) {
    ASSERT_TRUE(ensureDirectory(dir.path() / "config"));
    ASSERT_TRUE(writeFileAtomically(dir.path() / "config" / "autostart", "a file where the folder should be"));
    vm.load();
    vm.setStartAtLogin(true);
    EXPECT_FALSE(vm.startAtLogin.get());
    ASSERT_TRUE(vm.errorMessage.get());
    EXPECT_EQ(vm.errorMessage.get()->rfind("Could not turn on start at login: ", 0), 0u);
}

TEST(AutostartEntryQuoting, ReservedCharactersAreEscapedTwice) {
    EXPECT_EQ(AutostartEntry::quoteExecArgument("/usr/bin/vocle"), "/usr/bin/vocle");
    EXPECT_EQ(AutostartEntry::quoteExecArgument("/a b/$x"), "\"/a b/\\\\$x\"");
}

class HelpTest : public ::testing::Test {
  protected:
    ModesTestGraph g;
    FakeUrlOpener urls;
};

TEST_F(HelpTest, BlankMessageShowsTheServiceErrorAndSendsNothing) {
    SupportService support(*g.backend);
    HelpViewModel vm(support, urls, "https://vocle.example/docs");
    EXPECT_FALSE(vm.canSend());
    vm.setMessage("   \n ");
    EXPECT_TRUE(vm.canSend());
    vm.send();
    EXPECT_TRUE(vm.isSubmitting.get());
    EXPECT_EQ(vm.sendButtonTitle(), "Sending...");
    EXPECT_FALSE(vm.canSend());
    g.queue.runUntilIdle();
    EXPECT_FALSE(vm.isSubmitting.get());
    EXPECT_FALSE(vm.submitted.get());
    EXPECT_EQ(vm.sendButtonTitle(), "Send message");
    ASSERT_TRUE(vm.errorMessage.get());
    EXPECT_EQ(*vm.errorMessage.get(), BackendError::server(400, "Message cannot be empty").errorDescription());

    vm.openDocs();
    EXPECT_EQ(urls.opened, (std::vector<std::string>{"https://vocle.example/docs"}));
}

TEST_F(HelpTest, ABackendErrorIsShownUnderTheFormAndASecondSendClearsIt) {
    BackendService broken("not a url", "1.0", g.queue, g.sessions, g.files.deviceId());
    SupportService support(broken);
    HelpViewModel vm(support, urls, "https://vocle.example/docs");
    vm.setMessage("The app is great");
    vm.send();
    g.queue.runUntilIdle();
    ASSERT_TRUE(vm.errorMessage.get());
    EXPECT_EQ(*vm.errorMessage.get(), BackendError::invalidURL().errorDescription());
    vm.send();
    EXPECT_FALSE(vm.errorMessage.get());
    g.queue.runUntilIdle();
    EXPECT_TRUE(vm.errorMessage.get());
}

}  // namespace

namespace {

TEST_F(SettingsTest, ARefusedShortcutCarriesAWarningUntilItWorksAndANoticeCanOpenThePicker) {
    EXPECT_FALSE(vm.toggleShortcutWarning());
    EXPECT_FALSE(vm.cancelShortcutWarning());
    shortcuts.toggleFailure = kHotKeyBusy;
    EXPECT_EQ(
        vm.toggleShortcutWarning(),
        "Ctrl+Alt+Space is already used by your desktop or another application. Choose another shortcut.");
    shortcuts.toggleFailure.reset();
    EXPECT_FALSE(vm.toggleShortcutWarning());

    std::optional<bool> waiting = false;  // the cancel picker was asked for
    std::vector<bool> opened;
    vm.takePickerRequest = [&] { return std::exchange(waiting, std::nullopt); };
    auto sub = vm.openPicker.subscribe([&](bool toggle) { opened.push_back(toggle); });
    vm.checkPickerRequest();
    vm.checkPickerRequest();
    EXPECT_EQ(opened, (std::vector<bool>{false})) << "a request opens one picker, once";
}

TEST_F(SettingsTest, TheMicrophoneListSaysWhyItIsEmpty) {
    vm.load();
    EXPECT_EQ(vm.inputAvailability.get(), InputAvailability::available);
    capture.soundServer = false;
    vm.refreshDevices();
    EXPECT_EQ(vm.inputAvailability.get(), InputAvailability::noSoundServer);
    EXPECT_TRUE(vm.availableDevices.get().empty());
    capture.soundServer = true;
    capture.deviceList.clear();
    vm.refreshDevices();
    EXPECT_EQ(vm.inputAvailability.get(), InputAvailability::noInputDevice);
}

TEST_F(HelpTest, AFailureToOpenTheDocsIsShownAndClearedOnTheNextTry) {
    SupportService support(*g.backend);
    HelpViewModel vm(support, urls, "https://vocle.example/docs");
    urls.failWith = "Could not open xdg-open (exit status 3).";
    vm.openDocs();
    EXPECT_EQ(urls.opened, (std::vector<std::string>{"https://vocle.example/docs"}));
    EXPECT_EQ(vm.openProblem.get(), urls.failWith);
    urls.failWith.reset();
    vm.openDocs();
    EXPECT_FALSE(vm.openProblem.get());
}

}  // namespace
