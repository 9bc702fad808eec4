#include "support/KdeSession.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <wayland-client.h>

#include <fstream>
#include <stdexcept>

#include "support/PortalTestClient.h"

namespace vocle::testing {

namespace {

constexpr const char* kSocket = "wayland-kde";

std::string firstLine(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool mounted(const std::filesystem::path& path) {
    std::ifstream in("/proc/self/mountinfo");
    std::string line;
    const std::string needle = " " + path.string() + " ";
    while (std::getline(in, line))
        if (line.find(needle) != std::string::npos) return true;
    return false;
}

std::filesystem::path findProgram(const std::vector<std::filesystem::path>& candidates) {
    std::error_code ec;
    for (const auto& candidate : candidates)
        if (std::filesystem::exists(candidate, ec)) return candidate;
    return {};
}

}  // namespace

std::filesystem::path kdePortalBackend() {
    std::vector<std::filesystem::path> candidates = {
        "/usr/libexec/xdg-desktop-portal-kde", "/usr/lib/xdg-desktop-portal-kde/xdg-desktop-portal-kde"};
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/lib", ec))
        if (entry.is_directory(ec)) candidates.push_back(entry.path() / "libexec/xdg-desktop-portal-kde");
    return findProgram(candidates);
}

void DesktopSession::startKde() {
    const auto kwin = findProgram({"/usr/bin/kwin_wayland"});
    const auto backend = kdePortalBackend();
    const auto portal = findProgram({"/usr/libexec/xdg-desktop-portal", "/usr/lib/xdg-desktop-portal"});
    if (kwin.empty() || backend.empty() || portal.empty())
        throw std::runtime_error(
            "DesktopSession: kwin_wayland, xdg-desktop-portal-kde and xdg-desktop-portal must be installed "
            "(scripts/setup.sh)");

    std::string pattern = (std::filesystem::temp_directory_path() / "vocle-kde-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("DesktopSession: mkdtemp failed");
    runtimeDir_ = pattern;
    // Everything below starts in this runtime dir and on this bus, services the bus activates included.
    ::setenv("XDG_RUNTIME_DIR", runtimeDir_.c_str(), 1);
    ::unsetenv("WAYLAND_DISPLAY");
    ::unsetenv("DISPLAY");
    startBus();
    ::setenv("DBUS_SESSION_BUS_ADDRESS", busAddress_.c_str(), 1);

    const auto home = homeDir();
    std::vector<std::string> env = {"HOME=" + home.string(),
                                    "XDG_CONFIG_HOME=" + (home / ".config").string(),
                                    "XDG_CACHE_HOME=" + (home / ".cache").string(),
                                    "XDG_DATA_HOME=" + (home / ".local/share").string(),
                                    "XDG_CURRENT_DESKTOP=KDE",
                                    "XDG_SESSION_TYPE=wayland",
                                    "KDE_SESSION_VERSION=5"};
    std::filesystem::create_directories(home / ".local/share/applications");

    const auto copy = workDir_ / "kwin_wayland";
    std::filesystem::copy_file(kwin, copy);
    ::chmod(copy.c_str(), 0755);
    // KWin runs the programs it is given once its sockets (and XWayland) are up, with DISPLAY set; this
    // one reports it, as a session's autostart would see it.
    const auto displayFile = workDir_ / "x-display";
    const auto reporter = workDir_ / "report-display";
    std::ofstream(reporter) << "#!/bin/sh\necho \"$DISPLAY\" > " << displayFile.string() << ".new && mv "
                            << displayFile.string() << ".new " << displayFile.string() << "\n";
    ::chmod(reporter.c_str(), 0755);
    const std::string size = options_.screen.substr(0, options_.screen.rfind('x'));
    std::vector<std::string> argv = {copy.string(),
                                     "--virtual",
                                     "--no-lockscreen",
                                     "--socket",
                                     kSocket,
                                     "--width",
                                     size.substr(0, size.find('x')),
                                     "--height",
                                     size.substr(size.find('x') + 1)};
    if (options_.xwayland) argv.push_back("--xwayland");
    argv.push_back(reporter.string());
    const pid_t compositor = spawn(argv, env);

    PortalTestClient bus(busAddress_);
    const auto waitFor = [&](const std::string& what, pid_t pid, const std::function<bool()>& ready) {
        const bool up =
            pollUntil([&] { return !isRunning(pid) || ready(); }, options_.startTimeout, {}, 0.05);
        if (!up || !isRunning(pid))
            throw std::runtime_error("DesktopSession: " + what +
                                     (isRunning(pid) ? " did not start in time" : " ended") + " (see " +
                                     workDir_.string() + "/*.log)");
    };
    waitFor("kwin_wayland", compositor, [&] {
        return std::filesystem::exists(runtimeDir_ / kSocket) && std::filesystem::exists(displayFile) &&
               bus.nameHasOwner("org.kde.KWin") && bus.nameHasOwner("org.kde.kglobalaccel");
    });
    waylandDisplay_ = kSocket;
    display_ = options_.xwayland ? firstLine(displayFile) : "";
    if (options_.xwayland && display_.empty())
        throw std::runtime_error("DesktopSession: kwin_wayland started no XWayland");
    ::setenv("WAYLAND_DISPLAY", waylandDisplay_.c_str(), 1);
    if (!display_.empty()) ::setenv("DISPLAY", display_.c_str(), 1);

    // Started here rather than activated by the bus, whose environment predates the compositor.
    env.push_back("QT_QPA_PLATFORM=wayland");
    const pid_t backendPid = spawn({backend.string()}, env);
    waitFor("xdg-desktop-portal-kde", backendPid,
            [&] { return bus.nameHasOwner("org.freedesktop.impl.portal.desktop.kde"); });
    const pid_t portalPid = spawn({portal.string()}, env);
    waitFor("xdg-desktop-portal", portalPid,
            [&] { return bus.nameHasOwner("org.freedesktop.portal.Desktop"); });
}

void DesktopSession::releaseKdeRuntime() {
    // The document portal (started by xdg-desktop-portal) mounts a FUSE file system in the runtime dir and
    // leaves with the bus; a mount still there would keep the dir from being removed.
    const auto documents = runtimeDir_ / "doc";
    if (runtimeDir_.empty() || pollUntil([&] { return !mounted(documents); }, 3.0, {}, 0.05)) return;
    run({"fusermount", "-u", "-z", documents.string()});
}

void grantWaylandInterfaces(const DesktopSession& session, const std::filesystem::path& executable,
                            const std::vector<std::string>& interfaces) {
    std::string list;
    for (const auto& name : interfaces) list += (list.empty() ? "" : ",") + name;
    const auto entry = session.homeDir() / ".local/share/applications" /
                       ("org.vocle.test." + executable.filename().string() + ".desktop");
    std::ofstream out(entry);
    out << "[Desktop Entry]\nType=Application\nName=" << executable.filename().string()
        << "\nNoDisplay=true\nExec=" << executable.string() << "\nX-KDE-Wayland-Interfaces=" << list << "\n";
    if (!out) throw std::runtime_error("grantWaylandInterfaces: cannot write " + entry.string());
}

void allowRemoteControl(PortalTestClient& client, const std::string& appId) {
    std::string error;
    if (!client.setPermission("kde-authorized", "remote-desktop", appId, {"yes"}, &error))
        throw std::runtime_error("allowRemoteControl: the permission store refused: " + error);
}

std::vector<std::string> compositorGlobals() {
    std::vector<std::string> names;
    wl_display* display = wl_display_connect(nullptr);
    if (!display) return names;
    wl_registry* registry = wl_display_get_registry(display);
    static const wl_registry_listener listener = {
        [](void* data, wl_registry*, uint32_t, const char* interface, uint32_t) {
            static_cast<std::vector<std::string>*>(data)->push_back(interface);
        },
        [](void*, wl_registry*, uint32_t) {}};
    wl_registry_add_listener(registry, &listener, &names);
    wl_display_roundtrip(display);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    return names;
}

}  // namespace vocle::testing
