#include <gtest/gtest.h>

#include <memory>

#include "desktop/ClipboardManager.h"
#include "desktop/PasteChain.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

using Posted = FakeSyntheticKeys::Posted;
const std::vector<Posted> kCtrlV = {
    {keycode::kControl, true}, {keycode::kV, true}, {keycode::kV, false}, {keycode::kControl, false}};
const std::vector<Posted> kCtrlShiftV = {{keycode::kControl, true}, {keycode::kShift, true},
                                         {keycode::kV, true},       {keycode::kV, false},
                                         {keycode::kShift, false},  {keycode::kControl, false}};

TEST(PasteRouteTest, TheFirstOfferedRouteWinsAndXTestOnlyForXWaylandWindows) {
    EXPECT_EQ(choosePasteRoute({true, true, true}), PasteRoute::virtualKeyboard);
    EXPECT_EQ(choosePasteRoute({true, false, false}), PasteRoute::virtualKeyboard);
    EXPECT_EQ(choosePasteRoute({false, true, true}), PasteRoute::xtest);
    EXPECT_EQ(choosePasteRoute({false, true, false}), PasteRoute::clipboardOnly)
        << "XTest cannot reach native windows";
    EXPECT_EQ(choosePasteRoute({false, false, true}), PasteRoute::clipboardOnly);
    EXPECT_EQ(choosePasteRoute({}), PasteRoute::clipboardOnly);
}

TEST(PasteRouteTest, TerminalRuleCoversWaylandAppIds) {
    for (const char* appId : {"foot", "footclient", "kitty", "Alacritty", "org.wezfurlong.wezterm",
                              "org.kde.konsole", "org.gnome.Terminal", "org.gnome.Ptyxis",
                              "com.gexperts.Tilix", "xfce4-terminal", "com.mitchellh.ghostty"})
        EXPECT_TRUE(ClipboardManager::isTerminalClass(appId)) << appId;
    for (const char* appId : {"org.gnome.TextEditor", "firefox", "org.kde.kate", "footnote", ""})
        EXPECT_FALSE(ClipboardManager::isTerminalClass(appId)) << appId;
}

class PasteChainTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    std::unique_ptr<PasteChain> chain(bool withKeyboard, bool withXTest) {
        return std::make_unique<PasteChain>(
            withKeyboard ? &keyboard : nullptr, withXTest ? &xtest : nullptr,
            [this] { return xwaylandFocused; }, [this] { return appId; });
    }
    std::unique_ptr<ClipboardManager> manager(SyntheticKeys& keys) {
        return std::make_unique<ClipboardManager>(clock, pasteboard, keys, history, center,
                                                  "TranscriptionCompleted", &notices);
    }

    FakeSyntheticKeys keyboard;
    FakeSyntheticKeys xtest;
    bool xwaylandFocused = false;
    std::optional<std::string> appId;
    FakePasteboard pasteboard;
    FakeDesktopNotifications notices;
    HistoryService history{folder, clock};
    NotificationCenter center;
};

TEST_F(PasteChainTest, VirtualKeyboardPastesWithTheTerminalChordChosenByAppId) {
    auto keys = chain(true, true);
    auto paster = manager(*keys);
    appId = "foot";
    paster->copyAndPaste("ls -la");
    EXPECT_EQ(keyboard.posted, kCtrlShiftV);
    EXPECT_TRUE(xtest.posted.empty());
    appId = "org.gnome.TextEditor";
    paster->copyAndPaste("hello");
    EXPECT_EQ(std::vector<Posted>(keyboard.posted.begin() + 6, keyboard.posted.end()), kCtrlV);
    EXPECT_TRUE(notices.shown.empty());
}

TEST_F(PasteChainTest, XTestForAnXWaylandWindowUsesItsClassAndWaitsForHeldModifiers) {
    auto keys = chain(false, true);
    auto paster = manager(*keys);
    xwaylandFocused = true;
    xtest.windowClass = "XTerm";
    xtest.held = kModifierOption;
    paster->copyAndPaste("echo");
    EXPECT_TRUE(xtest.posted.empty()) << "no keys while Alt is held";
    clock.advance(0.1);
    EXPECT_TRUE(xtest.posted.empty());
    xtest.held = 0;
    clock.advance(0.02);
    EXPECT_EQ(xtest.posted, kCtrlShiftV);
    EXPECT_EQ(keys->route(), PasteRoute::xtest);
}

TEST_F(PasteChainTest, HeldModifiersAreForcedOffAfterTheDeadlineOnXTest) {
    auto keys = chain(false, true);
    auto paster = manager(*keys);
    xwaylandFocused = true;
    xtest.held = kModifierOption;
    paster->copyAndPaste("late");
    clock.advance(0.98);
    EXPECT_EQ(xtest.releaseCalls, 0);
    clock.advance(0.02);
    EXPECT_EQ(xtest.releaseCalls, 1);
    EXPECT_EQ(xtest.posted, kCtrlV);
}

TEST_F(PasteChainTest, NoRouteLeavesTheTextOnTheClipboardTellsTheUserAndStillWritesHistory) {
    auto keys = chain(false, true);  // XTest exists, but a native window has the focus
    auto paster = manager(*keys);
    std::vector<std::string> completed;
    auto observer = center.addObserver("TranscriptionCompleted", [&](const Notification& n) {
        completed.push_back(n.string("text").value_or(""));
    });
    paster->copyAndPaste("nothing lost");
    EXPECT_EQ(pasteboard.string(), "nothing lost");
    EXPECT_TRUE(xtest.posted.empty());
    EXPECT_EQ(xtest.heldModifierQueries, 0) << "no modifier wait when no keys will be sent";
    ASSERT_EQ(notices.shown.size(), 1u);
    EXPECT_NE(notices.shown[0].body.find("Ctrl+V"), std::string::npos);
    EXPECT_TRUE(notices.shown[0].actions.empty());
    EXPECT_EQ(completed, std::vector<std::string>{"nothing lost"});
    clock.advance(0.6);
    ASSERT_EQ(history.transcriptions.get().size(), 1u);
    EXPECT_EQ(history.transcriptions.get()[0].text, "nothing lost");

    // The next transcript, with an X window in front, goes through XTest again.
    xwaylandFocused = true;
    paster->copyAndPaste("typed");
    EXPECT_EQ(xtest.posted, kCtrlV);
    EXPECT_EQ(notices.shown.size(), 1u);
}

}  // namespace
