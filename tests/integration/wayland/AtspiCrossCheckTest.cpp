// The accessibility bus beside the compositor's window list on a real headless sway: both follow native
// Wayland windows and agree on which application is in front.
#include <gtest/gtest.h>
#include <unistd.h>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/linux/FrontmostCrossCheck.h"
#include "platform/wayland/WaylandDesktop.h"
#include "platform/wayland/WaylandWorkspace.h"
#include "platform/x11/AtspiAccessibility.h"
#include "platform/x11/AtspiWorkspace.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

const char* const kBusLauncher = "/usr/libexec/at-spi-bus-launcher";
const char* const kRegistry = "/usr/libexec/at-spi2-registryd";
const char* const kTextWindow = VOCLE_BINARY_DIR "/tests/vocle-test-text-target";

std::optional<std::string> frontId(const Workspace& workspace) {
    auto app = workspace.frontmostApplication();
    return app ? app->bundleIdentifier : std::nullopt;
}

TEST(AtspiOnSway, TheBusAndTheWindowListAgreeOnNativeWaylandWindows) {
    DesktopSession::Options options;
    options.server = DesktopSession::Server::wayland;
    options.xwayland = false;
    DesktopSession session(options);
    session.spawn({kBusLauncher});
    AtspiAccessibility accessibility;
    ASSERT_TRUE(pollUntil([&] { return accessibility.isProcessTrusted(true); }, 15.0))
        << "the accessibility bus never came up";
    session.spawn({kRegistry});

    TempDir apps;
    writeText(apps / "applications/org.example.Notes.desktop",
              "[Desktop Entry]\nType=Application\nName=Notes\nExec=notes\n");
    writeText(apps / "applications/org.example.Mail.desktop",
              "[Desktop Entry]\nType=Application\nName=Mail\nExec=mail\n");
    auto index =
        std::make_shared<DesktopEntryIndex>(std::vector<std::filesystem::path>{apps / "applications"});

    auto logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scope(logs);
    VirtualMainQueue queue;
    auto desktop = wayland::WaylandDesktop::open(queue, index);
    ASSERT_TRUE(desktop && desktop->workspace()) << "no window list from sway";
    Workspace& windows = *desktop->workspace();
    AtspiWorkspace bus(queue, index, getpid());
    FrontmostCrossCheck check(queue, windows, bus);
    auto both = [&](const std::string& id) {
        return pollUntil([&] { return frontId(windows) == id && frontId(bus) == id; }, 20.0,
                         [&] { queue.runUntilIdle(); });
    };

    const pid_t notes = session.spawn({kTextWindow, (apps / "notes.txt").string(), "org.example.Notes"},
                                      {"QT_QPA_PLATFORM=wayland"});
    ASSERT_TRUE(both("org.example.Notes")) << "window list: " << frontId(windows).value_or("(none)")
                                           << ", bus: " << frontId(bus).value_or("(none)");
    EXPECT_EQ(bus.frontmostApplication()->processIdentifier, notes);
    const pid_t mail = session.spawn({kTextWindow, (apps / "mail.txt").string(), "org.example.Mail"},
                                     {"QT_QPA_PLATFORM=wayland"});
    ASSERT_TRUE(both("org.example.Mail")) << "window list: " << frontId(windows).value_or("(none)")
                                          << ", bus: " << frontId(bus).value_or("(none)");
    EXPECT_EQ(bus.frontmostApplication()->processIdentifier, mail);

    // The user goes back to the first window.
    ASSERT_TRUE(session.swaymsg({"[pid=" + std::to_string(notes) + "]", "focus"}));
    ASSERT_TRUE(both("org.example.Notes")) << "window list: " << frontId(windows).value_or("(none)")
                                           << ", bus: " << frontId(bus).value_or("(none)");
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_FALSE(logs->contains("Frontmost application: the compositor says"));

    // Without a desktop file the two name an application each in their own way, and the log says so.
    const pid_t scratch = session.spawn({kTextWindow, (apps / "scratch.txt").string(), "org.example.Scratch"},
                                        {"QT_QPA_PLATFORM=wayland"});
    ASSERT_TRUE(pollUntil(
        [&] {
            auto front = bus.frontmostApplication();
            return frontId(windows) == "org.example.Scratch" && front && front->processIdentifier == scratch;
        },
        20.0, [&] { queue.runUntilIdle(); }));
    EXPECT_EQ(frontId(bus), "vocle-test-text-target");
    queue.advance(FrontmostCrossCheck::kSettleSeconds * 2);
    EXPECT_TRUE(
        logs->contains("⚠️ Frontmost application: the compositor says org.example.Scratch, the "
                       "accessibility bus says vocle-test-text-target"));
}

}  // namespace
