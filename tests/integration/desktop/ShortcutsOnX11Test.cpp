#include <gtest/gtest.h>

#include "X11Harness.h"

#include <QLineEdit>
#include <memory>

#include "desktop/ShortcutManager.h"
#include "foundation/Log.h"
#include "platform/x11/X11KeyServices.h"
#include "storage/FileStorageManager.h"

// Last: Xlib's macros (None, Bool, KeyPress) clash with gtest and Qt names.
#include <X11/Xlib.h>
#include <X11/keysym.h>

using namespace vocle;
using namespace vocle::testing;
using namespace vocle::x11;

namespace {

class X11ShortcutsTest : public ::testing::Test {
  protected:
    void SetUp() override { h = &X11Harness::instance(); }
    void TearDown() override {
        manager.reset();
        services.reset();
        for (pid_t pid : children) h->session.stop(pid);
    }

    void startManager() {
        services = std::make_unique<X11KeyServices>(h->mainQueue);
        ASSERT_TRUE(services->globalMonitor.isAvailable());
        manager = std::make_unique<ShortcutManager>(h->mainQueue, storage, services->hotKeys,
                                                    services->globalMonitor, services->localMonitor);
        manager->toggleRecordingHandler = [this] { ++toggles; };
        manager->cancelRecordingHandler = [this] { ++cancels; };
    }

    // An xterm running `command`; returns once it has the focus and `readyFile` exists.
    void startTerminal(const std::string& command, const std::filesystem::path& readyFile,
                       const std::vector<std::string>& extra = {}) {
        std::vector<std::string> argv = {"xterm", "-geometry", "80x10+40+40"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        argv.insert(argv.end(), {"-e", "sh", "-c", command});
        children.push_back(h->session.spawn(argv));
        XTestSyntheticKeys keys;
        ASSERT_TRUE(h->pumpUntil(
            [&] { return keys.focusedWindowClass() == "XTerm" && std::filesystem::exists(readyFile); }, 15.0))
            << "xterm did not come up with the focus";
    }

    X11Harness* h = nullptr;
    TempDir home;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    SystemClock clock;
    FileStorageManager storage{DataFolder(home.path()), clock};
    std::unique_ptr<X11KeyServices> services;
    std::unique_ptr<ShortcutManager> manager;
    std::vector<pid_t> children;
    int toggles = 0;
    int cancels = 0;
};

TEST_F(X11ShortcutsTest, ToggleHotKeyFiresExactlyOnceWhileAnotherWindowHasTheFocus) {
    const auto typed = home / "typed.txt";
    startTerminal("cat > '" + typed.string() + "'", typed);
    startManager();
    ASSERT_TRUE(logs->contains("Carbon HotKey registered successfully for toggle"));
    EXPECT_FALSE(logs->contains("for cancel")) << "Escape alone is never grabbed";

    ASSERT_TRUE(h->xdotool({"key", "ctrl+alt+space"}));
    EXPECT_TRUE(h->pumpUntil([&] { return toggles > 0; }, 5.0));
    h->pumpFor(0.5);
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(cancels, 0);
    EXPECT_EQ(logs->count("Carbon HotKey toggle detected!"), 1u);
    EXPECT_FALSE(logs->contains("Global NSEvent shortcut detected!"))
        << "the raw copy of a grabbed key is ignored";

    // Caps Lock on still matches: the grab covers every lock variant.
    ASSERT_TRUE(h->xdotool({"key", "Caps_Lock", "ctrl+alt+space", "Caps_Lock"}));
    EXPECT_TRUE(h->pumpUntil([&] { return toggles > 1; }, 5.0));
    // An extra Shift does not.
    ASSERT_TRUE(h->xdotool({"key", "alt+shift+space"}));
    h->pumpFor(0.5);
    EXPECT_EQ(toggles, 2);
}

TEST_F(X11ShortcutsTest, EscapeInAnotherWindowCancelsAndStillReachesIt) {
    const auto received = home / "received.bin";
    // Raw mode: the terminal hands the Escape byte straight to dd.
    startTerminal("stty raw -echo; exec dd bs=1 count=1 of='" + received.string() + "' 2>/dev/null",
                  received);
    startManager();

    ASSERT_TRUE(h->xdotool({"key", "Escape"}));
    EXPECT_TRUE(h->pumpUntil([&] { return cancels > 0 && readText(received) == "\x1b"; }, 5.0))
        << "cancels=" << cancels << " received=" << readText(received).size() << " bytes";
    h->pumpFor(0.3);
    EXPECT_EQ(cancels, 1);
    EXPECT_EQ(toggles, 0);
    EXPECT_EQ(readText(received), "\x1b");
    EXPECT_EQ(logs->count("Global NSEvent cancel shortcut detected!"), 1u);
}

TEST_F(X11ShortcutsTest, GrabHeldByAnotherClientIsReportedAndTheMonitorStillFires) {
    Display* other = XOpenDisplay(nullptr);
    ASSERT_NE(other, nullptr);
    XGrabKey(other, XKeysymToKeycode(other, XK_space), ControlMask | Mod1Mask, DefaultRootWindow(other),
             False, GrabModeAsync, GrabModeAsync);
    XSync(other, False);

    const auto typed = home / "typed.txt";
    startTerminal("cat > '" + typed.string() + "'", typed);
    startManager();
    EXPECT_TRUE(logs->contains("Failed to register Carbon HotKey for toggle: 10")) << "10 is BadAccess";
    EXPECT_FALSE(manager->toggleHotKeyRef());
    EXPECT_EQ(logs->lines().back(), "Shortcut registration completed");

    ASSERT_TRUE(h->xdotool({"key", "ctrl+alt+space"}));
    EXPECT_TRUE(h->pumpUntil([&] { return toggles > 0; }, 5.0));
    h->pumpFor(0.5);
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(logs->count("Global NSEvent shortcut detected!"), 1u);
    XCloseDisplay(other);
}

TEST_F(X11ShortcutsTest, KeysInOurOwnWindowGoToTheLocalMonitorAndCanBeConsumed) {
    // A bare letter as cancel key (the cancel picker allows any key) shows consumption in a text field.
    AppSettings settings = storage.loadSettings();
    settings.cancelShortcut = Shortcut{12 /* Q */, 0}.encode();
    storage.saveSettings(settings);
    startManager();

    QLineEdit field;
    field.setWindowTitle("Own window");
    field.show();
    field.activateWindow();
    ASSERT_TRUE(h->pumpUntil([&] { return field.isActiveWindow() && field.hasFocus(); }, 10.0));

    ASSERT_TRUE(h->xdotool({"type", "--delay", "30", "aqb"}));
    EXPECT_TRUE(h->pumpUntil([&] { return field.text() == "ab" && cancels > 0; }, 5.0))
        << "text='" << field.text().toStdString() << "' cancels=" << cancels;
    h->pumpFor(0.3);
    EXPECT_EQ(cancels, 1) << "the global monitor leaves our own windows to the local one";
    EXPECT_TRUE(logs->contains("🔥 CANCEL SHORTCUT MATCHED! Consuming event"));
    EXPECT_FALSE(logs->contains("Global NSEvent cancel shortcut detected!"));

    // Suspended (a picker is open): the key is typed and nothing fires.
    manager->isSuspended = true;
    ASSERT_TRUE(h->xdotool({"type", "q"}));
    EXPECT_TRUE(h->pumpUntil([&] { return field.text() == "abq"; }, 5.0)) << field.text().toStdString();
    EXPECT_EQ(cancels, 1);
}

}  // namespace
