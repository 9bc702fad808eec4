#include "platform/wayland/ToplevelTracker.h"

#include <algorithm>

namespace vocle::wayland {

ToplevelTracker::ToplevelTracker(Resolver resolver, ActivationSink onActivation)
    : resolver_(std::move(resolver)), onActivation_(std::move(onActivation)) {}

void ToplevelTracker::added(uint64_t handle) {
    windows_[handle].order = nextOrder_++;
}

void ToplevelTracker::appId(uint64_t handle, const std::string& appId) {
    if (auto it = windows_.find(handle); it != windows_.end()) it->second.pendingAppId = appId;
}

void ToplevelTracker::activated(uint64_t handle, bool activated) {
    if (auto it = windows_.find(handle); it != windows_.end()) it->second.pendingActivated = activated;
}

void ToplevelTracker::done(uint64_t handle) {
    auto it = windows_.find(handle);
    if (it == windows_.end()) return;
    Window& window = it->second;
    if (window.pendingAppId) window.appId = *std::exchange(window.pendingAppId, std::nullopt);
    if (window.pendingActivated) window.activated = *std::exchange(window.pendingActivated, std::nullopt);
    if (window.activated) {
        focused_ = handle;
    } else if (focused_ == handle) {
        // Focus left for a window that is not ours to see (a layer surface, nothing): no activation.
        focused_.reset();
    }
    if (focused_ != handle || window.appId.empty()) return;
    RunningApplication app = resolver_(window.appId);
    if (front_ == app) return;
    front_ = app;
    onActivation_(app);
}

void ToplevelTracker::closed(uint64_t handle) {
    windows_.erase(handle);
    if (focused_ == handle) focused_.reset();
}

std::optional<std::string> ToplevelTracker::focusedAppId() const {
    if (!focused_) return std::nullopt;
    const auto it = windows_.find(*focused_);
    if (it == windows_.end() || it->second.appId.empty()) return std::nullopt;
    return it->second.appId;
}

std::vector<RunningApplication> ToplevelTracker::running() const {
    std::vector<const Window*> ordered;
    for (const auto& [handle, window] : windows_)
        if (!window.appId.empty()) ordered.push_back(&window);
    std::sort(ordered.begin(), ordered.end(),
              [](const Window* a, const Window* b) { return a->order < b->order; });
    std::vector<RunningApplication> apps;
    for (const Window* window : ordered) {
        RunningApplication app = resolver_(window->appId);
        if (std::find(apps.begin(), apps.end(), app) == apps.end()) apps.push_back(std::move(app));
    }
    return apps;
}

}  // namespace vocle::wayland
