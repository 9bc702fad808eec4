#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/workspace.h"

namespace vocle::wayland {

// The compositor's toplevel windows as foreign-toplevel events describe them, and which application is
// in front. Events of one window are pending until its "done" and apply together. Not thread-safe:
// the caller serialises.
class ToplevelTracker {
  public:
    // Names an app id's application (a desktop-file id and name).
    using Resolver = std::function<RunningApplication(const std::string& appId)>;
    // Told only when a different application comes to the front.
    using ActivationSink = std::function<void(const RunningApplication&)>;

    ToplevelTracker(Resolver resolver, ActivationSink onActivation);

    void added(uint64_t handle);
    void appId(uint64_t handle, const std::string& appId);
    void activated(uint64_t handle, bool activated);
    void done(uint64_t handle);
    void closed(uint64_t handle);

    std::optional<std::string> focusedAppId() const;
    std::optional<RunningApplication> frontmost() const { return front_; }
    // One entry per application, in the order their first window appeared.
    std::vector<RunningApplication> running() const;

  private:
    struct Window {
        uint64_t order = 0;
        std::string appId;
        bool activated = false;
        std::optional<std::string> pendingAppId;
        std::optional<bool> pendingActivated;
    };

    Resolver resolver_;
    ActivationSink onActivation_;
    std::map<uint64_t, Window> windows_;
    uint64_t nextOrder_ = 0;
    std::optional<uint64_t> focused_;
    std::optional<RunningApplication> front_;
};

}  // namespace vocle::wayland
