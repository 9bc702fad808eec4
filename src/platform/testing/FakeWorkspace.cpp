#include "platform/testing/FakeWorkspace.h"

#include <algorithm>

namespace vocle::testing {

std::optional<RunningApplication> FakeWorkspace::frontmostApplication() const {
    std::lock_guard lock(mutex_);
    return frontmost_;
}

std::vector<RunningApplication> FakeWorkspace::runningApplications() const {
    std::lock_guard lock(mutex_);
    return running_;
}

Subscription FakeWorkspace::observeActivations(ActivationHandler handler) {
    std::lock_guard lock(mutex_);
    const int id = nextId_++;
    (*handlers_)[id] = std::move(handler);
    return Subscription([weak = std::weak_ptr(handlers_), id, this] {
        if (auto h = weak.lock()) {
            std::lock_guard lock(mutex_);
            h->erase(id);
        }
    });
}

void FakeWorkspace::setFrontmost(std::optional<RunningApplication> app) {
    std::lock_guard lock(mutex_);
    frontmost_ = std::move(app);
}

void FakeWorkspace::setRunning(std::vector<RunningApplication> apps) {
    std::lock_guard lock(mutex_);
    running_ = std::move(apps);
}

void FakeWorkspace::activate(const RunningApplication& app) {
    {
        std::lock_guard lock(mutex_);
        frontmost_ = app;
        if (std::find(running_.begin(), running_.end(), app) == running_.end()) running_.push_back(app);
    }
    notify(app);
}

void FakeWorkspace::activateUnknown() {
    notify(std::nullopt);
}

size_t FakeWorkspace::observerCount() const {
    std::lock_guard lock(mutex_);
    return handlers_->size();
}

void FakeWorkspace::notify(const std::optional<RunningApplication>& app) {
    std::vector<ActivationHandler> targets;
    {
        std::lock_guard lock(mutex_);
        for (auto& [id, h] : *handlers_) targets.push_back(h);
    }
    for (auto& h : targets) h(app);
}

RunningApplication makeApplication(const std::string& bundleId, const std::string& name, int pid) {
    return RunningApplication{bundleId, name, pid};
}

}  // namespace vocle::testing
