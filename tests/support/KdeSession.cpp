#include "support/KdeSession.h"

#include <dbus/dbus.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wayland-client.h>

#include <fstream>
#include <map>
#include <stdexcept>
#include <thread>

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
    // Only the KDE backend, as on a Plasma machine without GNOME's: with other backends installed the portal
    // would also activate them on this bus for the interfaces they share.
    const auto portals = workDir_ / "portals";
    std::filesystem::create_directories(portals);
    std::filesystem::copy_file("/usr/share/xdg-desktop-portal/portals/kde.portal", portals / "kde.portal");
    env.push_back("XDG_DESKTOP_PORTAL_DIR=" + portals.string());
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

void grantKWinInterfaces(const DesktopSession& session, const std::filesystem::path& executable,
                         const std::vector<std::string>& waylandInterfaces,
                         const std::vector<std::string>& dbusInterfaces) {
    const auto join = [](const std::vector<std::string>& names) {
        std::string list;
        for (const auto& name : names) list += (list.empty() ? "" : ",") + name;
        return list;
    };
    const auto entry = session.homeDir() / ".local/share/applications" /
                       ("org.vocle.test." + executable.filename().string() + ".desktop");
    std::ofstream out(entry);
    out << "[Desktop Entry]\nType=Application\nName=" << executable.filename().string()
        << "\nNoDisplay=true\nExec=" << executable.string()
        << "\nX-KDE-Wayland-Interfaces=" << join(waylandInterfaces)
        << "\nX-KDE-DBUS-Restricted-Interfaces=" << join(dbusInterfaces) << "\n";
    if (!out) throw std::runtime_error("grantKWinInterfaces: cannot write " + entry.string());
}

bool captureScreen(DesktopSession& session, const std::filesystem::path& png, std::string* error) {
    const auto fail = [&](const std::string& why) {
        if (error) *error = "captureScreen: " + why;
        return false;
    };
    char self[4096] = {};
    if (::readlink("/proc/self/exe", self, sizeof self - 1) <= 0) return fail("no /proc/self/exe");
    grantKWinInterfaces(session, self, {}, {"org.kde.KWin.ScreenShot2"});

    DBusError e;
    dbus_error_init(&e);
    DBusConnection* bus = dbus_connection_open_private(session.busAddress().c_str(), &e);
    if (!bus || !dbus_bus_register(bus, &e)) {
        const std::string why = e.message ? e.message : "no bus";
        dbus_error_free(&e);
        if (bus) dbus_connection_close(bus), dbus_connection_unref(bus);
        return fail(why);
    }
    std::string pixels, why;
    DBusMessage* reply = nullptr;
    // KWin reads desktop entries again shortly after they change: until then the grant is not seen.
    pollUntil(
        [&] {
            int fds[2];
            if (::pipe2(fds, O_CLOEXEC) != 0) return true;
            // KWin writes the pixels after it has answered; read them meanwhile, the pipe holds far less.
            pixels.clear();
            std::thread reader([&] {
                char buffer[65536];
                ssize_t n;
                while ((n = ::read(fds[0], buffer, sizeof buffer)) > 0)
                    pixels.append(buffer, static_cast<size_t>(n));
            });
            DBusMessage* m = dbus_message_new_method_call("org.kde.KWin", "/org/kde/KWin/ScreenShot2",
                                                          "org.kde.KWin.ScreenShot2", "CaptureActiveScreen");
            DBusMessageIter it, dict;
            dbus_message_iter_init_append(m, &it);
            dbus_message_iter_open_container(&it, DBUS_TYPE_ARRAY, "{sv}", &dict);
            dbus_message_iter_close_container(&it, &dict);
            dbus_message_iter_append_basic(&it, DBUS_TYPE_UNIX_FD, &fds[1]);
            reply = dbus_connection_send_with_reply_and_block(bus, m, 15000, &e);
            dbus_message_unref(m);
            ::close(fds[1]);  // KWin holds its own copy; EOF comes when it is done
            reader.join();
            ::close(fds[0]);
            if (reply) return true;
            const std::string name = e.name ? e.name : "";
            why = name + ": " + (e.message ? e.message : "");
            dbus_error_free(&e);
            return name.find("NoAuthorized") == std::string::npos;
        },
        10.0, {}, 0.25);
    dbus_connection_close(bus);
    dbus_connection_unref(bus);
    if (!reply) return fail(why);
    std::map<std::string, uint32_t> info;
    std::string type;
    DBusMessageIter args, entries;
    if (dbus_message_iter_init(reply, &args) && dbus_message_iter_get_arg_type(&args) == DBUS_TYPE_ARRAY) {
        dbus_message_iter_recurse(&args, &entries);
        while (dbus_message_iter_get_arg_type(&entries) == DBUS_TYPE_DICT_ENTRY) {
            DBusMessageIter pair, variant;
            const char* key = nullptr;
            dbus_message_iter_recurse(&entries, &pair);
            dbus_message_iter_get_basic(&pair, &key);
            dbus_message_iter_next(&pair);
            dbus_message_iter_recurse(&pair, &variant);
            if (dbus_message_iter_get_arg_type(&variant) == DBUS_TYPE_UINT32) {
                uint32_t v = 0;
                dbus_message_iter_get_basic(&variant, &v);
                info[key] = v;
            } else if (dbus_message_iter_get_arg_type(&variant) == DBUS_TYPE_STRING) {
                const char* v = nullptr;
                dbus_message_iter_get_basic(&variant, &v);
                type = v ? v : "";
            }
            dbus_message_iter_next(&entries);
        }
    }
    dbus_message_unref(reply);
    const uint32_t width = info["width"], height = info["height"], stride = info["stride"],
                   format = info["format"];
    if (type != "raw" || width == 0 || height == 0 || stride < width * 4 ||
        pixels.size() < size_t(stride) * height)
        return fail("unexpected image: type " + type + ", " + std::to_string(width) + "x" +
                    std::to_string(height) + ", " + std::to_string(pixels.size()) + " bytes");
    // QImage formats: 32-bit (A)RGB words are BGRA in memory here, RGBA8888 variants are RGBA.
    const std::string order = (format >= 16 && format <= 18) ? "rgba" : "bgra";
    const auto raw = png.string() + ".raw";
    {
        std::ofstream out(raw, std::ios::binary);
        for (uint32_t row = 0; row < height; ++row)
            out.write(pixels.data() + size_t(row) * stride, width * 4);
    }
    const auto converted =
        session.run({"convert", "-size", std::to_string(width) + "x" + std::to_string(height), "-depth", "8",
                     order + ":" + raw, "-alpha", "off", png.string()},
                    30.0);
    std::filesystem::remove(raw);
    if (!converted) return fail("convert failed");
    return true;
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
