#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "platform/workspace.h"

namespace vocle::testing {

// A scriptable window system: the test says which application is in front and which run, and
// activates applications by hand. Handlers are called on the calling thread (the test's main queue).
class FakeWorkspace final : public Workspace {
  public:
    std::optional<RunningApplication> frontmostApplication() const override;
    std::vector<RunningApplication> runningApplications() const override;
    Subscription observeActivations(ActivationHandler handler) override;

    void setFrontmost(std::optional<RunningApplication> app);
    void setRunning(std::vector<RunningApplication> apps);
    // Brings `app` to the front (adding it to the running ones) and tells every observer.
    void activate(const RunningApplication& app);
    // An activation the window system could not attribute to an application.
    void activateUnknown();
    size_t observerCount() const;

  private:
    void notify(const std::optional<RunningApplication>& app);
    mutable std::mutex mutex_;
    std::optional<RunningApplication> frontmost_;
    std::vector<RunningApplication> running_;
    std::shared_ptr<std::map<int, ActivationHandler>> handlers_ =
        std::make_shared<std::map<int, ActivationHandler>>();
    int nextId_ = 0;
};

// Convenience for tests: an application with an id, a name and a process id.
RunningApplication makeApplication(const std::string& bundleId, const std::string& name, int pid);

}  // namespace vocle::testing
