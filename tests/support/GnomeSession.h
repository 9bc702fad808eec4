#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace vocle::testing {

class DesktopSession;
class TestBus;

// The GNOME part of a DesktopSession: a headless mutter (Wayland, XWayland on request) on a private runtime
// dir, a keyboard on its seat, and the desktop portal with its GNOME backend on the session bus. Runs as
// the test's own user (mutter, unlike sway, accepts root). Every wait is bounded; what cannot start throws
// std::runtime_error naming what and where its log is.
class GnomeSession {
  public:
    struct Options {
        bool xwayland = true;
        double startTimeout = 15.0;
    };

    // Makes the runtime dir and points XDG_RUNTIME_DIR (and XDG_CURRENT_DESKTOP) of this process at it;
    // the bus that start() needs is started after this, so that its services share the runtime dir.
    GnomeSession(DesktopSession& session, Options options);
    ~GnomeSession();
    GnomeSession(const GnomeSession&) = delete;
    GnomeSession& operator=(const GnomeSession&) = delete;

    // With the session bus up: mutter, its seat's keyboard, xdg-desktop-portal-gnome, xdg-desktop-portal.
    // Sets WAYLAND_DISPLAY, and DISPLAY plus XAUTHORITY for XWayland, in this process.
    void start();

    const std::filesystem::path& runtimeDir() const { return runtimeDir_; }
    const std::string& waylandDisplay() const { return waylandDisplay_; }
    const std::string& display() const { return display_; }  // XWayland's ":N", or empty

    // Answers the portal's remote-input consent dialog through its accessibility interface, as a screen
    // reader user would: allow ticks "Allow remote interaction" and presses "Share"; otherwise "Cancel".
    // False when no such dialog showed up within `timeout`.
    bool answerRemoteDesktopDialog(bool allow, double timeout = 10.0);

    // A PNG of the monitor as the user sees it: mutter's own screen cast into PipeWire (started on first
    // use), one frame taken with GStreamer. Throws std::runtime_error when no frame arrives.
    void screenshot(const std::filesystem::path& file);

  private:
    void startMutter();
    void addKeyboard();
    void startPortal();
    void startPipeWire();
    void waitForName(const std::string& name, int pid, const std::string& what);

    DesktopSession& session_;
    Options options_;
    std::filesystem::path runtimeDir_;
    std::filesystem::path home_;
    std::string waylandDisplay_;
    std::string display_;
    int mutter_ = 0;
    bool pipewire_ = false;
    std::unique_ptr<TestBus> bus_;
    std::optional<std::string> previousXauthority_;
    std::optional<std::string> previousDesktop_;
};

}  // namespace vocle::testing
