#include "platform/x11/AtspiWorkspace.h"

#include <atspi/atspi.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>

#include "foundation/Log.h"
#include "platform/linux/ApplicationNaming.h"
#include "platform/x11/AtspiBus.h"

namespace vocle {

namespace {

using SteadyClock = std::chrono::steady_clock;

enum class Change { activated, deactivated };

// Window activation is the event meant for this; focus covers toolkits that do not send it.
constexpr const char* kEventTypes[] = {"window:activate", "window:deactivate", "object:state-changed:active",
                                       "object:state-changed:focused"};

std::optional<Change> changeOf(const AtspiEvent& event) {
    if (!event.type || !event.source) return std::nullopt;
    const std::string type = event.type;
    if (type == "window:activate") return Change::activated;
    if (type == "window:deactivate") return Change::deactivated;
    if (type == "object:state-changed:active") return event.detail1 ? Change::activated : Change::deactivated;
    // Losing the focus inside an application says nothing about the next one.
    if (type == "object:state-changed:focused" && event.detail1) return Change::activated;
    return std::nullopt;
}

std::string takeString(gchar* text) {
    if (!text) return {};
    std::string value(text);
    g_free(text);
    return value;
}

// The process of an accessible, and the name its application gives itself. Call with atspi::lock().
int processOf(AtspiAccessible* object, std::string* applicationName) {
    GError* error = nullptr;
    const int pid = static_cast<int>(atspi_accessible_get_process_id(object, &error));
    if (error) {
        g_error_free(error);
        return 0;
    }
    if (applicationName) {
        if (AtspiAccessible* app = atspi_accessible_get_application(object, nullptr)) {
            *applicationName = takeString(atspi_accessible_get_name(app, nullptr));
            g_object_unref(app);
        }
    }
    return pid;
}

bool hasActiveWindow(AtspiAccessible* app) {
    const int windows = atspi_accessible_get_child_count(app, nullptr);
    for (int w = 0; w < windows; ++w) {
        AtspiAccessible* window = atspi_accessible_get_child_at_index(app, w, nullptr);
        if (!window) continue;
        bool active = false;
        if (AtspiStateSet* states = atspi_accessible_get_state_set(window)) {
            active = atspi_state_set_contains(states, ATSPI_STATE_ACTIVE);
            g_object_unref(states);
        }
        g_object_unref(window);
        if (active) return true;
    }
    return false;
}

int millisecondsUntil(SteadyClock::time_point when) {
    // Rounded up: a wait cut short to 0 would spin until the moment comes.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - SteadyClock::now()).count();
    return static_cast<int>(std::max<long long>(0, left));
}

}  // namespace

// What libatspi's dispatch hands us, waiting for the listener thread. Dispatch runs on whichever thread
// drains the bus (the accessibility reader does too), always under atspi::lock(), which guards this.
struct AtspiWorkspace::Pending {
    std::vector<std::pair<Change, AtspiAccessible*>> events;
    int wakeFd = -1;
    std::atomic<bool> stopping{false};
    AtspiEventListener* listener = nullptr;

    // Runs inside libatspi's dispatch: no calls back into the bus from here (libdbus would deadlock).
    static void onEvent(AtspiEvent* event, void* data) {
        auto* self = static_cast<Pending*>(data);
        if (auto change = changeOf(*event)) {
            self->events.emplace_back(*change, static_cast<AtspiAccessible*>(g_object_ref(event->source)));
            const uint64_t one = 1;
            if (write(self->wakeFd, &one, sizeof one) < 0) {
                // Already signalled to the brim: the listener is awake anyway.
            }
        }
        g_boxed_free(ATSPI_TYPE_EVENT, event);
    }
};

AtspiWorkspace::AtspiWorkspace(MainQueue& main, std::shared_ptr<const DesktopEntryIndex> index,
                               int ownProcess)
    : main_(main),
      index_(std::move(index)),
      tracker_(
          ownProcess,
          [this](int pid, const std::string& accessibleName) -> std::optional<RunningApplication> {
              auto process = readProcessIdentity(pid);
              if (!process) return std::nullopt;
              return applicationOfProcess(*index_, pid, *process, accessibleName);
          },
          [this](const RunningApplication& app) {
              activations_.emit(std::optional<RunningApplication>(app));
          }),
      pending_(std::make_shared<Pending>()) {
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    pending_->wakeFd = wakeFd_;
    listener_ = std::thread([this] { listen(); });
}

AtspiWorkspace::~AtspiWorkspace() {
    pending_->stopping = true;
    wake();
    if (listener_.joinable()) listener_.join();
    close(wakeFd_);
}

void AtspiWorkspace::wake() {
    const uint64_t one = 1;
    if (write(wakeFd_, &one, sizeof one) < 0) log("AtspiWorkspace: Cannot wake the listener");
}

AtspiWorkspace::DesktopChanges AtspiWorkspace::lookAtDesktop(bool always) {
    DesktopChanges changes;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    if (!desktop) return changes;
    const int count = atspi_accessible_get_child_count(desktop, nullptr);
    // One call when nothing changed; ended processes are found by the liveness check as well.
    if (!always && count == lastDesktopCount_) {
        g_object_unref(desktop);
        return changes;
    }
    lastDesktopCount_ = count;
    std::set<std::string> present;
    for (int i = 0; i < count; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, nullptr);
        if (!app) continue;
        const char* busName = app->parent.app ? app->parent.app->bus_name : nullptr;
        if (busName) {
            present.insert(busName);
            if (!buses_.count(busName)) {
                Seen seen;
                seen.processId = processOf(app, &seen.name);
                buses_[busName] = seen.processId;
                // Its window may have become active before it joined the bus: no event told of that.
                seen.active = seen.processId > 0 && hasActiveWindow(app);
                if (seen.processId > 0) changes.joined.push_back(std::move(seen));
            }
        }
        g_object_unref(app);
    }
    g_object_unref(desktop);
    for (auto it = buses_.begin(); it != buses_.end();) {
        if (present.count(it->first)) {
            ++it;
            continue;
        }
        if (it->second > 0) changes.left.push_back(it->second);
        it = buses_.erase(it);
    }
    return changes;
}

std::optional<AtspiWorkspace::Seen> AtspiWorkspace::findActiveApplication() {
    AtspiAccessible* desktop = atspi_get_desktop(0);
    if (!desktop) return std::nullopt;
    std::optional<Seen> found;
    const int count = atspi_accessible_get_child_count(desktop, nullptr);
    for (int i = 0; i < count && !found; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, nullptr);
        if (!app) continue;
        if (hasActiveWindow(app)) {
            Seen seen;
            seen.processId = processOf(app, &seen.name);
            seen.active = true;
            if (seen.processId > 0) found = std::move(seen);
        }
        g_object_unref(app);
    }
    g_object_unref(desktop);
    return found;
}

void AtspiWorkspace::listen() {
    {
        std::lock_guard bus(atspi::lock());
        if (!atspi::connect()) {
            log("AtspiWorkspace: No accessibility bus; the application in front stays unknown");
            return;
        }
        pending_->listener = atspi_event_listener_new(&Pending::onEvent, pending_.get(), nullptr);
        for (const char* type : kEventTypes) {
            GError* error = nullptr;
            if (!atspi_event_listener_register(pending_->listener, type, &error)) {
                log("AtspiWorkspace: Cannot listen for ", type, ": ",
                    error ? error->message : "unknown error");
                if (error) g_error_free(error);
            }
        }
    }

    std::vector<GPollFD> busFds(8);
    bool first = true;
    auto nextDesktopCheck = SteadyClock::now();
    // When to ask the windows which one is active; never while something is in front.
    auto probeAt = SteadyClock::time_point::max();
    while (!pending_->stopping) {
        struct Event {
            Change change;
            int processId;
            std::string name;
        };
        std::vector<Event> events;
        DesktopChanges changes;
        std::optional<Seen> probed;
        std::vector<pollfd> fds{{wakeFd_, POLLIN, 0}};
        gint busTimeout = -1;
        {
            std::lock_guard bus(atspi::lock());
            atspi::drainEvents();
            auto taken = std::move(pending_->events);
            pending_->events.clear();
            for (auto& [change, source] : taken) {
                Event event{change, 0, {}};
                event.processId = processOf(source, change == Change::activated ? &event.name : nullptr);
                g_object_unref(source);
                if (event.processId > 0) events.push_back(std::move(event));
            }
            if (SteadyClock::now() >= nextDesktopCheck) {
                changes = lookAtDesktop(first);
                nextDesktopCheck = SteadyClock::now() + std::chrono::milliseconds(kDesktopCheckMs);
            }
            if (SteadyClock::now() >= probeAt && events.empty()) {
                probed = findActiveApplication();
                probeAt = SteadyClock::time_point::max();
            }
            // The bus's sockets, to wait on without holding its context: the reader may drain it meanwhile.
            GMainContext* context = atspi::context();
            int count = 0;
            if (g_main_context_acquire(context)) {
                gint priority = 0;
                g_main_context_prepare(context, &priority);
                count = g_main_context_query(context, priority, &busTimeout, busFds.data(),
                                             static_cast<gint>(busFds.size()));
                if (count > static_cast<int>(busFds.size())) {
                    busFds.resize(count);
                    count = g_main_context_query(context, priority, &busTimeout, busFds.data(), count);
                }
                g_main_context_release(context);
            }
            for (int i = 0; i < count; ++i)
                fds.push_back({busFds[i].fd, static_cast<short>(busFds[i].events), 0});
        }
        {
            std::lock_guard lock(mutex_);
            const bool hadFront = tracker_.frontmost().has_value();
            for (const auto& app : changes.joined) tracker_.appeared(app.processId, app.name);
            for (const auto& app : changes.joined)
                if (app.active) tracker_.activated(app.processId, app.name);
            for (int pid : changes.left) tracker_.left(pid);
            for (const auto& event : events) {
                if (event.change == Change::activated) {
                    tracker_.activated(event.processId, event.name);
                } else {
                    tracker_.deactivated(event.processId);
                }
            }
            if (probed) tracker_.activated(probed->processId, probed->name);
            for (int pid : tracker_.processes())
                if (kill(pid, 0) != 0 && errno == ESRCH) tracker_.left(pid);
            // The application in front lost its window's activation or quit, and no other told of gaining it:
            // ask the windows once it has settled.
            if (hadFront && !tracker_.frontmost())
                probeAt = SteadyClock::now() + std::chrono::milliseconds(kActiveWindowProbeMs);
            if (tracker_.frontmost()) probeAt = SteadyClock::time_point::max();
            if (first) listening_ = true;
        }
        first = false;

        int waitMs = millisecondsUntil(nextDesktopCheck);
        if (probeAt != SteadyClock::time_point::max()) waitMs = std::min(waitMs, millisecondsUntil(probeAt));
        // Messages read while the reader waited for a reply are queued, not on the socket: come back
        // soon for them. (libatspi's idle source keeps claiming work, so not at once.)
        if (busTimeout == 0) waitMs = std::min(waitMs, 100);
        if (poll(fds.data(), fds.size(), waitMs) < 0 && errno != EINTR) {
            log("AtspiWorkspace: Cannot wait for the accessibility bus: ", std::strerror(errno));
            break;
        }
        if (fds[0].revents & POLLIN) {
            uint64_t count = 0;
            if (read(wakeFd_, &count, sizeof count) < 0) {
                // Nothing to read: woken by the bus instead.
            }
        }
    }

    std::lock_guard bus(atspi::lock());
    if (!pending_->listener) return;
    for (const char* type : kEventTypes) atspi_event_listener_deregister(pending_->listener, type, nullptr);
    g_object_unref(pending_->listener);
    pending_->listener = nullptr;
    for (auto& [change, source] : pending_->events) g_object_unref(source);
    pending_->events.clear();
}

std::optional<RunningApplication> AtspiWorkspace::frontmostApplication() const {
    std::lock_guard lock(mutex_);
    return tracker_.frontmost();
}

std::vector<RunningApplication> AtspiWorkspace::runningApplications() const {
    std::lock_guard lock(mutex_);
    return tracker_.running();
}

bool AtspiWorkspace::isListening() const {
    std::lock_guard lock(mutex_);
    return listening_;
}

Subscription AtspiWorkspace::observeActivations(ActivationHandler handler) {
    return activations_.subscribe(std::move(handler), &main_);
}

}  // namespace vocle
