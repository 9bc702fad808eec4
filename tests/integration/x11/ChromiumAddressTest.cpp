#include <httplib.h>
#include <signal.h>

#include <gtest/gtest.h>

#include "X11TestSession.h"
#include "core/AppConstants.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "foundation/DispatchQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RunLoopMainQueue.h"
#include "modes/AutoModeManager.h"
#include "platform/linux/NoBrowserScripting.h"
#include "platform/x11/AtspiAccessibility.h"
#include "platform/x11/X11Workspace.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using namespace std::chrono_literals;
using testing::Spawned;
using testing::TempDir;

const char* const kBusLauncher = "/usr/libexec/at-spi-bus-launcher";
const char* const kRegistry = "/usr/libexec/at-spi2-registryd";

std::string page(const std::string& title) {
    return "<!doctype html><html><head><title>" + title + "</title></head><body><h1>" + title +
           "</h1><p>Dictation target</p></body></html>";
}

// A real Chromium on a private desktop with the accessibility bus, showing pages served over loopback.
// Chromium is slow to start on a small machine: one browser for the whole test, generous deadlines.
TEST(ChromiumAddressTest, AutomaticSwitchingFollowsTheActiveTabsAddress) {
    VOCLE_REQUIRE_PROGRAMS("Xvfb", "openbox", "dbus-daemon", "chromium");
    for (const char* program : {kBusLauncher, kRegistry}) {
        if (access(program, X_OK) != 0) {
            if (testing::runningUnderCI()) FAIL() << program << " is required under CI";
            GTEST_SKIP() << program << " is not installed";
        }
    }
    TempDir dir;
    testing::TestDisplay display(dir.path());
    testing::TestSessionBus bus(dir.path());
    // libatspi and libdbus in this process find the session through the environment.
    setenv("DISPLAY", display.name().c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    const std::map<std::string, std::string> env{{"DISPLAY", display.name()},
                                                 {"DBUS_SESSION_BUS_ADDRESS", bus.address()},
                                                 {"HOME", (dir / "home").string()},
                                                 {"XDG_CONFIG_HOME", (dir / "home/.config").string()},
                                                 {"XDG_CACHE_HOME", (dir / "home/.cache").string()},
                                                 {"GSETTINGS_BACKEND", "memory"}};
    std::filesystem::create_directories(dir / "home");

    AtspiAccessibility accessibility;
    // A desktop's accessibility is off until someone asks for it.
    EXPECT_FALSE(accessibility.isProcessTrusted(false));
    Spawned launcher({kBusLauncher}, env, dir / "at-spi-bus-launcher.log");
    // Asking with a prompt turns the desktop's accessibility on.
    ASSERT_TRUE(testing::pollUntil([&] { return accessibility.isProcessTrusted(true); }, 15s, 100ms))
        << testing::readAll(dir / "at-spi-bus-launcher.log");
    EXPECT_TRUE(accessibility.isProcessTrusted(false));
    Spawned registry({kRegistry}, env, dir / "at-spi2-registryd.log");

    httplib::Server http;
    http.Get("/first", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(page("First page"), "text/html");
    });
    http.Get("/third", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(page("Third page"), "text/html");
    });
    http.Get("/second", [](const httplib::Request&, httplib::Response& res) {
        res.set_content(page("Second page"), "text/html");
    });
    const int port = http.bind_to_any_port("127.0.0.1");
    ASSERT_GT(port, 0);
    std::thread server([&] { http.listen_after_bind(); });
    struct StopServer {
        httplib::Server& http;
        std::thread& thread;
        ~StopServer() {
            http.stop();
            thread.join();
        }
    } stopServer{http, server};
    const std::string first = "http://127.0.0.1:" + std::to_string(port) + "/first";
    // Another host name on loopback, so the second page is another website.
    const std::string second = "http://localhost:" + std::to_string(port) + "/second";

    const std::vector<std::string> chromium{"chromium",
                                            "--force-renderer-accessibility",
                                            "--no-sandbox",
                                            "--user-data-dir=" + (dir / "profile").string(),
                                            "--no-first-run",
                                            "--no-default-browser-check",
                                            "--password-store=basic",
                                            "--disable-gpu",
                                            // Its handler would outlive the browser's process group.
                                            "--disable-crash-reporter",
                                            "--disable-breakpad"};
    auto withUrl = [&](const std::string& url) {
        auto argv = chromium;
        argv.push_back(url);
        return argv;
    };
    Spawned browser(withUrl(first), env, dir / "chromium.log");

    SystemClock clock;
    RunLoopMainQueue queue(clock);
    auto index = std::make_shared<DesktopEntryIndex>(DesktopEntryIndex::fromEnvironment(ProcessEnvironment()));
    auto workspace = X11Workspace::open(queue, index, display.name());
    ASSERT_NE(workspace, nullptr);
    ASSERT_TRUE(queue.runUntil(
        [&] {
            auto front = workspace->frontmostApplication();
            return front && front->bundleIdentifier == "chromium";
        },
        Seconds(60)))
        << "Chromium never came to the front:\n"
        << testing::readAll(dir / "chromium.log");
    EXPECT_EQ(workspace->frontmostApplication()->localizedName, index->name("chromium"));

    NotificationCenter center;
    std::vector<std::pair<std::string, std::string>> websites;  // domain, fallback id
    auto observer = center.addObserver(
        Notifications::autoSwitchModeForWebsite,
        [&](const Notification& n) {
            websites.emplace_back(n.string("domain").value_or(""), n.string("fallbackBundleId").value_or(""));
        },
        &queue);
    NoBrowserScripting scripting;
    SystemRandomSource random;
    {
        BackgroundQueue background(2);
        AutoModeManager manager(queue, background, center, *workspace, scripting, accessibility, random);
        manager.start();
        ASSERT_TRUE(queue.runUntil([&] { return manager.currentURL() == first; }, Seconds(60)))
            << "address never read; last: " << manager.currentURL().value_or("(none)");
        queue.runUntil([&] { return !websites.empty(); }, Seconds(5));
        ASSERT_EQ(websites.size(), 1u);
        EXPECT_EQ(websites[0], std::make_pair(std::string("127.0.0.1"), std::string("chromium")));

        // A second launch opens a new tab in the running browser, which becomes the active one.
        Spawned opener(withUrl(second), env, dir / "chromium-second.log");
        ASSERT_TRUE(queue.runUntil([&] { return manager.currentURL() == second; }, Seconds(60)))
            << "the new tab's address was never read; last: " << manager.currentURL().value_or("(none)");
        queue.runUntil([&] { return websites.size() >= 2; }, Seconds(5));
        ASSERT_EQ(websites.size(), 2u);
        EXPECT_EQ(websites[1].first, "localhost");
        // The same page stays one notification.
        queue.runUntil([] { return false; }, Seconds(2));
        EXPECT_EQ(websites.size(), 2u);

        // A browser that stops answering costs each read its budget, no more, and leaves nothing stuck.
        auto logs = std::make_shared<CapturingLogSink>();
        ScopedLogSink capture(logs);
        const int pid = workspace->frontmostApplication()->processIdentifier;
        ASSERT_EQ(kill(pid, SIGSTOP), 0);
        // Each call gives up after its own time-out, so a read fails within the budget, or hits it.
        EXPECT_TRUE(queue.runUntil(
            [&] {
                return logs->contains("AutoModeManager: Failed to get focused window, AX result: ") ||
                       logs->contains("AutoModeManager: Accessibility API timed out after 1 second");
            },
            Seconds(10)));
        const auto started = std::chrono::steady_clock::now();
        const AXElement app = accessibility.applicationElement(pid);
        const auto window = app ? accessibility.focusedWindow(app) : AXRead<AXElement>{kAXFailure, {}};
        const auto elapsed = std::chrono::steady_clock::now() - started;
        EXPECT_NE(window.code, kAXSuccess);
        EXPECT_LT(elapsed, 2s) << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count() << " ms";
        ASSERT_EQ(kill(pid, SIGCONT), 0);

        const std::string third = "http://127.0.0.1:" + std::to_string(port) + "/third";
        Spawned thirdOpener(withUrl(third), env, dir / "chromium-third.log");
        ASSERT_TRUE(queue.runUntil([&] { return manager.currentURL() == third; }, Seconds(60)))
            << "no address after the browser resumed; last: " << manager.currentURL().value_or("(none)");
    }
}

}  // namespace
}  // namespace vocle
