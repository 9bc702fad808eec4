#include "platform/linux/FocusedApplicationTracker.h"

#include <algorithm>

namespace vocle {

FocusedApplicationTracker::FocusedApplicationTracker(int ownProcess, Resolver resolver,
                                                     ActivationSink onActivation)
    : ownProcess_(ownProcess), resolver_(std::move(resolver)), onActivation_(std::move(onActivation)) {}

const FocusedApplicationTracker::Known* FocusedApplicationTracker::know(int processId,
                                                                        const std::string& accessibleName) {
    if (processId <= 0 || processId == ownProcess_) return nullptr;
    if (auto it = known_.find(processId); it != known_.end()) return &it->second;
    auto app = resolver_(processId, accessibleName);
    if (!app) return nullptr;
    app->processIdentifier = processId;
    return &known_.emplace(processId, Known{nextOrder_++, std::move(*app)}).first->second;
}

void FocusedApplicationTracker::appeared(int processId, const std::string& accessibleName) {
    know(processId, accessibleName);
}

void FocusedApplicationTracker::activated(int processId, const std::string& accessibleName) {
    const Known* known = know(processId, accessibleName);
    if (!known) return;
    front_ = processId;
    // Focus moves inside one application all the time; only a change of application is news.
    if (reported_ == known->app) return;
    reported_ = known->app;
    onActivation_(known->app);
}

void FocusedApplicationTracker::deactivated(int processId) {
    // Another application's activation may arrive before this one's deactivation: only the one in
    // front can lose the front. Coming back to it is no news either.
    if (front_ == processId) front_.reset();
}

void FocusedApplicationTracker::left(int processId) {
    known_.erase(processId);
    if (front_ == processId) front_.reset();
    // A new process of the same application is news again.
    if (reported_ && reported_->processIdentifier == processId) reported_.reset();
}

std::optional<RunningApplication> FocusedApplicationTracker::frontmost() const {
    if (!front_) return std::nullopt;
    auto it = known_.find(*front_);
    if (it == known_.end()) return std::nullopt;
    return it->second.app;
}

std::vector<RunningApplication> FocusedApplicationTracker::running() const {
    std::vector<const Known*> ordered;
    for (const auto& [pid, known] : known_) ordered.push_back(&known);
    std::sort(ordered.begin(), ordered.end(),
              [](const Known* a, const Known* b) { return a->order < b->order; });
    std::vector<RunningApplication> apps;
    for (const auto* known : ordered) apps.push_back(known->app);
    return apps;
}

std::vector<int> FocusedApplicationTracker::processes() const {
    std::vector<int> pids;
    for (const auto& [pid, known] : known_) pids.push_back(pid);
    return pids;
}

}  // namespace vocle
