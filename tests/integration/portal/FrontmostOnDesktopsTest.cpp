// The frontmost application on headless GNOME (mutter) and Plasma (KWin), whose compositors list no windows
// to ordinary clients: the accessibility bus, turned on the way the app turns it on, follows native Wayland
// (and XWayland) windows as the compositor moves the focus, and automatic mode switching follows it. Each
// case runs in a process of its own (libatspi cannot move to another session's bus).
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include "core/AppConstants.h"
#include "foundation/Clock.h"
#include "foundation/DispatchQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/RunLoopMainQueue.h"
#include "modes/AutoModeManager.h"
#include "platform/linux/NoBrowserScripting.h"
#include "platform/x11/AtspiAccessibility.h"
#include "platform/x11/AtspiWorkspace.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

const char* const kTextWindow = VOCLE_BINARY_DIR "/tests/vocle-test-text-target";

bool lists(const Workspace& workspace, pid_t pid) {
    for (const auto& app : workspace.runningApplications())
        if (app.processIdentifier == pid) return true;
    return false;
}

std::string describe(const std::vector<RunningApplication>& apps) {
    std::string text;
    for (const auto& app : apps)
        text += std::string(text.empty() ? "" : ", ") + app.bundleIdentifier.value_or("?") + " (" +
                std::to_string(app.processIdentifier) + ")";
    return text.empty() ? "(none)" : text;
}

// Brings a process's window to the front with the compositor's own means, as a task bar does (none on
// headless mutter, which has no shell to ask); false when the compositor refused.
using Activate = std::function<bool(DesktopSession&, pid_t)>;

// KWin's scripting interface, which Plasma's own tools use: a script that makes the window active.
bool activateOnKWin(DesktopSession& session, pid_t pid) {
    const auto script = session.workDir() / ("activate-" + std::to_string(pid) + ".js");
    writeText(script,
              "for (const w of workspace.clientList())\n"
              "    if (w.pid == " +
                  std::to_string(pid) + ") workspace.activeClient = w;\n");
    auto loaded = session.run({"gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path",
                               "/Scripting", "--method", "org.kde.kwin.Scripting.loadScript", script.string(),
                               "activate" + std::to_string(pid)});
    // start() runs the scripts loaded and not yet running (5.27 has no /Scripting/ScriptN object to run
    // just this one).
    return loaded && session
                         .run({"gdbus", "call", "--session", "--dest", "org.kde.KWin", "--object-path",
                               "/Scripting", "--method", "org.kde.kwin.Scripting.start"})
                         .has_value();
}

// Two native Wayland Qt windows with desktop entries, an XWayland one, then one without: each new window
// takes the focus, and closing the one in front gives it back to the one before, as both compositors do.
// Where the compositor can be asked to (`activate`), the X window and then the first one are brought back
// to the front.
void followsTheFocusedWindow(DesktopSession::Server server, const Activate& activate = {}) {
    DesktopSession::Options options;
    options.server = server;
    options.xwayland = true;
    std::unique_ptr<DesktopSession> session;
    ASSERT_NO_THROW(session = std::make_unique<DesktopSession>(options));

    // The desktop's accessibility is off until someone turns it on, as the accessibility permission does;
    // Qt applications started afterwards then publish their windows.
    AtspiAccessibility accessibility;
    ASSERT_TRUE(pollUntil([&] { return accessibility.isProcessTrusted(true); }, 15.0))
        << "the accessibility bus did not come up on the session bus";

    TempDir apps;
    writeText(apps / "applications/org.example.Notes.desktop",
              "[Desktop Entry]\nType=Application\nName=Notes\nExec=notes\n");
    writeText(apps / "applications/org.example.Draw.desktop",
              "[Desktop Entry]\nType=Application\nName=Draw\nExec=draw\n");
    writeText(apps / "applications/org.example.Mail.desktop",
              "[Desktop Entry]\nType=Application\nName=Mail\nExec=mail\n");
    auto index =
        std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{apps / "applications"});

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

    auto lastIs = [&](const std::string& id, pid_t pid) {
        return !activations.empty() && activations.back().bundleIdentifier == id &&
               activations.back().processIdentifier == pid;
    };
    auto window = [&](const std::string& name, const std::string& appName,
                      const std::string& platform = "wayland") {
        return session->spawn({kTextWindow, (apps / (name + ".txt")).string(), appName},
                              {"QT_QPA_PLATFORM=" + platform});
    };
    auto logOf = [&](const std::string& name) {
        return vocle::testing::readText(session->workDir() / (name + ".log"));
    };

    const pid_t notes = window("notes", "org.example.Notes");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Notes", notes); }, Seconds(30)))
        << "no activation of the first window; seen: " << describe(activations) << "\n"
        << logOf("vocle-test-text-target");
    EXPECT_EQ(activations.back(), (RunningApplication{"org.example.Notes", "Notes", notes}));
    EXPECT_EQ(workspace.frontmostApplication(), activations.back());

    const pid_t mail = window("mail", "org.example.Mail");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Mail", mail); }, Seconds(30)))
        << "no activation of the second window; seen: " << describe(activations);
    EXPECT_EQ(activations.back(), (RunningApplication{"org.example.Mail", "Mail", mail}));
    // The desktop's own services may be on the bus too (the GTK portal backend is, on GNOME).
    EXPECT_TRUE(lists(workspace, notes) && lists(workspace, mail))
        << "running: " << describe(workspace.runningApplications());

    // The window in front closes: the compositor gives the focus back to the first one, which Qt does not
    // announce a second time.
    session->stop(mail);
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Notes", notes); }, Seconds(20)))
        << "the focus did not follow back to the first window; seen: " << describe(activations);
    ASSERT_TRUE(queue.runUntil([&] { return !lists(workspace, mail); }, Seconds(15)))
        << "the closed application is still listed: " << describe(workspace.runningApplications());
    EXPECT_TRUE(lists(workspace, notes));

    // An X application beside them, through XWayland.
    const pid_t draw = window("draw", "org.example.Draw", "xcb");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("org.example.Draw", draw); }, Seconds(30)))
        << "no activation of the XWayland window; seen: " << describe(activations);
    EXPECT_EQ(activations.back(), (RunningApplication{"org.example.Draw", "Draw", draw}));

    // Without a desktop entry: known by its executable, named as it names itself on the bus.
    const pid_t scratch = window("scratch", "Scratchpad");
    ASSERT_TRUE(queue.runUntil([&] { return lastIs("vocle-test-text-target", scratch); }, Seconds(30)))
        << "no activation of the window without a desktop entry; seen: " << describe(activations);
    EXPECT_EQ(activations.back(), (RunningApplication{"vocle-test-text-target", "Scratchpad", scratch}));
    EXPECT_EQ(workspace.frontmostApplication(), activations.back());

    std::vector<pid_t> order{notes, mail, notes, draw, scratch};
    std::vector<std::string> ids{"org.example.Notes", "org.example.Mail", "org.example.Notes",
                                 "org.example.Draw", "vocle-test-text-target"};
    if (activate) {
        // Both windows announced their activation once already: the bus shows the change only as the other
        // window's deactivation and the window's active state.
        for (const auto& [pid, id] :
             {std::pair{draw, "org.example.Draw"}, std::pair{notes, "org.example.Notes"}}) {
            ASSERT_TRUE(activate(*session, pid)) << "the compositor did not take the request";
            ASSERT_TRUE(queue.runUntil([&] { return lastIs(id, pid); }, Seconds(20)))
                << "no activation when " << id << " came back; seen: " << describe(activations);
            order.push_back(pid);
            ids.push_back(id);
        }
    }

    // Every change once, none twice in a row, however many focus events each brought.
    ASSERT_EQ(activations.size(), order.size()) << describe(activations);
    for (size_t i = 0; i < order.size(); ++i) EXPECT_EQ(activations[i].processIdentifier, order[i]) << i;
    queue.runUntil([&] { return switches.size() >= order.size(); }, Seconds(5));
    EXPECT_EQ(switches, ids);
}

TEST(FrontmostOnDesktops, FollowsNativeWaylandWindowsOnGnome) {
    followsTheFocusedWindow(DesktopSession::Server::gnome);
}

TEST(FrontmostOnDesktops, FollowsNativeWaylandWindowsOnPlasma) {
    followsTheFocusedWindow(DesktopSession::Server::kde, activateOnKWin);
}

}  // namespace
