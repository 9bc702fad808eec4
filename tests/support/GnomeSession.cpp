#include "support/GnomeSession.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "support/DesktopSession.h"
#include "support/TempDir.h"
#include "support/TestBus.h"

namespace vocle::testing {

namespace {

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

constexpr const char* kRemoteDesktop = "org.gnome.Mutter.RemoteDesktop";
constexpr const char* kScreenCast = "org.gnome.Mutter.ScreenCast";
constexpr uint32_t kShiftL = 0xffe1;

}  // namespace

GnomeSession::GnomeSession(DesktopSession& session, Options options) : session_(session), options_(options) {
    std::string pattern = (std::filesystem::temp_directory_path() / "vocle-gnome-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("GnomeSession: mkdtemp failed");
    runtimeDir_ = pattern;
    ::chmod(runtimeDir_.c_str(), 0700);
    home_ = session_.workDir() / "gnome-home";
    std::filesystem::create_directories(home_);
    previousXauthority_ = getEnv("XAUTHORITY");
    previousDesktop_ = getEnv("XDG_CURRENT_DESKTOP");
    ::setenv("XDG_RUNTIME_DIR", runtimeDir_.c_str(), 1);
    ::setenv("XDG_CURRENT_DESKTOP", "GNOME", 1);
    // mutter must not become a client of a desktop the tests run in.
    ::unsetenv("WAYLAND_DISPLAY");
    ::unsetenv("DISPLAY");
}

GnomeSession::~GnomeSession() {
    bus_.reset();
    restoreEnv("XAUTHORITY", previousXauthority_);
    restoreEnv("XDG_CURRENT_DESKTOP", previousDesktop_);
    // The document portal (started by the bus) mounts its file system in the runtime dir; it unmounts when
    // the bus goes, but never remove files through a mount left behind.
    const std::string documents = " " + (runtimeDir_ / "doc").string() + " ";
    const bool unmounted = pollUntil(
        [&] { return vocle::testing::readText("/proc/mounts").find(documents) == std::string::npos; }, 3.0,
        {}, 0.05);
    if (!unmounted) session_.run({"fusermount3", "-u", "-z", (runtimeDir_ / "doc").string()});
    std::error_code ec;
    std::filesystem::remove_all(runtimeDir_, ec);
}

void GnomeSession::start() {
    const auto address = getEnv("DBUS_SESSION_BUS_ADDRESS");
    if (!address) throw std::runtime_error("GnomeSession: no session bus to start on");
    bus_ = std::make_unique<TestBus>(*address);
    startMutter();
    addKeyboard();
    startPortal();
}

void GnomeSession::waitForName(const std::string& name, int pid, const std::string& what) {
    const bool up = pollUntil([&] { return bus_->hasOwner(name) || !session_.isRunning(pid); },
                              options_.startTimeout, {}, 0.05);
    if (!up || !bus_->hasOwner(name))
        throw std::runtime_error("GnomeSession: " + what + " never took " + name +
                                 " on the session bus (see " +
                                 (session_.workDir() / (what + ".log")).string() + ")");
}

void GnomeSession::startMutter() {
    std::vector<std::string> argv = {"mutter", "--headless", "--wayland", "--virtual-monitor", "1280x800"};
    if (!options_.xwayland) argv.push_back("--no-x11");
    // Settings are only read; the memory backend keeps them off the user's own dconf database.
    mutter_ =
        session_.spawn(argv, {"HOME=" + home_.string(), "XDG_CONFIG_HOME=" + (home_ / ".config").string(),
                              "GSETTINGS_BACKEND=memory", "XDG_SESSION_TYPE=wayland"});
    waitForName(kRemoteDesktop, mutter_, "mutter");
    const auto log = session_.workDir() / "mutter.log";
    // XWayland starts with mutter and picks a free display number, which mutter logs.
    const std::regex publicDisplay("Using public X11 display (:[0-9]+)");
    const bool up = pollUntil(
        [&] {
            if (!session_.isRunning(mutter_)) return true;
            std::error_code ec;
            for (const auto& entry : std::filesystem::directory_iterator(runtimeDir_, ec)) {
                const std::string name = entry.path().filename().string();
                if (name.rfind("wayland-", 0) == 0 && name.find('.') == std::string::npos)
                    waylandDisplay_ = name;
            }
            std::smatch m;
            const std::string text = vocle::testing::readText(log);
            if (options_.xwayland && display_.empty() && std::regex_search(text, m, publicDisplay))
                display_ = m[1];
            return !waylandDisplay_.empty() && (!options_.xwayland || !display_.empty());
        },
        options_.startTimeout, {}, 0.05);
    if (!up || !session_.isRunning(mutter_))
        throw std::runtime_error("GnomeSession: mutter did not start (see " + log.string() + ")");
    ::setenv("WAYLAND_DISPLAY", waylandDisplay_.c_str(), 1);
    if (options_.xwayland) {
        // XWayland admits the clients that show mutter's cookie.
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(runtimeDir_, ec))
            if (entry.path().filename().string().rfind(".mutter-Xwaylandauth.", 0) == 0)
                ::setenv("XAUTHORITY", entry.path().c_str(), 1);
        ::setenv("DISPLAY", display_.c_str(), 1);
    }
}

void GnomeSession::addKeyboard() {
    // Headless mutter's seat has no keyboard until an input device has sent something; clients then have no
    // wl_keyboard and the first injected key is lost while the seat gains one. A real desktop always has
    // a keyboard: a remote-desktop session of mutter's own stands in for it while the session lives.
    try {
        const auto created =
            bus_->call(kRemoteDesktop, "/org/gnome/Mutter/RemoteDesktop", kRemoteDesktop, "CreateSession");
        const auto* path = created.empty() ? nullptr : std::get_if<TestBus::ObjectPath>(&created.front());
        if (!path) throw std::runtime_error("CreateSession returned no session");
        const std::string session = std::string(kRemoteDesktop) + ".Session";
        bus_->call(kRemoteDesktop, path->path, session, "Start");
        for (const bool pressed : {true, false})
            bus_->call(kRemoteDesktop, path->path, session, "NotifyKeyboardKeysym", {kShiftL, pressed});
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(std::string("GnomeSession: no keyboard for mutter's seat: ") + e.what());
    }
    const bool keyboard = pollUntil(
        [&] {
            const auto seat = session_.run({"wayland-info", "-i", "wl_seat"}, 5.0);
            return seat && seat->find("keyboard") != std::string::npos;
        },
        options_.startTimeout, {}, 0.1);
    if (!keyboard)
        throw std::runtime_error("GnomeSession: mutter's seat never showed a keyboard (wayland-info)");
}

void GnomeSession::startPortal() {
    std::vector<std::string> env = {"HOME=" + home_.string(),
                                    "XDG_CONFIG_HOME=" + (home_ / ".config").string(),
                                    "GSETTINGS_BACKEND=memory"};
    // Services the bus starts on demand (the GTK backend, the accessibility bus) need the display too.
    std::vector<std::string> activation = {"WAYLAND_DISPLAY", "DISPLAY", "XAUTHORITY", "XDG_CURRENT_DESKTOP",
                                           "XDG_RUNTIME_DIR"};
    TestBus::Dict vars;
    for (const auto& name : activation)
        if (const auto value = getEnv(name.c_str())) vars[name] = *value;
    // a{ss}, not a{sv}: sent through dbus-send's own dictionary syntax.
    std::string dict;
    for (const auto& [name, value] : vars)
        dict += (dict.empty() ? "" : ",") + name + "," + std::get<std::string>(value);
    if (!session_.run({"dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
                       "/org/freedesktop/DBus", "org.freedesktop.DBus.UpdateActivationEnvironment",
                       "dict:string:string:" + dict}))
        throw std::runtime_error("GnomeSession: the bus refused the activation environment");
    // Only GNOME's backends, as on a GNOME desktop: with KDE's installed too, this portal version hands
    // interfaces GNOME lacks (GlobalShortcuts) to the KDE backend instead of leaving them out.
    const auto portals = session_.workDir() / "portals";
    std::filesystem::create_directories(portals);
    for (const char* name : {"gnome.portal", "gtk.portal"}) {
        std::error_code ec;
        std::filesystem::copy_file(std::filesystem::path("/usr/share/xdg-desktop-portal/portals") / name,
                                   portals / name, ec);
        if (ec) throw std::runtime_error(std::string("GnomeSession: no ") + name + ": " + ec.message());
    }
    env.push_back("XDG_DESKTOP_PORTAL_DIR=" + portals.string());
    const int backend = session_.spawn({"/usr/libexec/xdg-desktop-portal-gnome"}, env);
    waitForName("org.freedesktop.impl.portal.desktop.gnome", backend, "xdg-desktop-portal-gnome");
    const int portal = session_.spawn({"/usr/libexec/xdg-desktop-portal"}, env);
    waitForName("org.freedesktop.portal.Desktop", portal, "xdg-desktop-portal");
}

bool GnomeSession::answerRemoteDesktopDialog(bool allow, double timeout) {
    std::vector<std::string> argv = {VOCLE_BINARY_DIR "/tests/vocle-test-answer-dialog",
                                     "xdg-desktop-portal-gnome", allow ? "Share" : "Cancel", "--timeout",
                                     std::to_string(timeout)};
    if (allow) argv.push_back("--check-all");
    return session_.run(argv, timeout + 5.0).has_value();
}

void GnomeSession::startPipeWire() {
    if (pipewire_) return;
    const std::vector<std::string> env = {"XDG_CONFIG_HOME=" + (home_ / ".config").string(),
                                          "XDG_STATE_HOME=" + (home_ / ".state").string(),
                                          "HOME=" + home_.string()};
    const int daemon = session_.spawn({"pipewire"}, env);
    const bool up = pollUntil(
        [&] { return std::filesystem::exists(runtimeDir_ / "pipewire-0") || !session_.isRunning(daemon); },
        options_.startTimeout, {}, 0.05);
    if (!up || !session_.isRunning(daemon))
        throw std::runtime_error("GnomeSession: pipewire did not start (see " +
                                 (session_.workDir() / "pipewire.log").string() + ")");
    // The session manager links the recorder to mutter's stream.
    session_.spawn({"wireplumber"}, env);
    pipewire_ = true;
}

void GnomeSession::screenshot(const std::filesystem::path& file) {
    startPipeWire();
    const std::string sessionInterface = std::string(kScreenCast) + ".Session";
    const std::string streamInterface = std::string(kScreenCast) + ".Stream";
    bus_->addMatch("type='signal',interface='" + streamInterface + "',member='PipeWireStreamAdded'");
    const auto created = bus_->call(kScreenCast, "/org/gnome/Mutter/ScreenCast", kScreenCast, "CreateSession",
                                    {TestBus::Dict{}});
    const auto* cast = created.empty() ? nullptr : std::get_if<TestBus::ObjectPath>(&created.front());
    if (!cast) throw std::runtime_error("GnomeSession: mutter made no screen-cast session");
    struct Stop {
        TestBus& bus;
        std::string path, interface;
        ~Stop() {
            try {
                bus.call(kScreenCast, path, interface, "Stop");
            } catch (const std::runtime_error&) {
            }
        }
    } stop{*bus_, cast->path, sessionInterface};
    // The primary monitor, without the pointer.
    const auto recorded = bus_->call(kScreenCast, cast->path, sessionInterface, "RecordMonitor",
                                     {std::string(), TestBus::Dict{{"cursor-mode", 0u}}});
    const auto* stream = recorded.empty() ? nullptr : std::get_if<TestBus::ObjectPath>(&recorded.front());
    if (!stream) throw std::runtime_error("GnomeSession: mutter records no monitor");
    bus_->call(kScreenCast, cast->path, sessionInterface, "Start");
    const auto added =
        bus_->waitForSignal(stream->path, streamInterface, "PipeWireStreamAdded", options_.startTimeout);
    if (!added || added->empty() || !std::holds_alternative<uint32_t>(added->front()))
        throw std::runtime_error("GnomeSession: mutter's screen cast never reached PipeWire");
    const uint32_t node = std::get<uint32_t>(added->front());
    std::filesystem::create_directories(file.parent_path());
    std::filesystem::remove(file);
    // A few frames: the first may come before the stream has settled its format.
    const bool taken = session_
                           .run({"gst-launch-1.0", "-q", "pipewiresrc", "path=" + std::to_string(node),
                                 "num-buffers=3", "!", "videoconvert", "!", "pngenc", "snapshot=true", "!",
                                 "filesink", "location=" + file.string()},
                                30.0)
                           .has_value();
    if (!taken || !std::filesystem::exists(file) || std::filesystem::file_size(file) == 0)
        throw std::runtime_error("GnomeSession: no frame from mutter's screen cast for " + file.string());
}

}  // namespace vocle::testing
