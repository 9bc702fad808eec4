#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vocle::testing {

class GnomeSession;

// A private desktop for integration tests, started with bounded waits and torn down in reverse order:
// - X11: Xvfb, the openbox window manager and a session D-Bus daemon;
// - Wayland: a headless sway (run as the unprivileged user kSessionUser, created on first use, since
//   sway refuses root) on a private runtime dir, with XWayland, and the session bus;
// - KDE: a headless KWin with XWayland, kglobalaccel and the desktop portals (xdg-desktop-portal with the
//   KDE backend) on the session bus and a private runtime dir (see KdeSession.h).
// - GNOME: a headless mutter, the session bus and the desktop portal with its GNOME backend (GnomeSession).
// While it lives, DISPLAY, WAYLAND_DISPLAY, XDG_RUNTIME_DIR and DBUS_SESSION_BUS_ADDRESS of this process
// point at it (the previous values come back afterwards). Anything that cannot start throws
// std::runtime_error naming what and why: a missing display server is a failure, never a skip.
class DesktopSession {
  public:
    // none: the session bus alone.
    enum class Server { x11, wayland, kde, gnome, none };
    static constexpr const char* kSessionUser = "vocle-session";

    struct Options {
        Server server = Server::x11;
        // Wayland: start XWayland with the compositor (DISPLAY then names it).
        bool xwayland = true;
        // A fixed display number (e.g. 11); none lets Xvfb pick a free one (-displayfd).
        std::optional<int> display;
        std::string screen = "1280x800x24";
        bool windowManager = true;
        // Openbox's stock key bindings grab Alt+Space, Alt+Tab and more on the root window, which would
        // take the application's own shortcuts. Off by default: openbox runs with its mouse bindings only.
        bool windowManagerKeyBindings = false;
        bool sessionBus = true;
        double startTimeout = 15.0;
    };

    DesktopSession();
    explicit DesktopSession(Options options);
    ~DesktopSession();
    DesktopSession(const DesktopSession&) = delete;
    DesktopSession& operator=(const DesktopSession&) = delete;

    // One session per test process, started on first use and stopped at exit. Throws (every call) when
    // it could not start.
    static DesktopSession& shared();

    const std::string& display() const { return display_; }  // ":N"; Wayland: XWayland's, or empty
    // Wayland: the compositor's socket name in runtimeDir(), e.g. "wayland-1".
    const std::string& waylandDisplay() const { return waylandDisplay_; }
    const std::filesystem::path& runtimeDir() const { return runtimeDir_; }
    // Wayland: runs `swaymsg` with the arguments against the compositor; its output, or none on failure.
    std::optional<std::string> swaymsg(const std::vector<std::string>& args);
    const std::string& busAddress() const { return busAddress_; }
    // GNOME: the compositor and portal side; null for other servers.
    GnomeSession* gnome() { return gnome_.get(); }
    // Scratch folder removed with the session; child process output goes there.
    const std::filesystem::path& workDir() const { return workDir_; }
    // HOME of the session's services (configuration, caches and data below it), inside workDir().
    std::filesystem::path homeDir() const { return workDir_ / "bus-home"; }

    // Starts a program in the session's environment (plus `extraEnv` "NAME=value" entries); its output
    // goes to workDir()/<name>.log. Killed at teardown unless stopped before.
    pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {});
    // SIGTERM, then SIGKILL after a grace period; reaps the child.
    void stop(pid_t pid);
    bool isRunning(pid_t pid);

    // Ends the X server or the session bus now (SIGTERM), as a logout does; the rest of the session stays.
    void endXServer();
    void endSessionBus();
    // The wait status of a spawned child once it ended within `timeout` (it is then reaped), else none.
    std::optional<int> waitForExit(pid_t pid, double timeout);

    // Output of a short command run in the session's environment (stdout only), or none when it failed.
    std::optional<std::string> run(const std::vector<std::string>& argv, double timeout = 10.0);

  private:
    void startXvfb();
    void startSway();
    void startKde();  // in KdeSession.cpp
    void releaseKdeRuntime();
    void startWindowManager();
    void startBus();
    void teardown();

    Options options_;
    std::string display_;
    std::string busAddress_;
    std::string waylandDisplay_;
    std::filesystem::path runtimeDir_;
    pid_t sway_ = 0;
    std::optional<std::string> previousWayland_;
    std::optional<std::string> previousRuntime_;
    std::filesystem::path workDir_;
    pid_t xvfb_ = 0;
    pid_t windowManager_ = 0;
    pid_t bus_ = 0;
    std::vector<pid_t> children_;
    std::optional<std::string> previousDisplay_;
    std::optional<std::string> previousBus_;
    std::unique_ptr<GnomeSession> gnome_;
};

// Polls `done` every `interval` seconds (running `pump` in between) until it holds or `timeout` passes.
bool pollUntil(const std::function<bool()>& done, double timeout, const std::function<void()>& pump = {},
               double interval = 0.01);

}  // namespace vocle::testing
