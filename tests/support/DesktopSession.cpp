#include "support/DesktopSession.h"

#include "support/GnomeSession.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace vocle::testing {

namespace {

double monotonicNow() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::optional<std::string> getEnv(const char* name) {
    const char* v = ::getenv(name);
    return v ? std::optional<std::string>(v) : std::nullopt;
}

void restoreEnv(const char* name, const std::optional<std::string>& value) {
    if (value)
        ::setenv(name, value->c_str(), 1);
    else
        ::unsetenv(name);
}

// The current environment with `extra` ("NAME=value") entries replacing or adding variables.
std::vector<std::string> environmentWith(const std::vector<std::string>& extra) {
    std::map<std::string, std::string> vars;
    for (char** e = environ; *e; ++e) {
        std::string entry(*e);
        vars[entry.substr(0, entry.find('='))] = entry;
    }
    for (const auto& entry : extra) vars[entry.substr(0, entry.find('='))] = entry;
    std::vector<std::string> out;
    for (auto& [name, entry] : vars) out.push_back(entry);
    return out;
}

std::vector<char*> cStrings(std::vector<std::string>& strings) {
    std::vector<char*> out;
    for (auto& s : strings) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

struct SpawnRequest {
    std::vector<std::string> argv;
    std::vector<std::string> env;
    std::optional<std::filesystem::path> output;  // stdout and stderr, appended
    std::optional<int> stdoutFd;                  // or stdout into this descriptor
    std::optional<std::pair<int, int>> extraFd;   // (source, target) kept open in the child
};

pid_t spawnProcess(SpawnRequest request) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (request.output) {
        const std::string path = request.output->string();
        posix_spawn_file_actions_addopen(&actions, 1, path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    } else if (request.stdoutFd) {
        posix_spawn_file_actions_adddup2(&actions, *request.stdoutFd, 1);
    }
    if (request.extraFd)
        posix_spawn_file_actions_adddup2(&actions, request.extraFd->first, request.extraFd->second);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    // Own process group: a terminal's ^C or a signal to the test runner's group does not reach it first.
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
    auto argv = cStrings(request.argv);
    auto envp = cStrings(request.env);
    pid_t pid = 0;
    const int rc = ::posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) throw std::runtime_error("cannot start " + request.argv[0] + ": " + std::strerror(rc));
    return pid;
}

// Reaps `pid` if it has exited; true when it is gone.
bool reaped(pid_t pid) {
    int status = 0;
    const pid_t r = ::waitpid(pid, &status, WNOHANG);
    return r == pid || (r < 0 && errno == ECHILD);
}

void terminate(pid_t pid, double grace = 3.0) {
    if (pid <= 0) return;
    ::kill(pid, SIGTERM);
    if (pollUntil([&] { return reaped(pid); }, grace)) return;
    ::kill(pid, SIGKILL);
    pollUntil([&] { return reaped(pid); }, grace);
}

// Reads from `fd` until `complete(text)` holds, EOF, or the deadline.
std::string readUntil(int fd, double deadline, const std::function<bool(const std::string&)>& complete) {
    std::string text;
    char buffer[512];
    while (!complete(text)) {
        const double left = deadline - monotonicNow();
        if (left <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left * 1000) + 1) <= 0) continue;
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

}  // namespace

bool pollUntil(const std::function<bool()>& done, double timeout, const std::function<void()>& pump,
               double interval) {
    const double deadline = monotonicNow() + timeout;
    while (true) {
        if (pump) pump();
        if (done()) return true;
        if (monotonicNow() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    }
}

DesktopSession::DesktopSession() : DesktopSession(Options{}) {}

DesktopSession::DesktopSession(Options options) : options_(std::move(options)) {
    std::string pattern = (std::filesystem::temp_directory_path() / "vocle-desktop-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("DesktopSession: mkdtemp failed");
    workDir_ = pattern;
    previousDisplay_ = getEnv("DISPLAY");
    previousBus_ = getEnv("DBUS_SESSION_BUS_ADDRESS");
    previousWayland_ = getEnv("WAYLAND_DISPLAY");
    previousRuntime_ = getEnv("XDG_RUNTIME_DIR");
    try {
        // The bus starts after the display server: services it activates inherit the display.
        if (options_.server == Server::wayland) {
            startSway();
        } else if (options_.server == Server::kde) {
            startKde();  // with its own bus: KWin and the portals live on it
        } else if (options_.server == Server::gnome) {
            // mutter and the portal live on the bus: it comes first here, sharing the runtime dir.
            gnome_ = std::make_unique<GnomeSession>(
                *this, GnomeSession::Options{options_.xwayland, options_.startTimeout});
            runtimeDir_ = gnome_->runtimeDir();
            startBus();
            ::setenv("DBUS_SESSION_BUS_ADDRESS", busAddress_.c_str(), 1);
            gnome_->start();
            waylandDisplay_ = gnome_->waylandDisplay();
            display_ = gnome_->display();
        } else if (options_.server == Server::x11) {
            ::unsetenv("WAYLAND_DISPLAY");
            startXvfb();
            ::setenv("DISPLAY", display_.c_str(), 1);
        }
        if (options_.sessionBus && bus_ == 0) {
            startBus();
            ::setenv("DBUS_SESSION_BUS_ADDRESS", busAddress_.c_str(), 1);
        }
        if (options_.server == Server::x11 && options_.windowManager) startWindowManager();
    } catch (...) {
        teardown();
        throw;
    }
}

DesktopSession::~DesktopSession() {
    teardown();
}

DesktopSession& DesktopSession::shared() {
    static std::unique_ptr<DesktopSession> session;
    static std::string failure;
    if (!session && failure.empty()) {
        try {
            session = std::make_unique<DesktopSession>();
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    if (!session) throw std::runtime_error(failure);
    return *session;
}

void DesktopSession::startXvfb() {
    const double deadline = monotonicNow() + options_.startTimeout;
    std::vector<std::string> argv = {"Xvfb"};
    int fds[2] = {-1, -1};
    if (options_.display) {
        display_ = ":" + std::to_string(*options_.display);
        argv.push_back(display_);
    } else {
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("DesktopSession: pipe failed");
        argv.insert(argv.end(), {"-displayfd", "9"});
    }
    argv.insert(argv.end(), {"-screen", "0", options_.screen, "-nolisten", "tcp", "-noreset"});
    SpawnRequest request{argv, environmentWith({}), workDir_ / "Xvfb.log", {}, {}};
    if (fds[1] >= 0) request.extraFd = std::make_pair(fds[1], 9);
    try {
        xvfb_ = spawnProcess(request);
    } catch (...) {
        if (fds[0] >= 0) ::close(fds[0]), ::close(fds[1]);
        throw;
    }
    if (fds[0] >= 0) {
        ::close(fds[1]);
        const std::string number = readUntil(
            fds[0], deadline, [](const std::string& t) { return t.find('\n') != std::string::npos; });
        ::close(fds[0]);
        if (number.empty() || number.find('\n') == std::string::npos)
            throw std::runtime_error("DesktopSession: Xvfb did not report a display (see " +
                                     (workDir_ / "Xvfb.log").string() + ")");
        display_ = ":" + number.substr(0, number.find('\n'));
    }
    const bool up = pollUntil(
        [&] {
            if (reaped(xvfb_)) return true;
            Display* d = XOpenDisplay(display_.c_str());
            if (!d) return false;
            XCloseDisplay(d);
            return true;
        },
        std::max(0.0, deadline - monotonicNow()), {}, 0.05);
    if (!up || reaped(xvfb_)) {
        xvfb_ = reaped(xvfb_) ? 0 : xvfb_;
        throw std::runtime_error("DesktopSession: Xvfb " + display_ + " did not start (see " +
                                 (workDir_ / "Xvfb.log").string() + ")");
    }
}

void DesktopSession::startBus() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("DesktopSession: pipe failed");
    pid_t launcher = 0;
    try {
        // Services the bus starts on demand (the accessibility bus launcher, dconf) inherit this
        // environment: they must not write the real user's settings.
        const auto home = homeDir();
        std::filesystem::create_directories(home);
        launcher = spawnProcess(
            {{"dbus-daemon", "--session", "--fork", "--print-address=1", "--print-pid=1"},
             environmentWith({"HOME=" + home.string(), "XDG_CONFIG_HOME=" + (home / ".config").string(),
                              "XDG_CACHE_HOME=" + (home / ".cache").string(), "GSETTINGS_BACKEND=memory"}),
             {},
             fds[1],
             {}});
    } catch (...) {
        ::close(fds[0]), ::close(fds[1]);
        throw;
    }
    ::close(fds[1]);
    const std::string out =
        readUntil(fds[0], monotonicNow() + options_.startTimeout,
                  [](const std::string& t) { return std::count(t.begin(), t.end(), '\n') >= 2; });
    ::close(fds[0]);
    pollUntil([&] { return reaped(launcher); }, 5.0);
    const auto firstBreak = out.find('\n');
    if (firstBreak == std::string::npos || out.find('\n', firstBreak + 1) == std::string::npos)
        throw std::runtime_error("DesktopSession: dbus-daemon printed no address: '" + out + "'");
    busAddress_ = out.substr(0, firstBreak);
    bus_ = static_cast<pid_t>(std::stol(out.substr(firstBreak + 1)));
}

void DesktopSession::startWindowManager() {
    std::vector<std::string> argv = {"openbox", "--sm-disable"};
    if (!options_.windowManagerKeyBindings) {
        std::ifstream in("/etc/xdg/openbox/rc.xml");
        std::stringstream text;
        text << in.rdbuf();
        std::string config = text.str();
        const auto open = config.find("<keyboard>");
        const auto close = config.find("</keyboard>");
        if (open == std::string::npos || close == std::string::npos || close < open)
            throw std::runtime_error("DesktopSession: no <keyboard> section in /etc/xdg/openbox/rc.xml");
        config.replace(open, close - open, "<keyboard>");
        const auto path = workDir_ / "openbox-rc.xml";
        std::ofstream(path) << config;
        argv.insert(argv.end(), {"--config-file", path.string()});
    }
    windowManager_ = spawn(argv);
    Display* d = XOpenDisplay(display_.c_str());
    if (!d) throw std::runtime_error("DesktopSession: cannot open " + display_);
    const Atom check = XInternAtom(d, "_NET_SUPPORTING_WM_CHECK", False);
    const bool ready = pollUntil(
        [&] {
            Atom type;
            int format;
            unsigned long count, after;
            unsigned char* data = nullptr;
            const int rc = XGetWindowProperty(d, DefaultRootWindow(d), check, 0, 1, False, XA_WINDOW, &type,
                                              &format, &count, &after, &data);
            const bool present = rc == Success && data && count == 1;
            if (data) XFree(data);
            return present || !isRunning(windowManager_);
        },
        options_.startTimeout, {}, 0.05);
    XCloseDisplay(d);
    if (!ready || !isRunning(windowManager_))
        throw std::runtime_error("DesktopSession: openbox did not take over " + display_ + " (see " +
                                 (workDir_ / "openbox.log").string() + ")");
}

void DesktopSession::startSway() {
    // sway will not run as root: the compositor runs as an unprivileged user of its own.
    if (!run({"id", "-u", kSessionUser}, 5.0) &&
        !run({"useradd", "--system", "--no-create-home", "--shell", "/usr/sbin/nologin", kSessionUser},
             30.0) &&
        !run({"id", "-u", kSessionUser}, 5.0))
        throw std::runtime_error(std::string("DesktopSession: cannot create the user ") + kSessionUser);
    std::string pattern = (std::filesystem::temp_directory_path() / "vocle-wayland-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("DesktopSession: mkdtemp failed");
    runtimeDir_ = pattern;
    if (!run({"chown", kSessionUser, runtimeDir_.string()}))
        throw std::runtime_error("DesktopSession: cannot hand " + runtimeDir_.string() + " to " +
                                 kSessionUser);
    const auto config = runtimeDir_ / "sway.conf";
    const auto displayFile = runtimeDir_ / "x-display";
    std::ofstream(config) << "output HEADLESS-1 resolution "
                          << options_.screen.substr(0, options_.screen.rfind('x')) << "\n"
                          << "default_border none\nfocus_follows_mouse no\n"
                          << (options_.xwayland ? "xwayland force\n" : "xwayland disable\n")
                          // sway hands its clients the XWayland display; the test learns it the same way.
                          // XWayland admits only its owner: X clients of the test run as root.
                          << "exec sh -c '"
                          << (options_.xwayland ? "xhost +si:localuser:root >/dev/null; " : "")
                          << "echo \"$DISPLAY\" > " << displayFile.string() << "'\n";
    ::chmod(config.c_str(), 0644);
    const std::vector<std::string> env = {"XDG_RUNTIME_DIR=" + runtimeDir_.string(),
                                          "WLR_BACKENDS=headless",
                                          "WLR_LIBINPUT_NO_DEVICES=1",
                                          "WLR_RENDERER=pixman",
                                          "HOME=" + runtimeDir_.string(),
                                          "PATH=/usr/local/bin:/usr/bin:/bin"};
    std::vector<std::string> argv = {"runuser", "-u", kSessionUser, "--", "env", "-i"};
    argv.insert(argv.end(), env.begin(), env.end());
    argv.insert(argv.end(), {"sway", "--config", config.string()});
    sway_ = spawnProcess({argv, environmentWith({}), workDir_ / "sway.log", {}, {}});
    const bool up = pollUntil(
        [&] {
            if (!isRunning(sway_)) return true;
            std::error_code ec;
            for (const auto& entry : std::filesystem::directory_iterator(runtimeDir_, ec)) {
                const std::string name = entry.path().filename().string();
                if (name.rfind("wayland-", 0) == 0 && name.find('.') == std::string::npos)
                    waylandDisplay_ = name;
            }
            if (waylandDisplay_.empty()) return false;
            if (!options_.xwayland) return true;
            std::ifstream in(displayFile);
            std::string line;
            return std::getline(in, line) && !line.empty();
        },
        options_.startTimeout, {}, 0.05);
    if (!up || !isRunning(sway_))
        throw std::runtime_error("DesktopSession: sway did not start (see " +
                                 (workDir_ / "sway.log").string() + ")");
    // A keyboard on the seat, as every real session has: XWayland crashes on keyboard requests when the
    // seat has none (headless sway has no devices). A child of ours, so it goes with the session.
    spawn({"wtype", "-s", "2000000000"},
          {"XDG_RUNTIME_DIR=" + runtimeDir_.string(), "WAYLAND_DISPLAY=" + waylandDisplay_});
    const bool keyboard = pollUntil(
        [&] {
            const auto inputs = swaymsg({"-t", "get_inputs"});
            return inputs && inputs->find("\"keyboard\"") != std::string::npos;
        },
        options_.startTimeout, {}, 0.05);
    if (!keyboard) throw std::runtime_error("DesktopSession: sway never got the session's keyboard (wtype)");
    ::setenv("XDG_RUNTIME_DIR", runtimeDir_.c_str(), 1);
    ::setenv("WAYLAND_DISPLAY", waylandDisplay_.c_str(), 1);
    if (options_.xwayland) {
        std::ifstream in(displayFile);
        std::getline(in, display_);
        ::setenv("DISPLAY", display_.c_str(), 1);
    } else {
        ::unsetenv("DISPLAY");
    }
}

std::optional<std::string> DesktopSession::swaymsg(const std::vector<std::string>& args) {
    std::error_code ec;
    std::string socket;
    for (const auto& entry : std::filesystem::directory_iterator(runtimeDir_, ec))
        if (entry.path().filename().string().rfind("sway-ipc.", 0) == 0) socket = entry.path().string();
    if (socket.empty()) return std::nullopt;
    std::vector<std::string> argv = {"swaymsg", "--socket", socket};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv);
}

pid_t DesktopSession::spawn(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv) {
    std::string name = std::filesystem::path(argv.at(0)).filename().string();
    const pid_t pid = spawnProcess({argv, environmentWith(extraEnv), workDir_ / (name + ".log"), {}, {}});
    children_.push_back(pid);
    return pid;
}

bool DesktopSession::isRunning(pid_t pid) {
    return pid > 0 && !reaped(pid);
}

void DesktopSession::endXServer() {
    terminate(xvfb_);
    xvfb_ = 0;
}

void DesktopSession::endSessionBus() {
    if (bus_ <= 0) return;
    ::kill(bus_, SIGTERM);
    // Not our child: once it has exited it may linger as a zombie until init reaps it, and a zombie
    // holds no sockets any more.
    const std::string stat = "/proc/" + std::to_string(bus_) + "/stat";
    pollUntil(
        [&] {
            std::ifstream in(stat);
            std::string pid, name, state;
            return !(in >> pid >> name >> state) || state == "Z";
        },
        3.0, {}, 0.002);
    bus_ = 0;
}

std::optional<int> DesktopSession::waitForExit(pid_t pid, double timeout) {
    int status = 0;
    if (!pollUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, timeout, {}, 0.005))
        return std::nullopt;
    std::erase(children_, pid);
    return status;
}

void DesktopSession::stop(pid_t pid) {
    terminate(pid);
    std::erase(children_, pid);
}

std::optional<std::string> DesktopSession::run(const std::vector<std::string>& argv, double timeout) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return std::nullopt;
    pid_t pid = 0;
    try {
        pid = spawnProcess({argv, environmentWith({}), {}, fds[1], {}});
    } catch (...) {
        ::close(fds[0]), ::close(fds[1]);
        return std::nullopt;
    }
    ::close(fds[1]);
    const std::string out =
        readUntil(fds[0], monotonicNow() + timeout, [](const std::string&) { return false; });
    ::close(fds[0]);
    int status = 0;
    if (!pollUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, 1.0)) {
        terminate(pid);
        return std::nullopt;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return std::nullopt;
    return out;
}

void DesktopSession::teardown() {
    for (auto it = children_.rbegin(); it != children_.rend(); ++it) terminate(*it);
    children_.clear();
    windowManager_ = 0;
    if (bus_ > 0) {
        // Forked by its launcher, so not our child: signal it and wait for the pid to disappear.
        ::kill(bus_, SIGTERM);
        pollUntil([&] { return ::kill(bus_, 0) != 0; }, 3.0);
        bus_ = 0;
    }
    terminate(xvfb_);
    xvfb_ = 0;
    if (sway_ > 0) {
        // sway's own pid is in its IPC socket's name (sway-ipc.<uid>.<pid>.sock); it goes first, so that
        // runuser never outlives it and leaves it orphaned.
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(runtimeDir_, ec)) {
            const std::string name = entry.path().filename().string();
            if (name.rfind("sway-ipc.", 0) != 0) continue;
            const auto last = name.rfind('.');
            const auto before = name.rfind('.', last - 1);
            const pid_t compositor =
                static_cast<pid_t>(std::atol(name.substr(before + 1, last - before - 1).c_str()));
            if (compositor > 0) ::kill(compositor, SIGTERM);
        }
        // runuser reaps sway and leaves by itself; signalled at once, it could go first and leave a zombie.
        pollUntil([&] { return reaped(sway_); }, 3.0);
        terminate(sway_);
        sway_ = 0;
    }
    if (options_.server == Server::kde) releaseKdeRuntime();
    gnome_.reset();
    restoreEnv("WAYLAND_DISPLAY", previousWayland_);
    restoreEnv("XDG_RUNTIME_DIR", previousRuntime_);
    if (!runtimeDir_.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(runtimeDir_, ec);
    }
    restoreEnv("DISPLAY", previousDisplay_);
    restoreEnv("DBUS_SESSION_BUS_ADDRESS", previousBus_);
    std::error_code ec;
    if (!workDir_.empty()) std::filesystem::remove_all(workDir_, ec);
}

}  // namespace vocle::testing
