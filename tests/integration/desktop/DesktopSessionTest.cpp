#include <gtest/gtest.h>
// After gtest: Xlib defines macros (None, Bool) that gtest's templates use as names.
#include <X11/Xlib.h>
#include <signal.h>
#include <stdlib.h>

#include "support/DesktopSession.h"

namespace vocle::testing {
namespace {

TEST(DesktopSession, StartsXServerWindowManagerAndBusThenRestoresTheEnvironment) {
    const char* before = ::getenv("DISPLAY");
    const std::string displayBefore = before ? before : "";
    std::string display;
    pid_t xvfbProbe = 0;
    {
        DesktopSession session;
        display = session.display();
        EXPECT_EQ(std::string(::getenv("DISPLAY")), display);
        EXPECT_EQ(std::string(::getenv("DBUS_SESSION_BUS_ADDRESS")), session.busAddress());

        Display* d = XOpenDisplay(nullptr);
        ASSERT_NE(d, nullptr) << "cannot open " << display;
        XCloseDisplay(d);

        // The bus answers, and a window manager owns the screen.
        const auto names =
            session.run({"dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
                         "/org/freedesktop/DBus", "org.freedesktop.DBus.ListNames"});
        ASSERT_TRUE(names.has_value());
        EXPECT_NE(names->find("org.freedesktop.DBus"), std::string::npos);

        xvfbProbe = session.spawn({"sleep", "30"});
        EXPECT_TRUE(session.isRunning(xvfbProbe));
    }
    // Children are gone and the previous environment is back.
    EXPECT_NE(::kill(xvfbProbe, 0), 0);
    const char* after = ::getenv("DISPLAY");
    EXPECT_EQ(after ? std::string(after) : std::string(), displayBefore);
    EXPECT_EQ(XOpenDisplay(display.c_str()), nullptr) << display << " still answers after teardown";
}

TEST(DesktopSession, AServerThatCannotStartIsAnErrorNotASkip) {
    DesktopSession::Options options;
    options.display = 11;
    options.windowManager = false;
    options.sessionBus = false;
    options.screen = "not-a-geometry";
    EXPECT_THROW(DesktopSession{options}, std::runtime_error);
}

}  // namespace
}  // namespace vocle::testing
