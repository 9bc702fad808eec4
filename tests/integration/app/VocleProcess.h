#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "integration/server/ServerFixture.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/SessionStore.h"
#include "support/DesktopSession.h"
#include "support/TempDir.h"

// After everything else: Xlib defines macros (Success, None, Status) that other headers use as names.
#include <X11/Xlib.h>

namespace vocle::testing {

inline std::string readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// The PulseAudio daemon with the test sinks (started or reused); "PULSE_SERVER=…" for child processes.
inline std::string testPulseServer() {
    static const std::string line = [] {
        std::string out;
        if (FILE* p = ::popen((std::string(VOCLE_SOURCE_DIR) + "/scripts/start-test-pulseaudio.sh 2>/dev/null").c_str(), "r")) {
            char buffer[512];
            while (std::fgets(buffer, sizeof buffer, p)) out += buffer;
            ::pclose(p);
        }
        const auto at = out.find("PULSE_SERVER=");
        if (at == std::string::npos) return std::string();
        std::string value = out.substr(at);
        value = value.substr(0, value.find('\n'));
        return value;
    }();
    return line;
}

// The real `vocle` binary in a private X desktop, against a real vocle-server, with its own data home.
struct VocleDesktop {
    explicit VocleDesktop(int display)
        : session(options(display)), server(withoutSpeech) {
        std::filesystem::create_directories(home.path() / "data");
        std::filesystem::create_directories(home.path() / "config");
        screenshots = std::filesystem::path(VOCLE_BINARY_DIR) / "screenshots";
        std::filesystem::create_directories(screenshots);
        x = XOpenDisplay(session.display().c_str());
    }
    static DesktopSession::Options options(int display) {
        DesktopSession::Options o;
        o.display = display;
        o.screen = "1440x900x24";
        o.startTimeout = 20.0;
        return o;
    }
    ~VocleDesktop() {
        if (x) XCloseDisplay(x);
    }

    std::vector<std::string> environment() const {
        std::vector<std::string> env{"XDG_DATA_HOME=" + (home.path() / "data").string(),
                                     "XDG_CONFIG_HOME=" + (home.path() / "config").string(),
                                     "VOCLE_BACKEND_URL=http://127.0.0.1:" + std::to_string(server.port),
                                     "QT_QPA_PLATFORM=xcb"};
        if (const auto pulse = testPulseServer(); !pulse.empty()) env.push_back(pulse);
        return env;
    }

    // `name` names the log file (workDir/<name>.log): a symlink to the binary under that name.
    pid_t launch(const std::string& name = "vocle") {
        const std::filesystem::path binary = std::filesystem::path(VOCLE_BINARY_DIR) / "app" / "vocle";
        std::filesystem::path program = binary;
        if (name != "vocle") {
            program = session.workDir() / name;
            std::filesystem::create_symlink(binary, program);
        }
        return session.spawn({program.string()}, environment());
    }

    std::string log(const std::string& name = "vocle") const { return readFile(session.workDir() / (name + ".log")); }
    bool waitForLog(const std::string& fragment, double timeout = 20, const std::string& name = "vocle") const {
        return pollUntil([&] { return log(name).find(fragment) != std::string::npos; }, timeout, {}, 0.05);
    }

    void signInDirectly(const std::string& email) {
        const Session s = server.signIn(email);
        SystemClock clock;
        FileStorageManager files(DataFolder(home.path() / "data"), clock);
        SessionStore(files).save({s.access, s.refresh, s.userId, email});
    }

    std::optional<std::string> xdotool(std::vector<std::string> args) {
        args.insert(args.begin(), "xdotool");
        return session.run(args);
    }
    // The visible top-level window titled exactly "Vocle", if any.
    std::optional<Window> mainWindow() {
        auto out = xdotool({"search", "--onlyvisible", "--name", "^Vocle$"});
        if (!out || out->empty()) return std::nullopt;
        return static_cast<Window>(std::stoul(*out));
    }
    void screenshot(const std::string& name) {
        session.run({"import", "-window", "root", (screenshots / (name + ".png")).string()});
    }
    bool dbusCall(const std::string& method) {
        return session
            .run({"dbus-send", "--session", "--print-reply", "--dest=org.vocle.Vocle", "/org/vocle/Vocle",
                  "org.vocle.Vocle." + method})
            .has_value();
    }

    // Mapped override-redirect windows of the given geometry (the indicator panel).
    std::vector<Window> viewableOverrideRedirect(int px, int py, int w, int h) {
        std::vector<Window> found;
        Window root, parent;
        Window* children = nullptr;
        unsigned count = 0;
        XSync(x, False);
        if (!XQueryTree(x, DefaultRootWindow(x), &root, &parent, &children, &count)) return found;
        for (unsigned i = 0; i < count; ++i) {
            XWindowAttributes a;
            if (!XGetWindowAttributes(x, children[i], &a)) continue;
            if (a.override_redirect && a.map_state == IsViewable && a.x == px && a.y == py && a.width == w &&
                a.height == h)
                found.push_back(children[i]);
        }
        if (children) XFree(children);
        return found;
    }

    DesktopSession session;
    TestServer server;
    TempDir home;
    std::filesystem::path screenshots;
    Display* x = nullptr;
};

}  // namespace vocle::testing
