// The Wayland services against a real headless sway: the virtual keyboard pastes into foot and into a
// native Qt window, the data-control clipboard talks to wl-clipboard, foreign toplevels name the
// focused application.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "desktop/ClipboardManager.h"
#include "desktop/PasteChain.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeDesktopNotifications.h"
#include "platform/wayland/WaylandDesktop.h"
#include "storage/HistoryService.h"
#include "support/DesktopSession.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::testing;
using namespace vocle::wayland;

namespace {

DesktopSession& session() {
    static std::unique_ptr<DesktopSession> shared;
    if (!shared) {
        DesktopSession::Options options;
        options.server = DesktopSession::Server::wayland;
        options.xwayland = false;
        options.sessionBus = false;
        shared = std::make_unique<DesktopSession>(options);
    }
    return *shared;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class WaylandDesktopTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    void SetUp() override {
        ASSERT_NO_THROW(session());
        std::filesystem::create_directories(apps.path());
        std::ofstream(apps.path() / "org.example.Notes.desktop")
            << "[Desktop Entry]\nType=Application\nName=Notes\nExec=true\n";
        index = std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{apps.path()});
        desktop = WaylandDesktop::open(clock, index);
        ASSERT_TRUE(desktop) << "no connection to sway";
    }
    void TearDown() override {
        desktop.reset();
        for (pid_t pid : started) session().stop(pid);
    }

    // Pumps the main queue until `done` holds (work arrives from the connection's thread).
    bool waitUntil(const std::function<bool()>& done, double timeout = 10.0) {
        return pollUntil(done, timeout, [this] { clock.runUntilIdle(); });
    }
    // A foot window running a shell that copies its input, unbuffered, into `output`.
    void openFoot(const std::string& appId, const std::filesystem::path& output) {
        started.push_back(session().spawn(
            {"foot", "--app-id", appId, "sh", "-c", "stty -icanon -echo; exec cat > " + output.string()}));
        ASSERT_TRUE(waitUntil([&] { return desktop->workspace()->focusedAppId() == appId; }))
            << "foot (" << appId << ") never got the focus";
    }
    std::unique_ptr<ClipboardManager> paster(SyntheticKeys& keys) {
        return std::make_unique<ClipboardManager>(clock, *desktop->clipboard(), keys, history, center,
                                                  "TranscriptionCompleted", &notices);
    }

    TempDir apps;
    TempDir scratch;
    std::shared_ptr<DesktopEntryIndex> index;
    std::unique_ptr<WaylandDesktop> desktop;
    std::vector<pid_t> started;
    HistoryService history{folder, clock};
    NotificationCenter center;
    FakeDesktopNotifications notices;
};

TEST_F(WaylandDesktopTest, SwayOffersEveryProtocolThePasteNeeds) {
    EXPECT_EQ(desktop->connection().compositor(), "sway");
    EXPECT_NE(desktop->virtualKeyboard(), nullptr);
    EXPECT_NE(desktop->clipboard(), nullptr);
    EXPECT_NE(desktop->workspace(), nullptr);
    const std::string summary = desktop->summary();
    EXPECT_NE(summary.find("compositor sway"), std::string::npos) << summary;
    EXPECT_NE(summary.find("virtual keyboard, data control, foreign toplevel"), std::string::npos) << summary;
}

TEST_F(WaylandDesktopTest, VirtualKeyboardPastesIntoFootWithCtrlShiftVAndHistoryFollows) {
    const auto out = scratch.path() / "foot.txt";
    openFoot("foot", out);
    PasteChain chain(desktop->virtualKeyboard(), nullptr, {},
                     [this] { return desktop->workspace()->focusedAppId(); });
    auto manager = paster(chain);
    manager->copyAndPaste("grüße aus sway");
    EXPECT_EQ(chain.route(), PasteRoute::virtualKeyboard);
    EXPECT_TRUE(waitUntil([&] { return readFile(out) == "grüße aus sway"; }))
        << "foot received '" << readFile(out) << "'";
    clock.advance(0.6);
    ASSERT_EQ(history.transcriptions.get().size(), 1u);
    EXPECT_EQ(history.transcriptions.get()[0].text, "grüße aus sway");
    EXPECT_TRUE(notices.shown.empty());
}

TEST_F(WaylandDesktopTest, VirtualKeyboardPastesIntoANativeQtWindowWithCtrlV) {
    const auto out = scratch.path() / "qt.txt";
    started.push_back(
        session().spawn({VOCLE_BINARY_DIR "/tests/vocle-test-text-target", out.string(), "org.example.Notes"},
                        {"QT_QPA_PLATFORM=wayland"}));
    ASSERT_TRUE(waitUntil([&] { return desktop->workspace()->focusedAppId() == "org.example.Notes"; }, 15.0))
        << "the Qt window never got the focus";
    PasteChain chain(desktop->virtualKeyboard(), nullptr, {},
                     [this] { return desktop->workspace()->focusedAppId(); });
    auto manager = paster(chain);
    manager->copyAndPaste("Hello from Wayland");
    EXPECT_TRUE(waitUntil([&] { return readFile(out) == "Hello from Wayland"; }))
        << "the Qt window received '" << readFile(out) << "'";
}

TEST_F(WaylandDesktopTest, ClipboardIsServedToOtherClientsAndReadsTheirs) {
    desktop->clipboard()->setString("from vocle ✓");
    EXPECT_EQ(session().run({"wl-paste", "--no-newline"}), "from vocle ✓");
    // Another client takes the selection: ours is cancelled and theirs is read.
    ASSERT_TRUE(session().run({"wl-copy", "from elsewhere"}));
    EXPECT_TRUE(waitUntil([&] { return desktop->clipboard()->string() == "from elsewhere"; }));
}

TEST_F(WaylandDesktopTest, WithoutAVirtualKeyboardTheTranscriptWaitsOnTheClipboardAndTheUserIsTold) {
    const auto out = scratch.path() / "foot-none.txt";
    openFoot("foot", out);
    PasteChain chain(nullptr, nullptr, {}, [this] { return desktop->workspace()->focusedAppId(); });
    auto manager = paster(chain);
    manager->copyAndPaste("kept safe");
    EXPECT_EQ(chain.route(), PasteRoute::clipboardOnly);
    EXPECT_EQ(session().run({"wl-paste", "--no-newline"}), "kept safe");
    ASSERT_EQ(notices.shown.size(), 1u);
    EXPECT_EQ(notices.shown[0].title, ClipboardManager::kNoticeTitle);
    clock.advance(0.6);
    ASSERT_EQ(history.transcriptions.get().size(), 1u);
    EXPECT_TRUE(readFile(out).empty()) << "nothing may be typed without a key path";
}

TEST_F(WaylandDesktopTest, FocusChangesAreReportedAsActivationsOfTheDesktopEntry) {
    std::vector<std::string> activated;
    auto observer =
        desktop->workspace()->observeActivations([&](const std::optional<RunningApplication>& app) {
            activated.push_back(app && app->bundleIdentifier ? *app->bundleIdentifier : "<none>");
        });
    openFoot("org.example.Notes", scratch.path() / "notes.txt");
    openFoot("foot", scratch.path() / "plain.txt");
    ASSERT_TRUE(session().swaymsg({"[app_id=org.example.Notes]", "focus"}));
    ASSERT_TRUE(waitUntil([&] { return activated.size() >= 3; })) << activated.size();
    EXPECT_EQ(activated, (std::vector<std::string>{"org.example.Notes", "foot", "org.example.Notes"}));
    EXPECT_EQ(desktop->workspace()->frontmostApplication()->localizedName, "Notes");
    const auto running = desktop->workspace()->runningApplications();
    EXPECT_EQ(running.size(), 2u);
}

}  // namespace
