#include <gtest/gtest.h>

#include <memory>

#include "desktop/KeyCaps.h"
#include "desktop/ShortcutManager.h"
#include "foundation/Base64.h"
#include "platform/testing/FakeHotKeys.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

constexpr uint16_t kSpace = keycode::kSpace;
constexpr uint16_t kEscape = keycode::kEscape;
// Ctrl+Alt: Alt+Space alone is the window menu of most Linux desktops.
constexpr uint64_t kDefaultModifiers = kModifierControl | kModifierOption;

class ShortcutManagerTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    FileStorageManager storage{folder, clock};
    FakeHotKeys hotKeys{clock};
    FakeKeyMonitor globalMonitor{clock};
    FakeLocalKeyMonitor localMonitor;
    std::unique_ptr<ShortcutManager> manager;
    int toggles = 0;
    int cancels = 0;

    void start() {
        manager = std::make_unique<ShortcutManager>(clock, storage, hotKeys, globalMonitor, localMonitor);
        manager->toggleRecordingHandler = [this] { ++toggles; };
        manager->cancelRecordingHandler = [this] { ++cancels; };
    }
    void storeShortcuts(std::optional<std::string> toggle, std::optional<std::string> cancel) {
        AppSettings s = storage.loadSettings();
        s.toggleShortcut = std::move(toggle);
        s.cancelShortcut = std::move(cancel);
        storage.saveSettings(s);
    }
    void change(Shortcut toggle) {
        manager->currentShortcut = toggle;
        manager->saveShortcuts();
        manager->unregisterShortcuts();
        manager->registerShortcuts();
    }
};

TEST_F(ShortcutManagerTest, DefaultsRegisterOnlyTheToggleHotKeyAndBothMonitors) {
    start();
    EXPECT_EQ(manager->currentShortcut, (Shortcut{49, 0xC0000}));
    EXPECT_EQ(manager->cancelShortcut, (Shortcut{53, 0}));

    ASSERT_EQ(hotKeys.registrations().size(), 1u);
    const auto toggle = hotKeys.registrationFor(1);
    ASSERT_TRUE(toggle);
    EXPECT_EQ(toggle->keyCode, kSpace);
    EXPECT_EQ(toggle->modifiers, kDefaultModifiers);
    EXPECT_EQ(manager->toggleHotKeyRef(), toggle->handle);
    // Escape alone is never grabbed system-wide.
    EXPECT_FALSE(hotKeys.registrationFor(2));
    EXPECT_FALSE(manager->cancelHotKeyRef());
    EXPECT_EQ(globalMonitor.monitorCount(), 1u);
    EXPECT_EQ(localMonitor.monitorCount(), 1u);

    const auto lines = logs->lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_TRUE(logs->contains("Registering shortcuts: keyCode=49, modifiers=786432"));
    EXPECT_TRUE(logs->contains("Carbon HotKey registered successfully for toggle"));
    EXPECT_FALSE(logs->contains("for cancel"));
    EXPECT_EQ(lines.back(), "Shortcut registration completed");
    EXPECT_EQ(manager->hotKeyID.signature, 0x4448544Bu);
    EXPECT_EQ(manager->cancelHotKeyID.id, 2u);
}

TEST_F(ShortcutManagerTest, HotKeyPressCallsTheToggleHandlerOnceThroughTheMainQueue) {
    start();
    ASSERT_TRUE(hotKeys.press(kSpace, kDefaultModifiers | kModifierCapsLock));
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(cancels, 0);
    EXPECT_EQ(logs->count("Carbon HotKey toggle detected!"), 1u);
}

TEST_F(ShortcutManagerTest, GlobalMonitorMatchesMaskedFlagsExactly) {
    start();
    globalMonitor.keyDown(kSpace, kDefaultModifiers | kModifierCapsLock | 0x800000 /* keypad */);
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1) << "lock and device bits are masked off";

    globalMonitor.keyDown(kSpace, kDefaultModifiers | kModifierShift);
    globalMonitor.keyDown(kSpace, 0);
    globalMonitor.keyDown(keycode::kA, kDefaultModifiers);
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1) << "an extra Shift, a missing Option or another key is not the shortcut";

    globalMonitor.keyDown(kEscape, kModifierCapsLock);
    globalMonitor.keyDown(kEscape, kModifierShift);
    globalMonitor.type({KeyEventType::keyUp, kEscape, 0});
    clock.runUntilIdle();
    EXPECT_EQ(cancels, 1);
    EXPECT_EQ(logs->count("Global NSEvent shortcut detected!"), 1u);
    EXPECT_EQ(logs->count("Global NSEvent cancel shortcut detected!"), 1u);
}

TEST_F(ShortcutManagerTest, GlobalMonitorCallsHandlersAsynchronously) {
    start();
    int togglesSeenBySecondTask = -1;
    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    clock.post([&] { togglesSeenBySecondTask = toggles; });
    // The monitor's own task runs first and only schedules the handler, after the task queued above.
    clock.runUntilIdle();
    EXPECT_EQ(togglesSeenBySecondTask, 0);
    EXPECT_EQ(toggles, 1);
}

TEST_F(ShortcutManagerTest, LocalMonitorConsumesMatchesAndCallsHandlersSynchronously) {
    start();
    EXPECT_TRUE(localMonitor.keyDown(kSpace, kDefaultModifiers | kModifierCapsLock));
    EXPECT_EQ(toggles, 1) << "called before the event loop runs again";
    EXPECT_TRUE(logs->contains("Local event - KeyCode: 49, Modifiers: 786432, Expected: 49, 786432"));
    EXPECT_TRUE(logs->contains("🔥 SHORTCUT MATCHED! Consuming event to prevent space insertion"));
    EXPECT_TRUE(logs->contains("TIMESTAMP: 800000000"));
    EXPECT_TRUE(logs->contains(" - USER SHORTCUT TRIGGERED"));

    EXPECT_FALSE(localMonitor.keyDown(kSpace, kDefaultModifiers | kModifierShift));
    EXPECT_FALSE(localMonitor.keyDown(keycode::kA, 0));
    EXPECT_FALSE(localMonitor.dispatch({KeyEventType::flagsChanged, keycode::kOption, kDefaultModifiers}));
    EXPECT_EQ(toggles, 1);

    EXPECT_TRUE(localMonitor.keyDown(kEscape, 0));
    EXPECT_EQ(cancels, 1);
    EXPECT_TRUE(logs->contains("🔥 CANCEL SHORTCUT MATCHED! Consuming event"));
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(cancels, 1);
}

TEST_F(ShortcutManagerTest, SuspensionSilencesAllThreePathsAndLetsKeysThrough) {
    start();
    manager->isSuspended = true;
    EXPECT_TRUE(hotKeys.press(kSpace, kDefaultModifiers));
    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    globalMonitor.keyDown(kEscape, 0);
    EXPECT_FALSE(localMonitor.keyDown(kSpace, kDefaultModifiers));
    EXPECT_FALSE(localMonitor.keyDown(kEscape, 0));
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 0);
    EXPECT_EQ(cancels, 0);
    EXPECT_FALSE(logs->contains("detected!"));
    EXPECT_FALSE(logs->contains("MATCHED"));
    // Nothing was unregistered by suspending.
    EXPECT_EQ(hotKeys.registrations().size(), 1u);

    manager->isSuspended = false;
    hotKeys.press(kSpace, kDefaultModifiers);
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1);
}

TEST_F(ShortcutManagerTest, ToggleWinsWhenBothShortcutsAreTheSame) {
    start();
    manager->cancelShortcut = manager->currentShortcut;
    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    clock.runUntilIdle();
    EXPECT_TRUE(localMonitor.keyDown(kSpace, kDefaultModifiers));
    EXPECT_EQ(toggles, 2);
    EXPECT_EQ(cancels, 0);
}

TEST_F(ShortcutManagerTest, CancelShortcutWithAModifierIsAHotKeyWithId2) {
    storeShortcuts(std::nullopt, Shortcut{kEscape, kModifierControl}.encode());
    start();
    const auto cancel = hotKeys.registrationFor(2);
    ASSERT_TRUE(cancel);
    EXPECT_EQ(cancel->keyCode, kEscape);
    EXPECT_EQ(cancel->modifiers, kModifierControl);
    EXPECT_TRUE(logs->contains("Carbon HotKey registered successfully for cancel"));

    hotKeys.press(kEscape, kModifierControl);
    clock.runUntilIdle();
    EXPECT_EQ(cancels, 1);
    EXPECT_TRUE(logs->contains("Carbon HotKey cancel detected!"));
}

TEST_F(ShortcutManagerTest, RefusedRegistrationsAreLoggedAndTheMonitorsStillWork) {
    hotKeys.refuse(kSpace, kDefaultModifiers, 10);
    hotKeys.refuse(kEscape, kModifierControl, 10);
    storeShortcuts(std::nullopt, Shortcut{kEscape, kModifierControl}.encode());
    start();
    EXPECT_TRUE(logs->contains("Failed to register Carbon HotKey for toggle: 10"));
    EXPECT_TRUE(logs->contains("Failed to register Carbon HotKey for cancel: 10"));
    EXPECT_FALSE(manager->toggleHotKeyRef());
    EXPECT_EQ(logs->lines().back(), "Shortcut registration completed");

    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    globalMonitor.keyDown(kEscape, kModifierControl);
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1);
    EXPECT_EQ(cancels, 1);
}

TEST_F(ShortcutManagerTest, HandlerInstallFailureSkipsHotKeysButNotMonitors) {
    hotKeys.installStatus = kHotKeyNoDisplay;
    start();
    EXPECT_TRUE(logs->contains("Failed to install Carbon event handler: -1"));
    EXPECT_EQ(hotKeys.registerCalls, 0);
    EXPECT_FALSE(logs->contains("Carbon HotKey registered"));
    EXPECT_EQ(globalMonitor.monitorCount(), 1u);
    EXPECT_TRUE(localMonitor.keyDown(kSpace, kDefaultModifiers));
    EXPECT_EQ(toggles, 1);
}

TEST_F(ShortcutManagerTest, ChangeSequencePersistsAndReRegisters) {
    AppSettings before = storage.loadSettings();
    before.vocabularyWords = "Kubernetes";
    storage.saveSettings(before);
    start();

    change({keycode::kA, kModifierControl});
    const AppSettings saved = storage.loadSettings();
    ASSERT_TRUE(saved.toggleShortcut);
    EXPECT_EQ(*saved.toggleShortcut, R"({"keyCode":0,"modifiersRaw":262144})");
    EXPECT_EQ(*saved.cancelShortcut, R"({"keyCode":53,"modifiersRaw":0})");
    EXPECT_EQ(saved.vocabularyWords, "Kubernetes") << "other settings stay as they were";
    // In the file the record is Base64 of the compact JSON.
    const std::string file = readText(vocleFile("settings.json"));
    EXPECT_NE(file.find(base64::encode(std::string(R"({"keyCode":0,"modifiersRaw":262144})"))),
              std::string::npos);

    ASSERT_EQ(hotKeys.registrations().size(), 1u);
    EXPECT_EQ(hotKeys.registrations()[0].keyCode, keycode::kA);
    EXPECT_EQ(globalMonitor.monitorCount(), 1u);
    EXPECT_EQ(localMonitor.monitorCount(), 1u);
    EXPECT_FALSE(hotKeys.press(kSpace, kDefaultModifiers));
    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    hotKeys.press(keycode::kA, kModifierControl);
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 1);

    // A new instance loads what was saved.
    manager.reset();
    start();
    EXPECT_EQ(manager->currentShortcut, (Shortcut{keycode::kA, kModifierControl}));
    EXPECT_EQ(manager->cancelShortcut, (Shortcut{kEscape, 0}));
}

TEST_F(ShortcutManagerTest, UndecodableStoredShortcutsLeaveTheDefaults) {
    storeShortcuts(std::string("not json"), std::string(R"({"keyCode":"x"})"));
    start();
    EXPECT_EQ(manager->currentShortcut, Shortcut::defaultToggle());
    EXPECT_EQ(manager->cancelShortcut, Shortcut::defaultCancel());
}

TEST_F(ShortcutManagerTest, UnregisterAndDestructionRemoveEverythingAndDropPendingCalls) {
    start();
    manager->unregisterShortcuts();
    EXPECT_TRUE(hotKeys.registrations().empty());
    EXPECT_FALSE(hotKeys.hasHandler());
    EXPECT_EQ(globalMonitor.monitorCount(), 0u);
    EXPECT_EQ(localMonitor.monitorCount(), 0u);
    manager->registerShortcuts();

    // A press already on its way when the manager goes away does nothing.
    globalMonitor.keyDown(kSpace, kDefaultModifiers);
    hotKeys.press(kSpace, kDefaultModifiers);
    manager.reset();
    EXPECT_EQ(globalMonitor.monitorCount(), 0u);
    EXPECT_TRUE(hotKeys.registrations().empty());
    clock.runUntilIdle();
    EXPECT_EQ(toggles, 0);
}

TEST(ShortcutDisplay, PartsInFixedOrderThenKeyName) {
    using V = std::vector<std::string>;
    EXPECT_EQ(ShortcutManager::displayParts(49, 0x80000), (V{"Alt", "Space"}));
    EXPECT_EQ(ShortcutManager::displayParts(49, 0xC0000), (V{"Ctrl", "Alt", "Space"}));
    EXPECT_EQ(ShortcutManager::displayParts(0, 0x1E0000), (V{"Ctrl", "Alt", "Shift", "Super", "A"}));
    EXPECT_EQ(ShortcutManager::displayParts(122, 0), (V{"Key"}));
    EXPECT_EQ(ShortcutManager::displayParts(53, 0), (V{"Esc"}));
    EXPECT_EQ(ShortcutManager::displayParts(41, kModifierControl | kModifierCapsLock), (V{"Ctrl", ";"}));
    EXPECT_EQ(ShortcutManager::displayParts(36, kModifierCommand), (V{"Super", "Return"}));
    // Every combination of the four: one cap per bit present, always in the order Ctrl, Alt, Shift, Super.
    const std::vector<std::pair<uint64_t, std::string>> caps = {{kModifierControl, "Ctrl"},
                                                                {kModifierOption, "Alt"},
                                                                {kModifierShift, "Shift"},
                                                                {kModifierCommand, "Super"}};
    for (unsigned mask = 0; mask < 16; ++mask) {
        uint64_t modifiers = 0;
        V expected;
        for (unsigned bit = 0; bit < 4; ++bit) {
            if (mask & (1u << bit)) {
                modifiers |= caps[bit].first;
                expected.push_back(caps[bit].second);
            }
        }
        expected.push_back("Space");
        EXPECT_EQ(ShortcutManager::displayParts(49, modifiers | kModifierCapsLock), expected) << mask;
    }
    EXPECT_EQ(joinKeyCaps(ShortcutManager::displayParts(49, 0xC0000)), "Ctrl+Alt+Space");
    const std::vector<std::pair<uint16_t, const char*>> digits = {{18, "1"}, {19, "2"}, {20, "3"}, {21, "4"},
                                                                  {23, "5"}, {22, "6"}, {26, "7"}, {28, "8"},
                                                                  {25, "9"}, {29, "0"}};
    for (auto [code, name] : digits) EXPECT_EQ(ShortcutManager::keyName(code), name) << code;
    EXPECT_EQ(ShortcutManager::keyName(48), "Tab");
    EXPECT_EQ(ShortcutManager::keyName(51), "Delete");
    EXPECT_EQ(ShortcutManager::keyName(10), "Key") << "ISO section key has no name";
}

TEST(ShortcutRecord, JsonRoundTripAndStrictDecoding) {
    const Shortcut s{49, 0x80000};
    EXPECT_EQ(s.encode(), R"({"keyCode":49,"modifiersRaw":524288})");
    EXPECT_EQ(Shortcut::decode(s.encode()), s);
    EXPECT_FALSE(Shortcut::decode(R"({"keyCode":49})"));
    EXPECT_FALSE(Shortcut::decode(R"({"keyCode":70000,"modifiersRaw":0})"));
    EXPECT_FALSE(Shortcut::decode("[]"));
    EXPECT_EQ(Shortcut::decode(R"({"modifiersRaw":0,"keyCode":53,"extra":true})"), (Shortcut{53, 0}));
}

}  // namespace
