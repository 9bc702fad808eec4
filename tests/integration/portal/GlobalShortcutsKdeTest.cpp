// The portal hot keys against a headless Plasma session: KWin with its built-in kglobalaccel, the KDE portal
// backend and xdg-desktop-portal on a private bus. Keys are pressed through the RemoteDesktop portal's
// keyboard, which KWin treats like a real one, so a press goes through the compositor's own shortcut
// handling and comes back as the portal's Activated signal.

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "desktop/ShortcutManager.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/portal/GlobalShortcutsPortal.h"
#include "platform/portal/LibdbusPortalBus.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "support/DesktopSession.h"
#include "support/PortalTestClient.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using namespace portal;
using testing::DesktopSession;
using testing::pollUntil;
using testing::PortalTestClient;

constexpr int32_t kControlL = 0xffe3, kAltL = 0xffe9, kEscape = 0xff1b;
constexpr uint64_t kCtrlAlt = kModifierControl | kModifierOption;

DesktopSession& session() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::kde;
        shared = std::make_unique<DesktopSession>(options);
    }
    return *shared;
}

std::optional<std::string> keysymName(uint16_t keyCode) {
    switch (keyCode) {
        case keycode::kSpace:
            return "space";
        case keycode::kEscape:
            return "Escape";
        case 2:
            return "d";
        case 12:
            return "q";
        default:
            return std::nullopt;
    }
}

class GlobalShortcutsKde : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(session());
        keyboard = std::make_unique<PortalTestClient>(session().busAddress());
        // Right after the session came up the portal now and then answers Start with 2; a real desktop has
        // been up for a while. Ask again.
        for (int attempt = 0; attempt < 3 && keys.empty(); ++attempt) {
            if (attempt) std::this_thread::sleep_for(std::chrono::milliseconds(500));
            keys = startKeyboard();
        }
        ASSERT_FALSE(keys.empty()) << "no keyboard from the RemoteDesktop portal";
        bus = std::make_unique<LibdbusPortalBus>(queue, session().busAddress());
        ASSERT_TRUE(bus->connected());
        portal = std::make_unique<GlobalShortcutsPortal>(
            *bus, keysymName,
            std::map<uint32_t, GlobalShortcutsPortal::ShortcutName>{
                {1, {"toggle", "Start or stop dictation"}}, {2, {"cancel", "Cancel the dictation"}}});
        statusWatch = portal->observeStatus([this](HotKeyHandle h, int s) { statuses[h] = s; });
    }
    void TearDown() override {
        manager.reset();
        portal.reset();
        queue.runUntil([] { return false; }, Seconds(0.2));  // the Close calls go out
        bus.reset();
        keyboard.reset();
        for (pid_t pid : started) session().stop(pid);
    }

    // A native Wayland text window of another application, focused, its text mirrored to `output`.
    void openTextWindow(const std::filesystem::path& output) {
        started.push_back(session().spawn(
            {VOCLE_BINARY_DIR "/tests/vocle-test-text-target", output.string(), "org.example.Notes"},
            {"QT_QPA_PLATFORM=wayland"}));
        const bool focused = pollUntil(
            [&] {
                press({'x'});
                return pollUntil(
                    [&] { return vocle::testing::readText(output).find('x') != std::string::npos; }, 0.5);
            },
            20.0, {}, 0.2);
        ASSERT_TRUE(focused) << "the text window never received a key";
        press({kControlL, 'a'});
        press({0xff08});  // BackSpace
        ASSERT_TRUE(pollUntil([&] { return vocle::testing::readText(output).empty(); }, 5.0))
            << vocle::testing::readText(output);
    }

    std::string startKeyboard() {
        std::string error;
        auto created = keyboard->request("org.freedesktop.portal.RemoteDesktop", "CreateSession", {},
                                         {{"session_handle_token", "testkeys" + std::to_string(++keyboards)}},
                                         10.0, &error);
        if (!created || created->code != 0) return {};
        const std::string handle = created->strings["session_handle"];
        auto selected = keyboard->request("org.freedesktop.portal.RemoteDesktop", "SelectDevices", {handle},
                                          {{"types", uint32_t{1}}}, 10.0, &error);
        auto begun = keyboard->request("org.freedesktop.portal.RemoteDesktop", "Start",
                                       {handle, std::string()}, {}, 30.0, &error);
        return selected && begun && selected->code == 0 && begun->code == 0 ? handle : std::string();
    }
    void press(const std::vector<int32_t>& chord) {
        for (int32_t keysym : chord) ASSERT_TRUE(keyboard->notifyKeysym(keys, keysym, true));
        for (auto it = chord.rbegin(); it != chord.rend(); ++it)
            ASSERT_TRUE(keyboard->notifyKeysym(keys, *it, false));
    }
    bool settle(const std::function<bool()>& done, double seconds = 10.0) {
        return queue.runUntil(done, Seconds(seconds));
    }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>(true);
    ScopedLogSink scopedLogs{logs};
    SystemClock clock;
    RunLoopMainQueue queue{clock};
    std::unique_ptr<PortalTestClient> keyboard;
    std::string keys;
    int keyboards = 0;
    std::unique_ptr<LibdbusPortalBus> bus;
    std::unique_ptr<GlobalShortcutsPortal> portal;
    std::map<HotKeyHandle, int> statuses;
    Subscription statusWatch;
    std::unique_ptr<ShortcutManager> manager;
    std::vector<pid_t> started;
};

TEST_F(GlobalShortcutsKde, APressOfTheBoundChordCallsTheHandlerOnceAndANewKeyRebinds) {
    std::vector<uint32_t> pressed;
    ASSERT_EQ(portal->installHandler([&](uint32_t id) { pressed.push_back(id); }), kHotKeyOk);
    const auto first = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    ASSERT_TRUE(first.handle);
    ASSERT_TRUE(settle([&] { return statuses.count(*first.handle) > 0; })) << "the portal never answered";
    ASSERT_EQ(statuses[*first.handle], kHotKeyOk);
    EXPECT_EQ(portal->assignedTrigger(*first.handle), "Ctrl+Alt+Space");
    EXPECT_TRUE(logs->contains("GlobalShortcuts: toggle bound to Ctrl+Alt+Space (asked for CTRL+ALT+space)"));

    press({kControlL, kAltL, ' '});
    EXPECT_TRUE(settle([&] { return !pressed.empty(); }, 5.0)) << "no Activated for Ctrl+Alt+Space";
    settle([] { return false; }, 0.5);  // a second call would have come by now
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1}));

    // The picker's sequence: the old key goes, the new one is bound under the same name.
    portal->unregisterHotKey(*first.handle);
    const auto second = portal->registerHotKey(2, kCtrlAlt, 1);
    ASSERT_TRUE(second.handle);
    ASSERT_TRUE(settle([&] { return statuses.count(*second.handle) > 0; }));
    ASSERT_EQ(statuses[*second.handle], kHotKeyOk);
    EXPECT_EQ(portal->assignedTrigger(*second.handle), "Ctrl+Alt+D");
    pressed.clear();
    press({kControlL, kAltL, ' '});
    settle([] { return false; }, 1.0);
    EXPECT_TRUE(pressed.empty()) << "the old key still fires";
    press({kControlL, kAltL, 'd'});
    EXPECT_TRUE(settle([&] { return !pressed.empty(); }, 5.0)) << "no Activated for Ctrl+Alt+D";
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1}));
}

TEST_F(GlobalShortcutsKde, SuperAndShiftAreUnderstood) {
    ASSERT_EQ(portal->installHandler([](uint32_t) {}), kHotKeyOk);
    const auto reg = portal->registerHotKey(2, kModifierCommand | kModifierShift, 1);
    ASSERT_TRUE(reg.handle);
    ASSERT_TRUE(settle([&] { return statuses.count(*reg.handle) > 0; }));
    EXPECT_EQ(statuses[*reg.handle], kHotKeyOk);
    EXPECT_EQ(portal->assignedTrigger(*reg.handle), "Meta+Shift+D");
}

TEST_F(GlobalShortcutsKde, EscapeCancelsOnlyWhileARecordingRuns) {
    testing::TempDir home;
    DataFolder folder{home.path()};
    FileStorageManager storage{folder, clock};
    testing::FakeKeyMonitor monitor{queue};
    monitor.observesAll = false;
    testing::FakeLocalKeyMonitor local;
    Observable<bool> recording{false};
    int toggles = 0, cancels = 0;
    manager = std::make_unique<ShortcutManager>(queue, storage, *portal, monitor, local);
    manager->toggleRecordingHandler = [&] { ++toggles; };
    manager->cancelRecordingHandler = [&] { ++cancels; };
    manager->followRecording(recording);
    ASSERT_TRUE(
        settle([&] { return manager->toggleHotKeyRef() && statuses.count(*manager->toggleHotKeyRef()); }));
    ASSERT_FALSE(manager->toggleRegistrationFailure());

    press({kEscape});
    settle([] { return false; }, 1.0);
    EXPECT_EQ(cancels, 0) << "Escape is claimed while idle";

    for (int round = 0; round < 2; ++round) {
        recording.set(true);
        ASSERT_TRUE(manager->recordingCancelHotKeyRef());
        const HotKeyHandle cancel = *manager->recordingCancelHotKeyRef();
        ASSERT_TRUE(settle([&] { return statuses.count(cancel) > 0; })) << "round " << round;
        EXPECT_EQ(statuses[cancel], kHotKeyOk) << "round " << round;
        EXPECT_TRUE(manager->cancelReachesAllApplications());
        press({kEscape});
        EXPECT_TRUE(settle([&] { return cancels == round + 1; }, 5.0)) << "round " << round;
        recording.set(false);
        settle([] { return false; }, 0.5);
        press({kEscape});
        settle([] { return false; }, 1.0);
        EXPECT_EQ(cancels, round + 1) << "Escape still claimed after the recording, round " << round;
    }
    EXPECT_EQ(logs->count("Carbon HotKey cancel detected!"), 2u);
    press({kControlL, kAltL, ' '});
    EXPECT_TRUE(settle([&] { return toggles == 1; }, 5.0));
}

// A bare cancel key that other applications type: Q stands in for Escape because a text window shows
// whether it arrived.
TEST_F(GlobalShortcutsKde, ABareCancelKeyStaysWithOtherApplicationsExceptWhileRecordingAndAfterQuit) {
    testing::TempDir home;
    DataFolder folder{home.path()};
    FileStorageManager storage{folder, clock};
    AppSettings settings = storage.loadSettings();
    settings.cancelShortcut = Shortcut{12, 0}.encode();
    storage.saveSettings(settings);
    testing::FakeKeyMonitor monitor{queue};
    monitor.observesAll = false;
    testing::FakeLocalKeyMonitor local;
    Observable<bool> recording{false};
    int cancels = 0;
    manager = std::make_unique<ShortcutManager>(queue, storage, *portal, monitor, local);
    manager->cancelRecordingHandler = [&] { ++cancels; };
    manager->followRecording(recording);
    ASSERT_TRUE(
        settle([&] { return manager->toggleHotKeyRef() && statuses.count(*manager->toggleHotKeyRef()); }));

    const auto output = home.path() / "typed.txt";
    ASSERT_NO_FATAL_FAILURE(openTextWindow(output));
    press({'q'});
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "q"; }, 5.0))
        << "idle: " << vocle::testing::readText(output);

    recording.set(true);
    const HotKeyHandle cancel = *manager->recordingCancelHotKeyRef();
    ASSERT_TRUE(settle([&] { return statuses.count(cancel) > 0; }));
    ASSERT_EQ(statuses[cancel], kHotKeyOk);
    press({'q'});
    EXPECT_TRUE(settle([&] { return cancels == 1; }, 5.0));
    EXPECT_EQ(vocle::testing::readText(output), "q") << "the key reached the window while we held it";

    recording.set(false);
    settle([] { return false; }, 0.5);
    press({'q'});
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "qq"; }, 5.0))
        << "after: " << vocle::testing::readText(output);

    // Quitting in the middle of a recording gives the key back too.
    recording.set(true);
    ASSERT_TRUE(settle([&] { return statuses.count(*manager->recordingCancelHotKeyRef()) > 0; }));
    manager.reset();
    portal.reset();
    settle([] { return false; }, 0.5);
    press({'q'});
    EXPECT_TRUE(pollUntil([&] { return vocle::testing::readText(output) == "qqq"; }, 5.0))
        << "after quit: " << vocle::testing::readText(output);
    EXPECT_EQ(cancels, 1);
}

}  // namespace
}  // namespace vocle
