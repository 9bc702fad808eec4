#include <gtest/gtest.h>

#include <atomic>

#include "core/AppConstants.h"
#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "modes/AutoModeManager.h"
#include "modes/ExtractDomain.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeWorkspace.h"

using namespace vocle;
using vocle::testing::FakeAccessibility;
using vocle::testing::FakeAXNode;
using vocle::testing::FakeBrowserScripting;
using vocle::testing::FakeWorkspace;
using vocle::testing::makeApplication;

namespace {

// Always draws the same number, and counts the draws per range.
class FixedRandom final : public RandomSource {
  public:
    explicit FixedRandom(int value) : value(value) {}
    int next(int upper) override {
        if (upper == 9) ++draws10;
        if (upper == 49) ++draws50;
        return value;
    }
    std::atomic<int> value;
    std::atomic<int> draws10{0};
    std::atomic<int> draws50{0};
};

struct Posted {
    std::string name;
    UserInfo info;
};

const RunningApplication kEditor = makeApplication("org.gnome.TextEditor", "Text Editor", 100);
const RunningApplication kSafari = makeApplication("com.apple.Safari", "Safari", 200);
const RunningApplication kChrome = makeApplication("com.google.Chrome", "Google Chrome", 300);
const RunningApplication kFirefox = makeApplication("org.mozilla.firefox", "Firefox", 400);
const RunningApplication kLinuxChrome = makeApplication("google-chrome", "Google Chrome", 500);

class AutoModeManagerTest : public ::testing::Test {
  protected:
    AutoModeManagerTest() {
        for (const auto& name :
             {Notifications::autoSwitchModeForApplication, Notifications::autoSwitchModeForWebsite}) {
            observers.push_back(center.addObserver(name, [this](const Notification& n) {
                posted.push_back({n.name, n.userInfo});
            }));
        }
        workspace.setFrontmost(kEditor);
        workspace.setRunning({kEditor});
    }

    AutoModeManager& manager() {
        if (!auto_) {
            DispatchQueue& bg = manualBackground ? static_cast<DispatchQueue&>(background) : inlineBackground;
            auto_ = std::make_unique<AutoModeManager>(queue, bg, center, workspace, scripts, ax, random);
        }
        return *auto_;
    }

    // Runs main-queue work due now and background work until both are quiet.
    void pump() {
        for (int i = 0; i < 100; ++i) {
            queue.runUntilIdle();
            if (background.runAll() == 0) break;
        }
        queue.runUntilIdle();
    }
    void advance(double seconds) {
        queue.advance(seconds);
        pump();
    }

    std::vector<Posted> websites() const {
        std::vector<Posted> out;
        for (const auto& p : posted)
            if (p.name == Notifications::autoSwitchModeForWebsite) out.push_back(p);
        return out;
    }
    static std::string str(const UserInfo& info, const std::string& key) {
        return std::get<std::string>(info.at(key));
    }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    VirtualMainQueue queue;
    // Background work runs inline unless a test needs to hold it back.
    bool manualBackground = false;
    InlineDispatchQueue inlineBackground;
    ManualDispatchQueue background;
    NotificationCenter center;
    FakeWorkspace workspace;
    FakeBrowserScripting scripts;
    FakeAccessibility ax;
    FixedRandom random{1};
    std::vector<Subscription> observers;
    std::vector<Posted> posted;
    std::unique_ptr<AutoModeManager> auto_;
};

TEST_F(AutoModeManagerTest, NonBrowserActivationPostsItsIdAndBrowserActivationWaitsForAnAddress) {
    manager().start();
    pump();
    EXPECT_TRUE(posted.empty()) << "start posts nothing";

    workspace.activate(makeApplication("org.gnome.gedit", "gedit", 7));
    pump();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].name, Notifications::autoSwitchModeForApplication);
    EXPECT_EQ(str(posted[0].info, "bundleId"), "org.gnome.gedit");
    EXPECT_TRUE(logs->contains("AutoModeManager: Application switched to gedit (org.gnome.gedit)"));

    scripts.setDefaultOutcome(ScriptOutcome::failure(-1728, "nope"));
    workspace.activate(kSafari);
    pump();
    EXPECT_EQ(posted.size(), 1u) << "a browser coming to the front is not an application switch";
    EXPECT_EQ(manager().currentApplication(), kSafari);

    // Unattributed activations and applications without an id are ignored.
    workspace.activateUnknown();
    workspace.activate(RunningApplication{std::nullopt, std::string("Mystery"), 9});
    pump();
    EXPECT_EQ(manager().currentApplication(), kSafari);
    EXPECT_FALSE(logs->contains("Application switched to Mystery"));
}

TEST_F(AutoModeManagerTest, OnePageIsReportedOnceAndEachNewSiteAgain) {
    workspace.activate(kChrome);
    manager().start();
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0],
                    ScriptOutcome::result("https://www.example.org/a"));
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0],
                    ScriptOutcome::result("https://www.example.org/a"));
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0],
                    ScriptOutcome::result("https://www.example.org/a"));
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0], ScriptOutcome::result("docs.example.com/page"));
    pump();
    ASSERT_EQ(websites().size(), 1u);
    EXPECT_EQ(str(websites()[0].info, "domain"), "example.org");
    EXPECT_EQ(str(websites()[0].info, "fallbackBundleId"), "com.google.Chrome");
    EXPECT_TRUE(logs->contains("AutoModeManager: URL changed to: https://www.example.org/a"));
    EXPECT_TRUE(logs->contains("AutoModeManager: Extracted domain: example.org"));

    advance(0.75);
    advance(0.75);
    EXPECT_EQ(websites().size(), 1u) << "the same address is not reported again";
    advance(0.75);
    ASSERT_EQ(websites().size(), 2u);
    EXPECT_EQ(str(websites()[1].info, "domain"), "docs.example.com");

    // Bringing the browser to the front again forgets the address, so the page counts as new.
    scripts.enqueue(BrowserAddressReader::kChromeScripts[0], ScriptOutcome::result("docs.example.com/page"));
    workspace.activate(kChrome);
    pump();
    EXPECT_EQ(websites().size(), 3u);
}

TEST_F(AutoModeManagerTest, PollsEveryThreeQuartersOfASecondWhileABrowserIsInFront) {
    workspace.activate(kFirefox);
    manager().start();
    pump();
    EXPECT_EQ(ax.focusedWindowReads(), 1u) << "one check right away";
    advance(0.7);
    EXPECT_EQ(ax.focusedWindowReads(), 1u);
    advance(0.1);
    EXPECT_EQ(ax.focusedWindowReads(), 2u);
    advance(1.5);
    EXPECT_EQ(ax.focusedWindowReads(), 4u);

    // With another application in front the ticks go on but read nothing.
    workspace.activate(kEditor);
    pump();
    const auto reads = ax.focusedWindowReads();
    advance(3.0);
    EXPECT_EQ(ax.focusedWindowReads(), reads);
    EXPECT_TRUE(manager().isMonitoring());

    auto_.reset();
    EXPECT_TRUE(logs->contains("AutoModeManager: Stopping automatic mode switching"));
    EXPECT_EQ(workspace.observerCount(), 0u);
    workspace.activate(kFirefox);
    advance(3.0);
    EXPECT_EQ(ax.focusedWindowReads(), reads) << "nothing runs after teardown";
}

TEST_F(AutoModeManagerTest, ChromeScriptsAreTriedInOrderEachWithOneRetry) {
    workspace.activate(kChrome);
    scripts.setDefaultOutcome(ScriptOutcome::failure(-1728, std::nullopt));
    scripts.enqueue(BrowserAddressReader::kChromeScripts[2], ScriptOutcome::result(""));
    scripts.enqueue(BrowserAddressReader::kChromeScripts[2], ScriptOutcome::result("https://example.net/x"));
    manager().start();
    pump();
    // Script 1 failed once; its retry waits 0.3 s, then script 2 follows at once.
    EXPECT_EQ(scripts.executed().size(), 1u);
    advance(0.29);
    EXPECT_EQ(scripts.executed().size(), 1u);
    advance(0.01);
    EXPECT_EQ(scripts.executed().size(), 3u);
    advance(0.3);
    EXPECT_EQ(scripts.executed().size(), 5u);
    ASSERT_TRUE(websites().empty());
    advance(0.3);
    const std::vector<std::string> expected{
        BrowserAddressReader::kChromeScripts[0], BrowserAddressReader::kChromeScripts[0],
        BrowserAddressReader::kChromeScripts[1], BrowserAddressReader::kChromeScripts[1],
        BrowserAddressReader::kChromeScripts[2],
        // the next poll (at 0.75 s) overlaps the first read, as reads are not serialised
        BrowserAddressReader::kChromeScripts[0], BrowserAddressReader::kChromeScripts[2]};
    EXPECT_EQ(scripts.executed(), expected);
    ASSERT_EQ(websites().size(), 1u);
    EXPECT_EQ(str(websites()[0].info, "domain"), "example.net");
    EXPECT_EQ(logs->count(
                  "AutoModeManager: Trying Chrome script 1: tell app \"Google Chrome\" to get the url of the "
                  "active tab of window 1"),
              2u);
    EXPECT_EQ(logs->count("AutoModeManager: Trying Chrome script 3: "), 1u);
    EXPECT_TRUE(logs->contains(
        "AutoModeManager: Executing AppleScript: tell application \"Google Chrome\" to get URL "
        "of active tab of first window"));
    EXPECT_TRUE(logs->contains("AutoModeManager: AppleScript error (code -1728): Unknown error"));
    EXPECT_TRUE(logs->contains("AutoModeManager: AppleScript returned empty or nil result"));
    EXPECT_TRUE(logs->contains("AutoModeManager: AppleScript success, result: 'https://example.net/x'"));
    EXPECT_EQ(logs->count("AutoModeManager: Chrome script 3 succeeded on attempt 2"), 1u);
    EXPECT_EQ(ax.focusedWindowReads(), 0u);

    // All six runs failing falls back to the tree.
    scripts.setDefaultOutcome(ScriptOutcome::notCreated());
    advance(3.0);
    EXPECT_TRUE(logs->contains("AutoModeManager: Failed to create AppleScript object"));
    EXPECT_TRUE(logs->contains("AutoModeManager: All Chrome AppleScript approaches failed"));
    EXPECT_GT(ax.focusedWindowReads(), 0u);
}

TEST_F(AutoModeManagerTest, SafariRetriesTwiceThenFallsBackToTheAccessibilityTree) {
    workspace.activate(kSafari);
    scripts.setDefaultOutcome(ScriptOutcome::failure(kScriptErrorAppNotRunning, "not running"));
    auto window = FakeAXNode::make("AXWindow");
    window->add(FakeAXNode::make("AXToolbar"))->add(FakeAXNode::textField("https://news.example.com/today"));
    ax.setFocusedWindow(kSafari.processIdentifier, window);
    manager().start();
    pump();
    advance(0.5);
    EXPECT_EQ(scripts.executed().size(), 2u);
    ASSERT_TRUE(websites().empty());
    advance(0.5);  // third attempt at 1.0 s (the 0.75 s poll has started a read of its own meanwhile)
    EXPECT_TRUE(logs->contains("AutoModeManager: Browser not running (expected error)"));
    EXPECT_TRUE(logs->contains("AutoModeManager: Safari AppleScript attempt 1 failed, retrying..."));
    EXPECT_TRUE(logs->contains("AutoModeManager: Safari AppleScript attempt 2 failed, retrying..."));
    EXPECT_FALSE(logs->contains("attempt 3 failed"));
    EXPECT_TRUE(logs->contains("AutoModeManager: All Safari AppleScript attempts failed"));
    ASSERT_EQ(websites().size(), 1u);
    EXPECT_EQ(str(websites()[0].info, "domain"), "news.example.com");
    EXPECT_EQ(str(websites()[0].info, "fallbackBundleId"), "com.apple.Safari");
}

TEST_F(AutoModeManagerTest, FirefoxAndDesktopsWithoutScriptingUseOnlyTheTree) {
    auto window = FakeAXNode::make("AXWindow");
    window->add(FakeAXNode::textField("https://mail.example.org/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, window);
    ax.setFocusedWindow(kLinuxChrome.processIdentifier, window);

    workspace.activate(kFirefox);
    manager().start();
    pump();
    EXPECT_TRUE(scripts.executed().empty());
    ASSERT_EQ(websites().size(), 1u);

    scripts.setAvailable(false);
    workspace.activate(kLinuxChrome);
    pump();
    EXPECT_TRUE(scripts.executed().empty()) << "no Chrome script is sent where scripting does not exist";
    ASSERT_EQ(websites().size(), 2u);
    EXPECT_EQ(str(websites()[1].info, "fallbackBundleId"), "google-chrome");
    EXPECT_FALSE(logs->contains("Executing AppleScript"));
}

TEST_F(AutoModeManagerTest, AHangingTreeReadYieldsNothingAfterOneSecondAndItsLateAnswerIsDropped) {
    auto window = FakeAXNode::make("AXWindow");
    window->add(FakeAXNode::textField("https://late.example.org/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, window);
    random.value = 0;  // log every throttled failure
    manualBackground = true;
    workspace.activate(kFirefox);
    manager().start();
    queue.runUntilIdle();  // the lookup sits on the background queue and does not return in time
    EXPECT_EQ(background.pending(), 1u);
    workspace.setFrontmost(kEditor);  // keeps the next polls from reading again
    queue.advance(0.99);
    EXPECT_FALSE(logs->contains("timed out"));
    queue.advance(0.01);
    EXPECT_TRUE(logs->contains("AutoModeManager: Accessibility API timed out after 1 second"));
    EXPECT_TRUE(logs->contains("AutoModeManager: URL check failed for org.mozilla.firefox"));
    background.runAll();
    queue.runUntilIdle();
    EXPECT_TRUE(websites().empty());
    EXPECT_FALSE(manager().currentURL().has_value());
}

TEST_F(AutoModeManagerTest, TreeWalkStopsAtDepthFiveAndTwentyChildren) {
    // A field at depth 5 (window = 0) is out of reach.
    auto deep = FakeAXNode::make("AXWindow");
    auto node = deep;
    for (int d = 1; d < 5; ++d) node = node->add(FakeAXNode::make("AXGroup"));
    node->add(FakeAXNode::textField("https://too-deep.example/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, deep);
    workspace.activate(kFirefox);
    manager().start();
    pump();
    EXPECT_TRUE(websites().empty());

    // At depth 4 it is found.
    auto shallow = FakeAXNode::make("AXWindow");
    node = shallow;
    for (int d = 1; d < 4; ++d) node = node->add(FakeAXNode::make("AXGroup"));
    node->add(FakeAXNode::textField("https://deep-enough.example/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, shallow);
    advance(0.75);
    ASSERT_EQ(websites().size(), 1u);
    EXPECT_EQ(str(websites()[0].info, "domain"), "deep-enough.example");

    // The 21st child is never visited; a non-web text field is skipped.
    auto wide = FakeAXNode::make("AXWindow");
    wide->add(FakeAXNode::textField("search terms"));
    for (int i = 1; i < 20; ++i) wide->add(FakeAXNode::make("AXButton"));
    wide->add(FakeAXNode::textField("https://twenty-first.example/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, wide);
    advance(0.75);
    EXPECT_EQ(websites().size(), 1u);
    wide->children[19] = FakeAXNode::textField("https://twentieth.example/");
    advance(0.75);
    ASSERT_EQ(websites().size(), 2u);
    EXPECT_EQ(str(websites()[1].info, "domain"), "twentieth.example");

    // An element whose role cannot be read is still searched below.
    auto unreadable = FakeAXNode::make("AXWindow");
    unreadable->role = {kAXFailure, std::nullopt};
    unreadable->add(FakeAXNode::textField("https://below-unreadable.example/"));
    ax.setFocusedWindow(kFirefox.processIdentifier, unreadable);
    advance(0.75);
    ASSERT_EQ(websites().size(), 3u);
    EXPECT_EQ(str(websites()[2].info, "domain"), "below-unreadable.example");
}

TEST_F(AutoModeManagerTest, FailureLogsAreThrottledByTheRandomSource) {
    auto window = FakeAXNode::make("AXWindow");
    window->role = {kAXFailure, std::nullopt};
    window->childrenCode = kAXAttributeUnsupported;
    ax.setFocusedWindow(kFirefox.processIdentifier, window);
    workspace.activate(kFirefox);
    manager().start();
    advance(0.75 * 3);
    EXPECT_EQ(random.draws10, 4);
    EXPECT_EQ(random.draws50, 8) << "one draw for the role and one for the children per walk";
    EXPECT_FALSE(logs->contains("URL check failed"));
    EXPECT_FALSE(logs->contains("Failed to get element role"));

    random.value = 0;
    advance(0.75);
    EXPECT_EQ(logs->count("AutoModeManager: URL check failed for org.mozilla.firefox"), 1u);
    EXPECT_EQ(logs->count("AutoModeManager: Failed to get element role, AX result: -25200"), 1u);
    EXPECT_EQ(logs->count("AutoModeManager: Failed to get element children, AX result: -25205"), 1u);
}

TEST_F(AutoModeManagerTest, ReadsNothingFromABrowserThatIsNotRunningOrHasNoWindow) {
    workspace.activate(kFirefox);
    workspace.setRunning({kEditor});
    manager().start();
    pump();
    EXPECT_TRUE(logs->contains("AutoModeManager: Browser org.mozilla.firefox is not running"));
    EXPECT_EQ(ax.focusedWindowReads(), 0u);

    workspace.setRunning({kEditor, kFirefox});
    ax.setFocusedWindowError(kFirefox.processIdentifier, -25204);
    advance(0.75);
    EXPECT_TRUE(logs->contains("AutoModeManager: Failed to get focused window, AX result: -25204"));
    EXPECT_TRUE(websites().empty());
}

TEST(ExtractDomain, HostWithoutSchemeOrWwwAndCaseKept) {
    EXPECT_EQ(extractDomain("example.org/path"), "example.org");
    EXPECT_EQ(extractDomain("  https://www.example.org/x?y#z \n"), "example.org");
    EXPECT_EQ(extractDomain("http://user:pw@Docs.Example.org:8080/"), "Docs.Example.org");
    EXPECT_EQ(extractDomain("www.example.org"), "example.org");
    EXPECT_EQ(extractDomain("wwwexample.org"), "wwwexample.org");
    EXPECT_EQ(extractDomain("http://[::1]:80/"), "::1");
    EXPECT_EQ(extractDomain("file:///etc/hosts"), std::nullopt) << "no host";
    EXPECT_EQ(extractDomain(""), std::nullopt);
    EXPECT_EQ(extractDomain("not a url"), std::nullopt);
    EXPECT_EQ(extractDomain("example.org:port"), std::nullopt);
    EXPECT_EQ(extractDomain("1http://example.org"), std::nullopt) << "schemes start with a letter";
}

}  // namespace
