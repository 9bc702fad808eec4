#include "platform/x11/AtspiWorkspace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "X11TestSession.h"
#include "core/AppConstants.h"
#include "foundation/Clock.h"
#include "foundation/DispatchQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RunLoopMainQueue.h"
#include "modes/AutoModeManager.h"
#include "platform/linux/NoBrowserScripting.h"
#include "platform/x11/AtspiAccessibility.h"
#include "support/TempDir.h"

namespace vocle {
namespace {

using namespace std::chrono_literals;
using testing::Spawned;
using testing::TempDir;

const char* const kBusLauncher = "/usr/libexec/at-spi-bus-launcher";
const char* const kRegistry = "/usr/libexec/at-spi2-registryd";
const char* const kTextWindow = VOCLE_BINARY_DIR "/tests/vocle-test-text-target";

// The managed client window of a process (by _NET_WM_PID); None until it is mapped.
Window windowOfProcess(const testing::TestDisplay& display, int pid) {
    Display* x = display.display();
    const Atom clientList = XInternAtom(x, "_NET_CLIENT_LIST", False);
    const Atom wmPid = XInternAtom(x, "_NET_WM_PID", False);
    Atom actual;
    int format;
    unsigned long count, remaining;
    unsigned char* data = nullptr;
    Window found = None;
    if (XGetWindowProperty(x, DefaultRootWindow(x), clientList, 0, 4096, False, XA_WINDOW, &actual, &format,
                           &count, &remaining, &data) == Success &&
        data) {
        for (unsigned long i = 0; i < count && found == None; ++i) {
            const Window w = reinterpret_cast<unsigned long*>(data)[i];
            if (display.windowProperty(w, wmPid, XA_CARDINAL) == static_cast<unsigned long>(pid)) found = w;
        }
        XFree(data);
    }
    return found;
}

// Real Qt and GTK applications on a private X desktop with its own accessibility bus: the workspace follows
// the user from one to the other by what the bus reports, and names each through the desktop files.
TEST(AtspiWorkspaceTest, FollowsActivationsAcrossApplicationsOnTheAccessibilityBus) {
    VOCLE_REQUIRE_PROGRAMS("Xvfb", "openbox", "dbus-daemon", "zenity");
    for (const char* program : {kBusLauncher, kRegistry}) {
        if (access(program, X_OK) != 0) {
            if (testing::runningUnderCI()) FAIL() << program << " is required under CI";
            GTEST_SKIP() << program << " is not installed";
        }
    }
    TempDir dir;
    testing::TestDisplay display(dir.path());
    testing::TestSessionBus bus(dir.path());
    setenv("DISPLAY", display.name().c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    const std::map<std::string, std::string> env{{"DISPLAY", display.name()},
                                                 {"DBUS_SESSION_BUS_ADDRESS", bus.address()},
                                                 {"HOME", (dir / "home").string()},
                                                 {"XDG_CONFIG_HOME", (dir / "home/.config").string()},
                                                 {"QT_QPA_PLATFORM", "xcb"}};
    std::filesystem::create_directories(dir / "home");
    Spawned launcher({kBusLauncher}, env, dir / "at-spi-bus-launcher.log");
    AtspiAccessibility accessibility;
    // Applications publish their widgets once the desktop's accessibility is on.
    ASSERT_TRUE(testing::pollUntil([&] { return accessibility.isProcessTrusted(true); }, 15s, 100ms))
        << testing::readAll(dir / "at-spi-bus-launcher.log");
    Spawned registry({kRegistry}, env, dir / "at-spi2-registryd.log");

    // One application has a desktop file, the other none.
    testing::writeText(dir / "applications/org.example.Notes.desktop",
                       "[Desktop Entry]\nType=Application\nName=Notes\nExec=notes\n");
    auto index =
        std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{dir / "applications"});

    SystemClock clock;
    RunLoopMainQueue queue(clock);
    // runUntil looks at its condition after each task: a tick lets it see what the listener thread changed.
    const TimerHandle ticker = queue.scheduleRepeating(Seconds(0.05), [] {});
    AtspiWorkspace workspace(queue, index, getpid());
    std::vector<RunningApplication> activations;
    auto subscription = workspace.observeActivations([&](const std::optional<RunningApplication>& app) {
        ASSERT_TRUE(app.has_value());
        activations.push_back(*app);
    });
    ASSERT_TRUE(queue.runUntil([&] { return workspace.isListening(); }, Seconds(15)));
    // Automatic mode switching follows it as it follows any window system.
    NotificationCenter center;
    std::vector<std::string> switches;
    auto observer = center.addObserver(
        Notifications::autoSwitchModeForApplication,
        [&](const Notification& n) { switches.push_back(n.string("bundleId").value_or("")); }, &queue);
    NoBrowserScripting scripting;
    SystemRandomSource random;
    BackgroundQueue background(1);
    AutoModeManager modes(queue, background, center, workspace, scripting, accessibility, random);
    modes.start();
    EXPECT_FALSE(workspace.frontmostApplication()) << "no application yet";

    auto lastIs = [&](const std::string& id) {
        return !activations.empty() && activations.back().bundleIdentifier == id;
    };
    Spawned notes({kTextWindow, (dir / "notes.txt").string(), "org.example.Notes"}, env, dir / "notes.log");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Notes"); }, Seconds(30)))
        << "no activation of the first application:\n"
        << testing::readAll(dir / "notes.log");
    EXPECT_EQ(activations.back(), (RunningApplication{"org.example.Notes", "Notes", notes.pid()}));
    EXPECT_EQ(workspace.frontmostApplication(), activations.back());

    Spawned scratch({kTextWindow, (dir / "scratch.txt").string(), "Scratchpad"}, env, dir / "scratch.log");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("vocle-test-text-target"); }, Seconds(30)))
        << "no activation of the second application:\n"
        << testing::readAll(dir / "scratch.log");
    // No desktop file: known by its executable, named as it names itself on the bus.
    EXPECT_EQ(activations.back(),
              (RunningApplication{"vocle-test-text-target", "Scratchpad", scratch.pid()}));

    // The user brings the first one back, as from a taskbar.
    Window notesWindow = None;
    ASSERT_TRUE(testing::pollUntil(
        [&] { return (notesWindow = windowOfProcess(display, notes.pid())) != None; }, 10s));
    display.activate(notesWindow);
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Notes"); }, Seconds(15)))
        << "no activation when the first window came back";
    EXPECT_EQ(workspace.frontmostApplication()->processIdentifier, notes.pid());
    // Every change once, none twice in a row, however many focus events each brought.
    ASSERT_EQ(activations.size(), 3u);
    EXPECT_EQ(activations[0].processIdentifier, notes.pid());
    EXPECT_EQ(activations[1].processIdentifier, scratch.pid());
    EXPECT_EQ(activations[2].processIdentifier, notes.pid());

    queue.runUntil([&] { return switches.size() >= 3; }, Seconds(5));
    EXPECT_EQ(switches,
              (std::vector<std::string>{"org.example.Notes", "vocle-test-text-target", "org.example.Notes"}));

    auto running = workspace.runningApplications();
    ASSERT_EQ(running.size(), 2u);
    EXPECT_EQ(running[0].bundleIdentifier, "org.example.Notes");
    EXPECT_EQ(running[1].bundleIdentifier, "vocle-test-text-target");

    // A GTK application (its own accessibility bridge) comes and goes; the focus returns to the first one.
    Spawned gtk({"zenity", "--entry", "--title=Dialog"}, env, dir / "zenity.log");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("zenity"); }, Seconds(20)))
        << "no activation of the GTK application:\n"
        << testing::readAll(dir / "zenity.log");
    EXPECT_EQ(activations.back().processIdentifier, gtk.pid());
    gtk.stop();
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Notes"); }, Seconds(20)))
        << "no activation when the GTK application quit";

    // The application in front quits: the window manager hands the focus to the other one, and the quit
    // one is no longer running.
    notes.stop();
    ASSERT_TRUE(queue.runUntil([&] { return workspace.runningApplications().size() == 1; }, Seconds(15)))
        << "the application that quit is still listed";
    EXPECT_EQ(workspace.runningApplications()[0].processIdentifier, scratch.pid());
    ASSERT_TRUE(
        queue.runUntil([&] { return activations.back().processIdentifier == scratch.pid(); }, Seconds(15)));
    EXPECT_EQ(workspace.frontmostApplication(), activations.back());
}

}  // namespace
}  // namespace vocle
