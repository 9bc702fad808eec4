// Openbox with its stock key bindings (as a user gets it): the default toggle shortcut is free there;
// a shortcut openbox holds (Alt+Space, its window menu) is refused, and the user is told through the
// desktop's notification service (dunst on a private session bus) without losing the focus.

#include <gtest/gtest.h>

#include "X11Harness.h"

#include <fstream>
#include <memory>

#include "desktop/ShortcutConflictNotice.h"
#include "desktop/ShortcutManager.h"
#include "foundation/Log.h"
#include "platform/x11/QtDBusNotifications.h"
#include "platform/x11/X11KeyServices.h"
#include "platform/x11/XTestSyntheticKeys.h"
#include "storage/FileStorageManager.h"

using namespace vocle;
using namespace vocle::testing;
using namespace vocle::x11;

namespace {

class StockOpenboxTest : public ::testing::Test {
  protected:
    static DesktopSession::Options stock() {
        DesktopSession::Options o;
        o.windowManagerKeyBindings = true;
        return o;
    }
    void TearDown() override {
        notice.reset();
        manager.reset();
        services.reset();
    }
    // dunst records every notice it shows (application, summary, body) through its script hook.
    void startNotificationDaemon() {
        const auto config = home / "dunstrc";
        const auto script = home / "record.sh";
        {
            std::ofstream out(script);
            out << "#!/bin/sh\nprintf '%s|%s|%s\\n' \"$1\" \"$2\" \"$3\" >> '" << shown.string() << "'\n";
        }
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        {
            std::ofstream out(config);
            out << "[global]\n    font = DejaVu Sans 10\n    width = 420\n    origin = top-right\n    offset "
                   "= 20x20\n\n"
                << "[record]\n    appname = \"*\"\n    script = " << script.string() << "\n";
        }
        session.spawn({"dunst", "-config", config.string()});
        ASSERT_TRUE(pollUntil(
            [&] {
                auto out =
                    session.run({"dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
                                 "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner",
                                 "string:org.freedesktop.Notifications"});
                return out && out->find("boolean true") != std::string::npos;
            },
            10.0))
            << "dunst did not take org.freedesktop.Notifications";
    }
    void startManager() {
        services = std::make_unique<X11KeyServices>(h.mainQueue);
        manager = std::make_unique<ShortcutManager>(h.mainQueue, storage, services->hotKeys,
                                                    services->globalMonitor, services->localMonitor);
        notifications = std::make_unique<QtDBusNotifications>(session.busAddress());
        notice = std::make_unique<ShortcutConflictNotice>(*manager, *notifications, [](bool) {});
    }

    X11Harness& h = X11Harness::instance();  // Qt's event loop delivers the bus replies
    DesktopSession session{stock()};
    TempDir home;
    std::filesystem::path shown = home / "shown.txt";
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    SystemClock clock;
    FileStorageManager storage{DataFolder(home.path()), clock};
    std::unique_ptr<X11KeyServices> services;
    std::unique_ptr<ShortcutManager> manager;
    std::unique_ptr<QtDBusNotifications> notifications;
    std::unique_ptr<ShortcutConflictNotice> notice;
};

TEST_F(StockOpenboxTest, TheDefaultIsFreeAndATakenShortcutIsAnnouncedWithoutTakingTheFocus) {
    startNotificationDaemon();
    const auto ready = home / "ready";
    session.spawn(
        {"xterm", "-geometry", "80x10+40+40", "-e", "sh", "-c", "touch '" + ready.string() + "'; cat"});
    XTestSyntheticKeys keys;
    ASSERT_TRUE(h.pumpUntil(
        [&] { return keys.focusedWindowClass() == "XTerm" && std::filesystem::exists(ready); }, 15.0));

    // The default: openbox's stock bindings leave Ctrl+Alt+Space alone.
    startManager();
    EXPECT_TRUE(logs->contains("Carbon HotKey registered successfully for toggle"));
    EXPECT_FALSE(manager->toggleRegistrationFailure());

    // Alt+Space, the window menu of openbox (and of GNOME, Xfce, Cinnamon, MATE).
    manager->currentShortcut = {keycode::kSpace, kModifierOption};
    manager->saveShortcuts();
    manager->unregisterShortcuts();
    manager->registerShortcuts();
    EXPECT_TRUE(logs->contains("Failed to register Carbon HotKey for toggle: 10"));
    EXPECT_EQ(manager->toggleRegistrationFailure(), kHotKeyBusy);
    ASSERT_TRUE(h.pumpUntil([&] { return readText(shown).find('\n') != std::string::npos; }, 10.0))
        << "no notice reached the notification daemon";
    EXPECT_EQ(
        readText(shown),
        "Vocle|Dictation shortcut Alt+Space is taken|Alt+Space is already used by your desktop or another "
        "application. Choose another shortcut.\n");
    h.pumpFor(0.5);  // the popup is drawn after the daemon ran its hook
    session.run({"import", "-window", "root",
                 (std::filesystem::path(VOCLE_BINARY_DIR) / "screenshots" / "shortcut-notice.png").string()});
    EXPECT_EQ(keys.focusedWindowClass(), std::optional<std::string>("XTerm")) << "the notice took the focus";
}

}  // namespace
