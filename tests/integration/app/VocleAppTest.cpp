#include <gtest/gtest.h>

#include <thread>

#include "integration/app/VocleProcess.h"

#include <X11/Xatom.h>
#include <X11/extensions/XTest.h>

using namespace vocle;
using namespace vocle::testing;

namespace {

bool isViewable(Display* x, Window w) {
    XWindowAttributes a;
    XSync(x, False);
    return XGetWindowAttributes(x, w, &a) && a.map_state == IsViewable;
}

TEST(VocleApp, WithoutASessionTheSignInOverlayLeadsToTheMainWindow) {
    VocleDesktop desk(33);
    desk.launch();
    ASSERT_TRUE(desk.waitForLog("MainView overlay: sign-in")) << desk.log();
    ASSERT_TRUE(pollUntil([&] { return desk.mainWindow().has_value(); }, 15)) << desk.log();
    // Start-up in its order: the state first, then the launch sequence, then the window.
    const std::string early = desk.log();
    EXPECT_LT(early.find("AppState initializing"), early.find("Application did finish launching"));
    EXPECT_LT(early.find("Application did finish launching"), early.find("UpdaterManager initialized"));
    ASSERT_TRUE(desk.waitForLog("MainView appeared"));
    EXPECT_EQ(early.find("MainView overlay: loading"), std::string::npos);

    const Window window = *desk.mainWindow();
    desk.xdotool({"windowactivate", "--sync", std::to_string(window)});
    desk.screenshot("app-signin-email");
    desk.xdotool({"type", "--delay", "10", "grace@example.org"});
    desk.xdotool({"key", "Return"});
    ASSERT_TRUE(pollUntil([&] { return !desk.server.latestCode("grace@example.org").empty(); }, 15));
    const std::string code = desk.server.latestCode("grace@example.org");
    ASSERT_TRUE(desk.waitForLog("AppState: User needs to sign in first"));

    // The code arrives by the clipboard: Ctrl+V in the code step pastes it, trimmed.
    desk.session.run({"sh", "-c", "printf '  %s\\n' " + code + " | xclip -selection clipboard >/dev/null 2>&1"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    desk.screenshot("app-signin-code");
    desk.xdotool({"key", "ctrl+v"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    desk.xdotool({"key", "Return"});

    ASSERT_TRUE(desk.waitForLog("MainView overlay: none", 30)) << desk.log();
    EXPECT_TRUE(desk.waitForLog("AppState: Initialization complete!"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    desk.screenshot("app-main-window");
    EXPECT_TRUE(std::filesystem::exists(desk.home.path() / "data" / "Vocle" / "session.json"));
    const std::string after = desk.log();
    EXPECT_NE(after.find("MainView Detail: Tab=-1"), std::string::npos);
}

TEST(VocleApp, IndicatorShowsOverAFocusedWindowWithoutTakingFocusAndClicksPassThrough) {
    VocleDesktop desk(34);
    desk.signInDirectly("ida@example.org");
    desk.launch();
    ASSERT_TRUE(desk.waitForLog("AppState: Initialization complete!", 30)) << desk.log();
    ASSERT_TRUE(desk.waitForLog("MainView appeared"));

    // Another application's window under the indicator's spot, with the focus.
    Display* x = desk.x;
    ASSERT_NE(x, nullptr);
    const Window other = XCreateSimpleWindow(x, DefaultRootWindow(x), 1200, 300, 240, 300, 0, 0, 0xffffff);
    XStoreName(x, other, "Other Application");
    XSelectInput(x, other, ButtonPressMask | StructureNotifyMask);
    XMapRaised(x, other);
    XSync(x, False);
    ASSERT_TRUE(pollUntil([&] { return isViewable(x, other); }, 10));
    desk.xdotool({"windowactivate", "--sync", std::to_string(other)});
    // openbox may have moved it to fit; put it back over the spot.
    XMoveWindow(x, other, 1200, 300);
    XSync(x, False);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));

    ASSERT_TRUE(desk.dbusCall("Toggle"));
    ASSERT_TRUE(pollUntil([&] { return !desk.viewableOverrideRedirect(1370, 430, 40, 40).empty(); }, 10))
        << desk.log();
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    desk.screenshot("app-indicator-recording");

    Window focus = 0;
    int revert = 0;
    XGetInputFocus(x, &focus, &revert);
    EXPECT_EQ(focus, other) << "the indicator or the main window took the focus";
    EXPECT_TRUE(desk.log().find("💡 RECORDING STARTED - Showing indicator") != std::string::npos);

    // A click on the indicator lands in the window below.
    XTestFakeMotionEvent(x, -1, 1390, 450, CurrentTime);
    XTestFakeButtonEvent(x, 1, True, CurrentTime);
    XTestFakeButtonEvent(x, 1, False, CurrentTime);
    XSync(x, False);
    bool clicked = pollUntil(
        [&] {
            XEvent e;
            while (XCheckWindowEvent(x, other, ButtonPressMask, &e)) {
                if (e.type == ButtonPress && e.xbutton.x_root == 1390 && e.xbutton.y_root == 450) return true;
            }
            return false;
        },
        5);
    EXPECT_TRUE(clicked) << "the click did not reach the window below the indicator";

    // Stop: the panel goes away once processing is over.
    ASSERT_TRUE(desk.dbusCall("Toggle"));
    EXPECT_TRUE(pollUntil([&] { return desk.viewableOverrideRedirect(1370, 430, 40, 40).empty(); }, 30))
        << desk.log();
    EXPECT_TRUE(desk.waitForLog("Hiding floating indicator"));
    XDestroyWindow(x, other);
    XSync(x, False);
}

TEST(VocleApp, ClosingTheWindowKeepsRunningAndASecondLaunchRaisesTheFirst) {
    VocleDesktop desk(35);
    desk.signInDirectly("lin@example.org");
    const pid_t first = desk.launch();
    ASSERT_TRUE(pollUntil([&] { return desk.mainWindow().has_value(); }, 20)) << desk.log();
    const Window window = *desk.mainWindow();

    // Close it as the window manager's close button does.
    Display* x = desk.x;
    XEvent close{};
    close.xclient.type = ClientMessage;
    close.xclient.window = window;
    close.xclient.message_type = XInternAtom(x, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = static_cast<long>(XInternAtom(x, "WM_DELETE_WINDOW", False));
    close.xclient.data.l[1] = CurrentTime;
    XSendEvent(x, window, False, NoEventMask, &close);
    XSync(x, False);
    ASSERT_TRUE(pollUntil([&] { return !desk.mainWindow().has_value(); }, 10));
    ASSERT_TRUE(desk.waitForLog("MainView disappeared but keeping notification observer active"));
    EXPECT_TRUE(desk.session.isRunning(first));

    // The bus entry point still works with the window closed.
    ASSERT_TRUE(desk.dbusCall("State"));

    const pid_t second = desk.launch("vocle-second");
    EXPECT_TRUE(pollUntil([&] { return !desk.session.isRunning(second); }, 15)) << desk.log("vocle-second");
    EXPECT_TRUE(desk.waitForLog("Vocle is already running", 5, "vocle-second")) << desk.log("vocle-second");
    EXPECT_EQ(desk.log("vocle-second").find("AppState initializing"), std::string::npos);
    EXPECT_TRUE(pollUntil([&] { return desk.mainWindow().has_value(); }, 10)) << desk.log();
    EXPECT_TRUE(desk.session.isRunning(first));
    desk.screenshot("app-main-window-raised");
}

}  // namespace
