#include <gtest/gtest.h>

#include <memory>

#include "desktop/ShortcutManager.h"
#include "platform/portal/GlobalShortcutsPortal.h"
#include "platform/testing/FakeHotKeys.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakePortalBus.h"
#include "support/StorageFixture.h"

namespace vocle {
namespace {

using namespace portal;
using testing::FakePortalBus;

constexpr const char* kCreate = "org.freedesktop.portal.GlobalShortcuts.CreateSession";
constexpr const char* kList = "org.freedesktop.portal.GlobalShortcuts.ListShortcuts";
constexpr const char* kBind = "org.freedesktop.portal.GlobalShortcuts.BindShortcuts";
constexpr const char* kClose = "org.freedesktop.portal.Session.Close";
constexpr uint64_t kCtrlAlt = kModifierControl | kModifierOption;

std::optional<std::string> namer(uint16_t keyCode) {
    switch (keyCode) {
        case keycode::kSpace:
            return "space";
        case keycode::kEscape:
            return "Escape";
        case keycode::kA:
            return "a";
        case 2:
            return "d";
        default:
            return std::nullopt;
    }
}

std::map<uint32_t, GlobalShortcutsPortal::ShortcutName> names() {
    return {{1, {"toggle", "Start or stop dictation"}}, {2, {"cancel", "Cancel the dictation"}}};
}

// One shortcut as the portal lists it: (id, {description, trigger_description}).
BusValue listed(const std::string& id, const std::string& triggerDescription) {
    return BusValue(
        BusStruct{{BusValue(id), BusValue(BusDict{{"description", BusValue("d")},
                                                  {"trigger_description", BusValue(triggerDescription)}})}});
}
BusDict shortcutsResult(std::vector<BusValue> items) {
    return {{"shortcuts", BusValue(BusArray{"(sa{sv})", std::move(items)})}};
}

std::string sessionFor(const std::string& name) {
    return sessionPath(":1.42", "vocle_" + name);
}

struct Rig {
    VirtualMainQueue main;
    FakePortalBus bus{main, ":1.42"};
    std::unique_ptr<GlobalShortcutsPortal> portal =
        std::make_unique<GlobalShortcutsPortal>(bus, namer, names());
    std::vector<uint32_t> pressed;
    std::vector<std::pair<HotKeyHandle, int>> statuses;
    Subscription statusWatch = portal->observeStatus([this](HotKeyHandle h, int s) {
        statuses.push_back({h, s});
    });

    Rig() {
        portal->installHandler([this](uint32_t id) { pressed.push_back(id); });
    }

    // The desktop opens the session for the latest CreateSession, then answers its ListShortcuts.
    void openSession(const std::string& name) {
        main.advance(0);
        bus.respond(kCreate, 0, {{"session_handle", BusValue(sessionFor(name))}});
        main.advance(0);
    }
    void answerList(BusDict results) {
        bus.respond(kList, 0, std::move(results));
        main.advance(0);
    }
    void activate(const std::string& session, const std::string& id) {
        bus.emit(kPortalPath, GlobalShortcutsPortal::kInterface, "Activated",
                 {BusValue(ObjectPath{session}), BusValue(id), BusValue(uint64_t{0}), BusValue(BusDict{})});
    }
    size_t closesOf(const std::string& session) const {
        size_t n = 0;
        for (const auto& c : bus.callsOf(kClose))
            if (c.path == session) ++n;
        return n;
    }
};

struct GlobalShortcutsTest : ::testing::Test, Rig {};

TEST(XdgTrigger, FollowsTheShortcutsSyntax) {
    EXPECT_EQ(xdgTrigger(keycode::kSpace, kCtrlAlt, namer), "CTRL+ALT+space");
    EXPECT_EQ(xdgTrigger(keycode::kEscape, 0, namer), "Escape");
    EXPECT_EQ(xdgTrigger(keycode::kA, kShortcutModifierMask, namer), "CTRL+ALT+SHIFT+LOGO+a");
    EXPECT_EQ(xdgTrigger(keycode::kA, kModifierCommand, namer), "LOGO+a");
    EXPECT_EQ(xdgTrigger(122, kModifierControl, namer), std::nullopt);
}

TEST_F(GlobalShortcutsTest, TheSessionCarriesTheShortcutAndNeedsNoBindWhenTheDesktopListsIt) {
    const auto reg = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    ASSERT_EQ(reg.status, kHotKeyOk);
    ASSERT_TRUE(reg.handle);
    main.advance(0);
    const auto creates = bus.callsOf(kCreate);
    ASSERT_EQ(creates.size(), 1u);
    const BusDict& options = *creates[0].args[0].asDict();
    // A stable token: the desktop files the shortcut under it.
    EXPECT_EQ(dictString(options, "session_handle_token"), "vocle_toggle");
    const BusArray& shortcuts = *options.at("shortcuts").asArray();
    ASSERT_EQ(shortcuts.items.size(), 1u);
    const BusStruct& entry = *shortcuts.items[0].asStruct();
    EXPECT_EQ(*entry.fields[0].asString(), "toggle_CTRL_ALT_space");
    EXPECT_EQ(dictString(*entry.fields[1].asDict(), "preferred_trigger"), "CTRL+ALT+space");
    EXPECT_EQ(dictString(*entry.fields[1].asDict(), "description"), "Start or stop dictation");
    EXPECT_EQ(shortcuts.items[0].signature(), "(sa{sv})");

    openSession("toggle");
    const auto lists = bus.callsOf(kList);
    ASSERT_EQ(lists.size(), 1u);
    EXPECT_EQ(lists[0].args[0].asObjectPath()->path, sessionFor("toggle"));
    answerList(shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));

    // Bound from the session's own options: BindShortcuts would open the desktop's settings.
    EXPECT_TRUE(bus.callsOf(kBind).empty());
    EXPECT_EQ(portal->assignedTrigger(*reg.handle), "Ctrl+Alt+Space");
    EXPECT_EQ(statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg.handle, kHotKeyOk}}));
}

TEST_F(GlobalShortcutsTest, ShortcutsInTheCreateSessionAnswerAreTakenAsBound) {
    const auto reg = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    main.advance(0);
    BusDict results = shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")});
    results["session_handle"] = BusValue(sessionFor("toggle"));
    bus.respond(kCreate, 0, results);
    main.advance(0);
    EXPECT_TRUE(bus.callsOf(kList).empty());
    EXPECT_TRUE(bus.callsOf(kBind).empty());
    EXPECT_EQ(statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg.handle, kHotKeyOk}}));
    activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1}));
}

TEST_F(GlobalShortcutsTest, AnUnlistedShortcutIsBoundOnceAndItsOutcomeReported) {
    const auto reg = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    openSession("toggle");
    answerList(shortcutsResult({}));
    const auto binds = bus.callsOf(kBind);
    ASSERT_EQ(binds.size(), 1u);
    EXPECT_EQ(binds[0].args[0].asObjectPath()->path, sessionFor("toggle"));
    EXPECT_EQ(binds[0].args[1].signature(), "a(sa{sv})");
    EXPECT_EQ(*binds[0].args[2].asString(), "");
    EXPECT_TRUE(statuses.empty());

    bus.respond(kBind, 0, shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));
    main.advance(0);
    EXPECT_EQ(statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg.handle, kHotKeyOk}}));
}

TEST_F(GlobalShortcutsTest, RefusedOrFailedBindsReportAStatusAndCloseTheSession) {
    struct Case {
        const char* what;
        std::function<void(Rig&)> desktop;
        int status;
    };
    const std::vector<Case> cases = {
        {"user cancelled the dialog", [](auto& t) { t.bus.respond(kBind, 1); }, kHotKeyRefused},
        {"desktop ended the request", [](auto& t) { t.bus.respond(kBind, 2); }, kHotKeyRefused},
        {"bound without our shortcut", [](auto& t) { t.bus.respond(kBind, 0, shortcutsResult({})); },
         kHotKeyRefused},
        {"key held by another application",
         [](auto& t) { t.bus.respond(kBind, 0, shortcutsResult({listed("toggle_CTRL_ALT_space", "")})); },
         kHotKeyBusy},
    };
    for (const auto& c : cases) {
        Rig t;
        const auto reg = t.portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
        t.openSession("toggle");
        t.answerList(shortcutsResult({}));
        c.desktop(t);
        t.main.advance(0);
        EXPECT_EQ(t.statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg.handle, c.status}})) << c.what;
        EXPECT_EQ(t.closesOf(sessionFor("toggle")), 1u) << c.what;
        // A press arriving late on the dead session does nothing.
        t.activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
        EXPECT_TRUE(t.pressed.empty()) << c.what;
    }
}

TEST_F(GlobalShortcutsTest, NoPortalReportsUnreachable) {
    bus.answers[kCreate] = [](const BusCall&) {
        BusReply r;
        r.errorName = "org.freedesktop.DBus.Error.UnknownMethod";
        return r;
    };
    const auto reg = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    main.advance(0);
    EXPECT_EQ(statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg.handle, kHotKeyNoDisplay}}));

    FakePortalBus offline{main, ""};
    GlobalShortcutsPortal unconnected(offline, namer, names());
    EXPECT_EQ(unconnected.installHandler([](uint32_t) {}), kHotKeyNoDisplay);
    EXPECT_EQ(portal->registerHotKey(122, kCtrlAlt, 1).status, kHotKeyUnknownKey);
}

TEST_F(GlobalShortcutsTest, ActivatedCallsTheHandlerOnceWithTheRegisteredId) {
    portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    openSession("toggle");
    answerList(shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));
    portal->registerHotKey(keycode::kA, kModifierControl, 2);
    openSession("cancel");
    answerList(shortcutsResult({listed("cancel_CTRL_a", "Ctrl+A")}));

    activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1}));
    activate(sessionFor("cancel"), "cancel_CTRL_a");
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1, 2}));
    // Another session's shortcut, or ours named on the wrong session, is not ours.
    activate(sessionFor("cancel"), "toggle_CTRL_ALT_space");
    activate("/org/freedesktop/portal/desktop/session/1_9/other", "toggle_CTRL_ALT_space");
    bus.emit(kPortalPath, GlobalShortcutsPortal::kInterface, "Deactivated",
             {BusValue(ObjectPath{sessionFor("toggle")}), BusValue("toggle_CTRL_ALT_space"),
              BusValue(uint64_t{0}), BusValue(BusDict{})});
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1, 2}));

    portal->removeHandler();
    activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
    EXPECT_EQ(pressed.size(), 2u);
}

TEST_F(GlobalShortcutsTest, ANewKeyGetsANewIdInAFreshSessionUnderTheSameName) {
    const auto first = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    openSession("toggle");
    answerList(shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));

    portal->unregisterHotKey(*first.handle);
    EXPECT_EQ(closesOf(sessionFor("toggle")), 1u);
    const auto second = portal->registerHotKey(2, kModifierControl | kModifierShift, 1);
    // The portal may take calls out of order: the same name is used again only after its Close is answered.
    EXPECT_EQ(bus.callsOf(kCreate).size(), 1u);
    main.advance(0);
    EXPECT_EQ(bus.calls.back().method, "CreateSession");
    const auto creates = bus.callsOf(kCreate);
    ASSERT_EQ(creates.size(), 2u);
    const BusDict& options = *creates[1].args[0].asDict();
    EXPECT_EQ(dictString(options, "session_handle_token"), "vocle_toggle");
    EXPECT_EQ(*options.at("shortcuts").asArray()->items[0].asStruct()->fields[0].asString(),
              "toggle_CTRL_SHIFT_d");
    openSession("toggle");
    answerList(shortcutsResult({listed("toggle_CTRL_SHIFT_d", "Ctrl+Shift+D")}));

    // The old key's id no longer toggles; the new one does.
    activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
    activate(sessionFor("toggle"), "toggle_CTRL_SHIFT_d");
    EXPECT_EQ(pressed, (std::vector<uint32_t>{1}));
    EXPECT_EQ(portal->assignedTrigger(*second.handle), "Ctrl+Shift+D");
}

TEST_F(GlobalShortcutsTest, ATransientShortcutNeverAsksTheUser) {
    const auto reg = portal->registerTransientHotKey(keycode::kEscape, 0, 2);
    ASSERT_TRUE(reg && reg->handle);
    openSession("cancel");
    answerList(shortcutsResult({}));
    EXPECT_TRUE(bus.callsOf(kBind).empty());
    EXPECT_EQ(statuses, (std::vector<std::pair<HotKeyHandle, int>>{{*reg->handle, kHotKeyNeedsConsent}}));
    EXPECT_EQ(closesOf(sessionFor("cancel")), 1u);
}

TEST_F(GlobalShortcutsTest, UnregisteringOrQuittingClosesEverySessionEvenOneStillOpening) {
    const auto toggle = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    openSession("toggle");
    answerList(shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));
    portal->registerTransientHotKey(keycode::kEscape, 0, 2);  // CreateSession not answered yet
    main.advance(0);
    EXPECT_EQ(portal->openSessionCount(), 1u);

    portal.reset();
    main.advance(0);
    EXPECT_EQ(closesOf(sessionFor("toggle")), 1u);
    EXPECT_EQ(closesOf(sessionFor("cancel")), 1u);
    EXPECT_EQ(bus.watcherCount(), 0u);
    (void)toggle;
}

TEST_F(GlobalShortcutsTest, TheDesktopEndingTheSessionReportsTheShortcutLost) {
    const auto reg = portal->registerHotKey(keycode::kSpace, kCtrlAlt, 1);
    openSession("toggle");
    answerList(shortcutsResult({listed("toggle_CTRL_ALT_space", "Ctrl+Alt+Space")}));
    bus.emit(sessionFor("toggle"), kSessionInterface, "Closed", {});
    EXPECT_EQ(statuses.back(), (std::pair<HotKeyHandle, int>{*reg.handle, kHotKeyNoDisplay}));
    activate(sessionFor("toggle"), "toggle_CTRL_ALT_space");
    EXPECT_TRUE(pressed.empty());
}

// The shortcut manager over the portal: what the user sees of it.
class PortalShortcutManagerTest : public ::testing::Test, protected testing::StorageFixtureBase {
  protected:
    FileStorageManager storage{folder, clock};
    FakePortalBus bus{clock, ":1.42"};
    GlobalShortcutsPortal portal{bus, namer, names()};
    testing::FakeKeyMonitor globalMonitor{clock};
    testing::FakeLocalKeyMonitor localMonitor;
    Observable<bool> recording{false};
    std::unique_ptr<ShortcutManager> manager;
    int toggles = 0;
    int cancels = 0;
    int changes = 0;
    Subscription changed;

    void start() {
        globalMonitor.observesAll = false;  // Wayland: the X server sees only its own windows
        manager = std::make_unique<ShortcutManager>(clock, storage, portal, globalMonitor, localMonitor);
        manager->toggleRecordingHandler = [this] { ++toggles; };
        manager->cancelRecordingHandler = [this] { ++cancels; };
        manager->followRecording(recording);
        changed = manager->registrationChanged.subscribe([this] { ++changes; });
    }
    void desktopBinds(const std::string& name, const std::string& id, const std::string& description) {
        clock.advance(0);
        bus.respond(kCreate, 0, {{"session_handle", BusValue(sessionFor(name))}});
        clock.advance(0);
        bus.respond(kList, 0, shortcutsResult({listed(id, description)}));
        clock.advance(0);
    }
    void activate(const std::string& name, const std::string& id) {
        bus.emit(kPortalPath, GlobalShortcutsPortal::kInterface, "Activated",
                 {BusValue(ObjectPath{sessionFor(name)}), BusValue(id), BusValue(uint64_t{0}),
                  BusValue(BusDict{})});
        clock.advance(0);
    }
};

TEST_F(PortalShortcutManagerTest, OnePressTogglesOnceAndEscapeIsClaimedOnlyWhileRecording) {
    start();
    // Success is logged once the desktop has bound the key, not when it was asked.
    EXPECT_FALSE(logs->contains("Carbon HotKey registered successfully for toggle"));
    desktopBinds("toggle", "toggle_CTRL_ALT_space", "Ctrl+Alt+Space");
    EXPECT_EQ(logs->count("Carbon HotKey registered successfully for toggle"), 1u);
    EXPECT_EQ(bus.callsOf(kCreate).size(), 1u);  // no cancel session while idle
    EXPECT_TRUE(manager->cancelReachesAllApplications());

    activate("toggle", "toggle_CTRL_ALT_space");
    EXPECT_EQ(toggles, 1);
    EXPECT_TRUE(logs->contains("Carbon HotKey toggle detected!"));

    recording.set(true);
    clock.advance(0);
    const auto creates = bus.callsOf(kCreate);
    ASSERT_EQ(creates.size(), 2u);
    EXPECT_EQ(dictString(*creates[1].args[0].asDict(), "session_handle_token"), "vocle_cancel");
    desktopBinds("cancel", "cancel_Escape", "Esc");
    activate("cancel", "cancel_Escape");
    EXPECT_EQ(cancels, 1);

    recording.set(false);
    EXPECT_EQ(bus.callsOf(kClose).size(), 1u);
    EXPECT_EQ(bus.callsOf(kClose)[0].path, sessionFor("cancel"));
    activate("cancel", "cancel_Escape");
    EXPECT_EQ(cancels, 1);
    EXPECT_EQ(toggles, 1);
}

TEST_F(PortalShortcutManagerTest, WhereTheDesktopWouldAskTheCancelFallsBackToIndicatorAndTray) {
    start();
    desktopBinds("toggle", "toggle_CTRL_ALT_space", "Ctrl+Alt+Space");
    recording.set(true);
    clock.advance(0);
    bus.respond(kCreate, 0, {{"session_handle", BusValue(sessionFor("cancel"))}});
    clock.advance(0);
    const int before = changes;
    bus.respond(kList, 0, shortcutsResult({}));
    clock.advance(0);
    EXPECT_FALSE(manager->cancelReachesAllApplications());
    EXPECT_GT(changes, before);
    // Not a conflict the user could solve by choosing another key.
    EXPECT_FALSE(manager->cancelRegistrationFailure());
    EXPECT_TRUE(bus.callsOf(kBind).empty());

    // Later recordings do not try again.
    recording.set(false);
    recording.set(true);
    clock.advance(0);
    EXPECT_EQ(bus.callsOf(kCreate).size(), 2u);
}

TEST_F(PortalShortcutManagerTest, ARefusedToggleReachesTheConflictPathAndAPickerChangeRebinds) {
    start();
    clock.advance(0);
    bus.respond(kCreate, 0, {{"session_handle", BusValue(sessionFor("toggle"))}});
    clock.advance(0);
    bus.respond(kList, 0, shortcutsResult({listed("toggle_CTRL_ALT_space", "")}));
    clock.advance(0);
    EXPECT_EQ(manager->toggleRegistrationFailure(), kHotKeyBusy);

    manager->currentShortcut = Shortcut{2, kModifierControl | kModifierShift};
    manager->saveShortcuts();
    manager->unregisterShortcuts();
    manager->registerShortcuts();
    EXPECT_FALSE(manager->toggleRegistrationFailure());
    desktopBinds("toggle", "toggle_CTRL_SHIFT_d", "Ctrl+Shift+D");
    EXPECT_FALSE(manager->toggleRegistrationFailure());
    activate("toggle", "toggle_CTRL_SHIFT_d");
    EXPECT_EQ(toggles, 1);
}

TEST_F(PortalShortcutManagerTest, ACancelKeyWithAModifierIsBoundAtStartAndNotAgainWhileRecording) {
    AppSettings s = storage.loadSettings();
    s.cancelShortcut = Shortcut{keycode::kA, kModifierControl}.encode();
    storage.saveSettings(s);
    start();
    clock.advance(0);
    EXPECT_EQ(bus.callsOf(kCreate).size(), 2u);
    recording.set(true);
    clock.advance(0);
    EXPECT_EQ(bus.callsOf(kCreate).size(), 2u);
}

// Without the portal the hot keys are X grabs: they never claim a bare key, and whether the cancel key is
// seen everywhere depends on what the X server sees.
TEST(CancelReach, WithoutThePortalItIsWhatTheKeyMonitorSees) {
    testing::StorageFixtureBase fixture;
    FileStorageManager storage{fixture.folder, fixture.clock};
    testing::FakeHotKeys hotKeys{fixture.clock};
    testing::FakeKeyMonitor monitor{fixture.clock};
    testing::FakeLocalKeyMonitor local;
    Observable<bool> recording{false};
    ShortcutManager manager(fixture.clock, storage, hotKeys, monitor, local);
    manager.followRecording(recording);
    recording.set(true);
    EXPECT_EQ(hotKeys.registrations().size(), 1u);        // the toggle only: Escape stays with everyone
    EXPECT_TRUE(manager.cancelReachesAllApplications());  // X11: the monitor sees every window
    monitor.observesAll = false;                          // an X server under a Wayland compositor
    EXPECT_FALSE(manager.cancelReachesAllApplications());
    // A cancel key with a modifier is a hot key of its own and reaches everywhere once granted.
    manager.cancelShortcut = Shortcut{keycode::kA, kModifierControl};
    manager.unregisterShortcuts();
    manager.registerShortcuts();
    EXPECT_TRUE(manager.cancelReachesAllApplications());
    hotKeys.refuse(keycode::kA, kModifierControl, kHotKeyBusy);
    manager.unregisterShortcuts();
    manager.registerShortcuts();
    EXPECT_FALSE(manager.cancelReachesAllApplications());
}

}  // namespace
}  // namespace vocle

namespace {

TEST(GlobalShortcutsDesktop, GnomeServesItsOwnPortalFromVersion48AndOtherDesktopsAlways) {
    using vocle::portal::GlobalShortcutsPortal;
    EXPECT_TRUE(GlobalShortcutsPortal::desktopServes("KDE", std::nullopt));
    EXPECT_TRUE(GlobalShortcutsPortal::desktopServes("Hyprland", std::nullopt));
    EXPECT_TRUE(GlobalShortcutsPortal::desktopServes("ubuntu:GNOME", std::string("48.1")));
    EXPECT_TRUE(GlobalShortcutsPortal::desktopServes("GNOME", std::string("49.alpha")));
    // Before 48 an offered interface is another desktop's backend that GNOME cannot serve.
    EXPECT_FALSE(GlobalShortcutsPortal::desktopServes("GNOME", std::string("43.9")));
    EXPECT_FALSE(GlobalShortcutsPortal::desktopServes("ubuntu:GNOME", std::nullopt));
    EXPECT_FALSE(GlobalShortcutsPortal::desktopServes("GNOME", std::string("unknown")));
    EXPECT_TRUE(GlobalShortcutsPortal::desktopServes("GNOME-Flashback-X", std::nullopt))
        << "names match whole";
}

}  // namespace
