#include "platform/x11/X11Workspace.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>

#include "foundation/Log.h"
#include "platform/linux/ApplicationNaming.h"
#include "platform/x11/XErrorTrap.h"

namespace vocle {

namespace {

// Windows vanish between an event and our reads of them; the BadWindow that follows must not reach
// Xlib's default handler, which ends the process.
void adoptDisplay(Display* display) { x11::XErrorTrap::adopt(display); }

void releaseDisplay(Display* display) {
    x11::XErrorTrap::release(display);
    XCloseDisplay(display);
}

struct XFreeDeleter {
    void operator()(void* p) const {
        if (p) XFree(p);
    }
};

// The raw bytes of a window property of 8, 32-bit (as long) or other format; empty when missing.
struct Property {
    std::unique_ptr<unsigned char, XFreeDeleter> data;
    unsigned long count = 0;
    int format = 0;
};

Property readProperty(Display* display, Window window, Atom property, Atom type) {
    Atom actualType = None;
    int format = 0;
    unsigned long count = 0, remaining = 0;
    unsigned char* data = nullptr;
    Property result;
    if (XGetWindowProperty(display, window, property, 0, 1 << 16, False, type, &actualType, &format, &count,
                           &remaining, &data) != Success) {
        return result;
    }
    result.data.reset(data);
    if (actualType == None) return Property{};
    result.count = count;
    result.format = format;
    return result;
}

struct Atoms {
    Atom activeWindow, clientList, wmPid, gtkApplicationId, utf8String;
    explicit Atoms(Display* d)
        : activeWindow(XInternAtom(d, "_NET_ACTIVE_WINDOW", False)),
          clientList(XInternAtom(d, "_NET_CLIENT_LIST", False)),
          wmPid(XInternAtom(d, "_NET_WM_PID", False)),
          gtkApplicationId(XInternAtom(d, "_GTK_APPLICATION_ID", False)),
          utf8String(XInternAtom(d, "UTF8_STRING", False)) {}
};

Window activeWindow(Display* display, const Atoms& atoms) {
    Property p = readProperty(display, DefaultRootWindow(display), atoms.activeWindow, XA_WINDOW);
    if (p.format != 32 || p.count < 1) return None;
    return static_cast<Window>(reinterpret_cast<unsigned long*>(p.data.get())[0]);
}

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::optional<RunningApplication> applicationOfWindow(Display* display, const Atoms& atoms, Window window,
                                                      const DesktopEntryIndex& index) {
    if (window == None) return std::nullopt;
    WindowClassHint hint;
    XClassHint classHint{nullptr, nullptr};
    if (XGetClassHint(display, window, &classHint)) {
        if (classHint.res_name) hint.instance = classHint.res_name;
        if (classHint.res_class) hint.className = classHint.res_class;
        XFree(classHint.res_name);
        XFree(classHint.res_class);
    }
    Property gtkId = readProperty(display, window, atoms.gtkApplicationId, atoms.utf8String);
    if (gtkId.format == 8 && gtkId.count > 0) {
        hint.applicationId.assign(reinterpret_cast<const char*>(gtkId.data.get()), gtkId.count);
    }
    RunningApplication app;
    Property pid = readProperty(display, window, atoms.wmPid, XA_CARDINAL);
    if (pid.format == 32 && pid.count > 0) {
        app.processIdentifier = static_cast<int>(reinterpret_cast<unsigned long*>(pid.data.get())[0]);
    }
    if (auto named = nameApplication(index, hint,
                                     !hint.className.empty() ? lowercase(hint.className) : hint.applicationId)) {
        app.bundleIdentifier = named->bundleIdentifier;
        app.localizedName = named->localizedName;
    }
    if (!app.bundleIdentifier && app.processIdentifier == 0) return std::nullopt;
    return app;
}

}  // namespace

struct X11Workspace::Handlers {
    std::mutex mutex;
    int nextId = 0;
    std::map<int, ActivationHandler> slots;
};

std::unique_ptr<X11Workspace> X11Workspace::open(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index,
                                                 const std::string& displayName) {
    XInitThreads();
    const char* name = displayName.empty() ? nullptr : displayName.c_str();
    Display* query = XOpenDisplay(name);
    Display* watch = query ? XOpenDisplay(name) : nullptr;
    if (!query || !watch) {
        log("❌ X11Workspace: Cannot open display ", name ? name : "$DISPLAY");
        if (query) XCloseDisplay(query);
        return nullptr;
    }
    return std::unique_ptr<X11Workspace>(new X11Workspace(main, std::move(index), query, watch));
}

X11Workspace::X11Workspace(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index, Display* query,
                           Display* watch)
    : main_(main),
      index_(std::move(index)),
      query_(query),
      watch_(watch),
      handlers_(std::make_shared<Handlers>()) {
    adoptDisplay(query_);
    adoptDisplay(watch_);
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    // Selected before the thread starts, so no change after open() goes unseen.
    XSelectInput(watch_, DefaultRootWindow(watch_), PropertyChangeMask);
    XFlush(watch_);
    const Atoms atoms(watch_);
    lastActive_ = applicationOfWindow(watch_, atoms, activeWindow(watch_, atoms), *index_);
    watcher_ = std::thread([this] { this->watch(); });
}

X11Workspace::~X11Workspace() {
    const uint64_t one = 1;
    if (write(wakeFd_, &one, sizeof one) < 0) log("X11Workspace: Cannot wake the watcher");
    if (watcher_.joinable()) watcher_.join();
    close(wakeFd_);
    releaseDisplay(watch_);
    releaseDisplay(query_);
}

void X11Workspace::watch() {
    const Atoms atoms(watch_);
    pollfd fds[2] = {{ConnectionNumber(watch_), POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    for (;;) {
        // Events already read into Xlib's queue do not show on the socket.
        if (XPending(watch_) == 0) {
            if (poll(fds, 2, -1) < 0 && errno != EINTR) break;
            if (fds[1].revents & POLLIN) break;
            if (fds[0].revents & (POLLERR | POLLHUP)) {
                log("❌ X11Workspace: Lost the X server");
                break;
            }
        }
        bool activeChanged = false;
        while (XPending(watch_) > 0) {
            XEvent event;
            XNextEvent(watch_, &event);
            if (event.type == PropertyNotify && event.xproperty.atom == atoms.activeWindow) activeChanged = true;
        }
        if (!activeChanged) continue;
        auto app = applicationOfWindow(watch_, atoms, activeWindow(watch_, atoms), *index_);
        // No window in front (the desktop itself) is not an activation.
        if (!app || app == lastActive_) continue;
        lastActive_ = app;
        main_.post([weak = std::weak_ptr<Handlers>(handlers_), app] {
            auto handlers = weak.lock();
            if (!handlers) return;
            std::vector<ActivationHandler> targets;
            {
                std::lock_guard lock(handlers->mutex);
                for (const auto& [id, handler] : handlers->slots) targets.push_back(handler);
            }
            for (const auto& handler : targets) handler(app);
        });
    }
}

std::optional<RunningApplication> X11Workspace::frontmostApplication() const {
    std::lock_guard lock(queryMutex_);
    const Atoms atoms(query_);
    return applicationOfWindow(query_, atoms, activeWindow(query_, atoms), *index_);
}

std::vector<RunningApplication> X11Workspace::runningApplications() const {
    std::lock_guard lock(queryMutex_);
    const Atoms atoms(query_);
    Property list = readProperty(query_, DefaultRootWindow(query_), atoms.clientList, XA_WINDOW);
    std::vector<RunningApplication> apps;
    if (list.format != 32) return apps;
    const auto* windows = reinterpret_cast<const unsigned long*>(list.data.get());
    for (unsigned long i = 0; i < list.count; ++i) {
        auto app = applicationOfWindow(query_, atoms, static_cast<Window>(windows[i]), *index_);
        if (!app) continue;
        const bool known = std::any_of(apps.begin(), apps.end(), [&](const RunningApplication& a) {
            return a.bundleIdentifier == app->bundleIdentifier && a.processIdentifier == app->processIdentifier;
        });
        if (!known) apps.push_back(std::move(*app));
    }
    return apps;
}

Subscription X11Workspace::observeActivations(ActivationHandler handler) {
    int id;
    {
        std::lock_guard lock(handlers_->mutex);
        id = handlers_->nextId++;
        handlers_->slots.emplace(id, std::move(handler));
    }
    return Subscription([weak = std::weak_ptr<Handlers>(handlers_), id] {
        if (auto handlers = weak.lock()) {
            std::lock_guard lock(handlers->mutex);
            handlers->slots.erase(id);
        }
    });
}

}  // namespace vocle
