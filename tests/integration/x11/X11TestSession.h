#pragma once

// The tests of this folder on the shared desktop session (tests/support/DesktopSession): its X display
// and its bus as separate pieces, the programs they start, and a few window queries.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include "support/DesktopSession.h"

extern char** environ;

namespace vocle::testing {

using namespace std::chrono_literals;

inline bool runningUnderCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

inline bool programAvailable(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        const size_t end = dirs.find(':', start);
        const std::string dir = dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!dir.empty() && access((dir + "/" + name).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return false;
}

// Polls until `condition` holds or the deadline passes.
inline bool pollUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline,
                      std::chrono::milliseconds interval = 20ms) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (true) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(interval);
    }
}

// A started program, terminated and reaped with the object.
class Spawned {
  public:
    Spawned(const std::vector<std::string>& argv, const std::map<std::string, std::string>& extraEnv,
            const std::filesystem::path& output, int stdoutPipe = -1) {
        std::map<std::string, std::string> env;
        for (char** e = environ; *e; ++e) {
            std::string entry(*e);
            const auto eq = entry.find('=');
            if (eq != std::string::npos) env[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
        for (const auto& [k, v] : extraEnv) env[k] = v;
        std::vector<std::string> envStrings;
        for (const auto& [k, v] : env) envStrings.push_back(k + "=" + v);
        std::vector<char*> envp, args;
        for (auto& s : envStrings) envp.push_back(s.data());
        envp.push_back(nullptr);
        std::vector<std::string> argvCopy = argv;
        for (auto& s : argvCopy) args.push_back(s.data());
        args.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (stdoutPipe >= 0) {
            posix_spawn_file_actions_adddup2(&actions, stdoutPipe, 1);
        } else {
            posix_spawn_file_actions_adddup2(&actions, 2, 1);
        }
        // Its own process group, so stopping it also stops what it started.
        posix_spawnattr_t attr;
        posix_spawnattr_init(&attr);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attr, 0);
        const int rc = posix_spawnp(&pid_, args[0], &actions, &attr, args.data(), envp.data());
        posix_spawnattr_destroy(&attr);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) throw std::runtime_error("cannot start " + argv[0]);
    }
    ~Spawned() { stop(); }
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;

    int pid() const { return pid_; }
    bool running() {
        if (status_) return false;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return false;
        }
        return true;
    }
    std::optional<int> waitForExit(std::chrono::milliseconds deadline) {
        pollUntil([&] { return !running(); }, deadline, 10ms);
        return status_;
    }
    void stop() {
        if (pid_ <= 0 || !running()) return;
        kill(-pid_, SIGTERM);
        if (!waitForExit(5s)) {
            kill(-pid_, SIGKILL);
            waitForExit(5s);
        }
    }

  private:
    pid_t pid_ = -1;
    std::optional<int> status_;
};

inline std::string readAll(const std::filesystem::path& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Our own session bus (no X needed): the shared desktop session without a display server.
class TestSessionBus {
  public:
    explicit TestSessionBus(const std::filesystem::path&) : session_(options()) {}
    const std::string& address() const { return session_.busAddress(); }

  private:
    static DesktopSession::Options options() {
        DesktopSession::Options o;
        o.server = DesktopSession::Server::none;
        return o;
    }
    DesktopSession session_;
};

// Xvfb and openbox (the shared desktop session without its bus), with the window queries these tests
// make on a connection of their own.
class TestDisplay {
  public:
    explicit TestDisplay(const std::filesystem::path&) : session_(options()) {
        display_ = XOpenDisplay(session_.display().c_str());
        if (!display_) throw std::runtime_error("cannot open " + session_.display());
    }
    ~TestDisplay() {
        if (display_) XCloseDisplay(display_);
    }

    const std::string& name() const { return session_.display(); }
    Display* display() const { return display_; }
    std::optional<unsigned long> windowProperty(Window window, Atom property, Atom type) const {
        Atom actual;
        int format;
        unsigned long count, remaining;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(display_, window, property, 0, 1, False, type, &actual, &format, &count,
                               &remaining, &data) != Success ||
            !data) {
            return std::nullopt;
        }
        std::optional<unsigned long> value;
        if (format == 32 && count > 0) value = reinterpret_cast<unsigned long*>(data)[0];
        XFree(data);
        return value;
    }

    // The managed client window whose WM_CLASS class is `className`; None until it is mapped.
    Window clientWindowOfClass(const std::string& className) const {
        const Atom clientList = XInternAtom(display_, "_NET_CLIENT_LIST", False);
        Atom actual;
        int format;
        unsigned long count, remaining;
        unsigned char* data = nullptr;
        Window found = None;
        if (XGetWindowProperty(display_, DefaultRootWindow(display_), clientList, 0, 4096, False, XA_WINDOW,
                               &actual, &format, &count, &remaining, &data) == Success &&
            data) {
            for (unsigned long i = 0; i < count && found == None; ++i) {
                const Window w = reinterpret_cast<unsigned long*>(data)[i];
                XClassHint hint{nullptr, nullptr};
                if (XGetClassHint(display_, w, &hint)) {
                    if (hint.res_class && className == hint.res_class) found = w;
                    XFree(hint.res_name);
                    XFree(hint.res_class);
                }
            }
            XFree(data);
        }
        return found;
    }

    // Asks the window manager to activate `window`, as a pager would.
    void activate(Window window) const {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = XInternAtom(display_, "_NET_ACTIVE_WINDOW", False);
        event.xclient.format = 32;
        event.xclient.data.l[0] = 2;  // from a pager: honoured without focus-stealing checks
        event.xclient.data.l[1] = CurrentTime;
        XSendEvent(display_, DefaultRootWindow(display_), False,
                   SubstructureRedirectMask | SubstructureNotifyMask, &event);
        XFlush(display_);
    }

    Window activeWindow() const {
        const Atom active = XInternAtom(display_, "_NET_ACTIVE_WINDOW", False);
        return windowProperty(DefaultRootWindow(display_), active, XA_WINDOW).value_or(None);
    }

  private:
    static DesktopSession::Options options() {
        DesktopSession::Options o;
        o.sessionBus = false;
        return o;
    }
    DesktopSession session_;
    Display* display_ = nullptr;
};

}  // namespace vocle::testing

// A missing desktop program fails under CI and skips elsewhere.
#define VOCLE_REQUIRE_PROGRAMS(...)                                                                      \
    do {                                                                                                 \
        for (const char* program : {__VA_ARGS__}) {                                                      \
            if (!::vocle::testing::programAvailable(program)) {                                          \
                if (::vocle::testing::runningUnderCI()) FAIL() << program << " is required under CI";   \
                GTEST_SKIP() << program << " is not installed";                                          \
            }                                                                                            \
        }                                                                                                \
    } while (false)
