#pragma once

// Shared by the desktop integration tests: the private desktop, a Qt application on it (the clipboard
// needs Qt's event loop), a real-time main queue, and a pump that runs both.
// Before Qt: Qt's `emit` keyword macro would rewrite Signal::emit.
#include "foundation/Signal.h"

#include <QApplication>
#include <QCoreApplication>
#include <memory>
#include <string>

#include "foundation/Clock.h"
#include "foundation/RunLoopMainQueue.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

namespace vocle::testing {

class X11Harness {
  public:
    // Starts the desktop and the Qt application on first use; throws when the desktop cannot start.
    static X11Harness& instance() {
        static std::unique_ptr<X11Harness> harness;
        if (!harness) {
            DesktopSession& session = DesktopSession::shared();
            harness.reset(new X11Harness(session));
        }
        return *harness;
    }
    // Called at the end of the test run, before the desktop goes away.
    static void shutdownQt() { delete QCoreApplication::instance(); }

    DesktopSession& session;
    SystemClock clock;
    RunLoopMainQueue mainQueue{clock};

    // Runs the main queue and Qt's events until `done` holds or `timeout` seconds pass.
    bool pumpUntil(const std::function<bool()>& done, double timeout) {
        return pollUntil(
            done, timeout, [this] { pumpOnce(); }, 0.0);
    }
    void pumpFor(double seconds) {
        pumpUntil([] { return false; }, seconds);
    }
    void pumpOnce() {
        mainQueue.runUntil([] { return false; }, Seconds(0.005));
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }

    // xdotool with the session's environment; waits for it while pumping our events (it may need our
    // clipboard or our windows to answer).
    bool xdotool(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {"xdotool"};
        argv.insert(argv.end(), args.begin(), args.end());
        const pid_t pid = session.spawn(argv);
        const bool finished = pumpUntil([&] { return !session.isRunning(pid); }, 10.0);
        if (!finished) session.stop(pid);
        return finished;
    }

  private:
    explicit X11Harness(DesktopSession& s) : session(s) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        static int argc = 1;
        static char name[] = "integration_desktop_tests";
        static char* argv[] = {name, nullptr};
        new QApplication(argc, argv);
    }
};

}  // namespace vocle::testing
