#include "platform/wayland/WaylandWorkspace.h"

#include <wayland-client.h>

#include "foundation/Log.h"
#include "platform/linux/ApplicationNaming.h"
#include "platform/wayland/WaylandConnection.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace vocle::wayland {

namespace {

uint64_t key(zwlr_foreign_toplevel_handle_v1* handle) {
    return reinterpret_cast<uintptr_t>(handle);
}

}  // namespace

struct WaylandWorkspace::Listeners {
    static void title(void*, zwlr_foreign_toplevel_handle_v1*, const char*) {}
    static void appId(void* data, zwlr_foreign_toplevel_handle_v1* handle, const char* id) {
        auto* self = static_cast<WaylandWorkspace*>(data);
        std::lock_guard lock(self->mutex_);
        self->tracker_.appId(key(handle), id ? id : "");
    }
    static void outputEnter(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
    static void outputLeave(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
    static void state(void* data, zwlr_foreign_toplevel_handle_v1* handle, wl_array* states) {
        bool activated = false;
        const auto* begin = static_cast<const uint32_t*>(states->data);
        for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i)
            if (begin[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED) activated = true;
        auto* self = static_cast<WaylandWorkspace*>(data);
        std::lock_guard lock(self->mutex_);
        self->tracker_.activated(key(handle), activated);
    }
    static void done(void* data, zwlr_foreign_toplevel_handle_v1* handle) {
        auto* self = static_cast<WaylandWorkspace*>(data);
        std::lock_guard lock(self->mutex_);
        self->tracker_.done(key(handle));
    }
    static void closed(void* data, zwlr_foreign_toplevel_handle_v1* handle) {
        auto* self = static_cast<WaylandWorkspace*>(data);
        {
            std::lock_guard lock(self->mutex_);
            self->tracker_.closed(key(handle));
        }
        zwlr_foreign_toplevel_handle_v1_destroy(handle);
    }
    static void parent(void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {}

    static constexpr zwlr_foreign_toplevel_handle_v1_listener handle = {
        title, appId, outputEnter, outputLeave, state, done, closed, parent};

    static void toplevel(void* data, zwlr_foreign_toplevel_manager_v1*,
                         zwlr_foreign_toplevel_handle_v1* handle) {
        auto* self = static_cast<WaylandWorkspace*>(data);
        {
            std::lock_guard lock(self->mutex_);
            self->tracker_.added(key(handle));
        }
        zwlr_foreign_toplevel_handle_v1_add_listener(handle, &Listeners::handle, self);
    }
    static void finished(void*, zwlr_foreign_toplevel_manager_v1*) {
        log("Wayland: the compositor stopped reporting its windows");
    }
    static constexpr zwlr_foreign_toplevel_manager_v1_listener manager = {toplevel, finished};
};

std::unique_ptr<WaylandWorkspace> WaylandWorkspace::create(WaylandConnection& connection, MainQueue& main,
                                                           std::shared_ptr<const DesktopEntryIndex> index) {
    auto* manager = static_cast<zwlr_foreign_toplevel_manager_v1*>(
        connection.bind(&zwlr_foreign_toplevel_manager_v1_interface, 3));
    if (!manager) return nullptr;
    std::unique_ptr<WaylandWorkspace> workspace(
        new WaylandWorkspace(connection, main, std::move(index), manager));
    zwlr_foreign_toplevel_manager_v1_add_listener(manager, &Listeners::manager, workspace.get());
    return workspace;
}

WaylandWorkspace::WaylandWorkspace(WaylandConnection& connection, MainQueue& main,
                                   std::shared_ptr<const DesktopEntryIndex> index,
                                   zwlr_foreign_toplevel_manager_v1* manager)
    : connection_(connection),
      main_(main),
      index_(std::move(index)),
      manager_(manager),
      tracker_([this](const std::string& appId) { return resolve(*index_, appId); },
               [this](const RunningApplication& app) {
                   activations_.emit(std::optional<RunningApplication>(app));
               }) {}

WaylandWorkspace::~WaylandWorkspace() {
    // Handles still open go with the connection; the manager is ours to let go.
    zwlr_foreign_toplevel_manager_v1_destroy(manager_);
    connection_.flush();
}

RunningApplication WaylandWorkspace::resolve(const DesktopEntryIndex& index, const std::string& appId) {
    // Wayland app ids are meant to be desktop-file ids; X11 windows under XWayland report their class.
    if (auto app = nameApplication(index, WindowClassHint{appId, appId, appId}, appId)) return *app;
    RunningApplication app;
    app.bundleIdentifier = appId;
    app.localizedName = appId;
    return app;
}

std::optional<RunningApplication> WaylandWorkspace::frontmostApplication() const {
    std::lock_guard lock(mutex_);
    return tracker_.frontmost();
}

std::vector<RunningApplication> WaylandWorkspace::runningApplications() const {
    std::lock_guard lock(mutex_);
    return tracker_.running();
}

std::optional<std::string> WaylandWorkspace::focusedAppId() const {
    std::lock_guard lock(mutex_);
    return tracker_.focusedAppId();
}

Subscription WaylandWorkspace::observeActivations(ActivationHandler handler) {
    return activations_.subscribe(std::move(handler), &main_);
}

}  // namespace vocle::wayland
