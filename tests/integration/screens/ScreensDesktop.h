#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>

class QApplication;
class QWidget;

namespace vocle::testing {

// A private X server (Xvfb on a display it picks itself) with openbox, and the one QApplication of the
// test process on it. Started on first use, stopped at exit. Throws when the server cannot start.
class ScreensDesktop {
  public:
    static ScreensDesktop& shared();
    ~ScreensDesktop();

    const std::string& display() const { return display_; }
    QApplication& app();

    // Runs the event loop until `done` holds or `timeout` seconds pass.
    bool pumpUntil(const std::function<bool()>& done, double timeout);
    void pump(double seconds);
    // Runs a command with this display; its exit status.
    int run(const std::string& command);
    // The whole screen as a PNG under build/screenshots.
    std::filesystem::path screenshot(const std::string& name);
    // Brings a window to the front with the keyboard focus, as a click would.
    bool activate(QWidget& window);

  private:
    ScreensDesktop();
    void waitForWindowManager();

    std::string display_;
    pid_t xvfb_ = 0;
    pid_t openbox_ = 0;
    QApplication* app_ = nullptr;
};

}  // namespace vocle::testing
