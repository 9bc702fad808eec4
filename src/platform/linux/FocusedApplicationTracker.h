#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/workspace.h"

namespace vocle {

// Which application has the focus, from an accessibility bus's focus and window-activation events, each
// of which names only the process it came from. Our own process is left out: its panels and windows
// never take the place of the application the user works in. Not thread-safe: the caller serialises.
class FocusedApplicationTracker {
  public:
    // Names a process's application; none when it cannot (the process has gone).
    using Resolver =
        std::function<std::optional<RunningApplication>(int processId, const std::string& accessibleName)>;
    // Told only when a different application comes to the front.
    using ActivationSink = std::function<void(const RunningApplication&)>;

    FocusedApplicationTracker(int ownProcess, Resolver resolver, ActivationSink onActivation);

    // An application on the bus: present at start, or joined since.
    void appeared(int processId, const std::string& accessibleName);
    // One of its windows became active, or one of its widgets took the focus.
    void activated(int processId, const std::string& accessibleName);
    // One of its windows is no longer active.
    void deactivated(int processId);
    // It left the bus, or its process ended.
    void left(int processId);

    std::optional<RunningApplication> frontmost() const;
    // One entry per process, in the order they appeared.
    std::vector<RunningApplication> running() const;
    std::vector<int> processes() const;

  private:
    struct Known {
        uint64_t order = 0;
        RunningApplication app;
    };
    const Known* know(int processId, const std::string& accessibleName);

    int ownProcess_;
    Resolver resolver_;
    ActivationSink onActivation_;
    std::map<int, Known> known_;
    uint64_t nextOrder_ = 0;
    std::optional<int> front_;
    std::optional<RunningApplication> reported_;
};

}  // namespace vocle
