#pragma once

#include <functional>
#include <string>

namespace vocle {

// The running application's entry points on the session bus, so that any desktop (Wayland included) can
// bind a key to `vocle-cli toggle`, and a second launch can hand over to the first.
inline constexpr const char* kControlBusName = "org.vocle.Vocle";
inline constexpr const char* kControlObjectPath = "/org/vocle/Vocle";
inline constexpr const char* kControlInterface = "org.vocle.Vocle";

// Method names on kControlInterface. "State" answers one of the kControlState* strings.
inline constexpr const char* kControlToggleMethod = "Toggle";
inline constexpr const char* kControlCancelMethod = "Cancel";
inline constexpr const char* kControlActivateMethod = "Activate";
inline constexpr const char* kControlStateMethod = "State";

inline constexpr const char* kControlStateIdle = "idle";
inline constexpr const char* kControlStateRecording = "recording";
inline constexpr const char* kControlStateProcessing = "processing";

// What the published object does. Every handler runs on the main queue.
struct ControlHandlers {
    std::function<void()> toggle;
    std::function<void()> cancel;
    // Brings the main window forward (a second launch asks for this, then exits).
    std::function<void()> activate;
    // "idle", "recording" or "processing".
    std::function<std::string()> state;
};

enum class ControlMethod { toggle, cancel, activate, state };

inline const char* controlMethodName(ControlMethod method) {
    switch (method) {
        case ControlMethod::toggle:
            return kControlToggleMethod;
        case ControlMethod::cancel:
            return kControlCancelMethod;
        case ControlMethod::activate:
            return kControlActivateMethod;
        case ControlMethod::state:
            return kControlStateMethod;
    }
    return kControlStateMethod;
}

struct ControlCallResult {
    enum class Outcome {
        ok,
        noInstance,    // nobody owns kControlBusName
        noBus,         // no session bus to talk to
        failed,        // the call reached the instance but did not succeed (error, time-out)
    };
    Outcome outcome = Outcome::failed;
    // With ControlMethod::state: the answer. Otherwise empty.
    std::string value;
    // With a failure: what went wrong, for the log or the user.
    std::string message;

    bool ok() const { return outcome == Outcome::ok; }
};

class ControlBus {
  public:
    enum class PublishResult {
        published,
        alreadyRunning,  // another instance owns the name: hand over to it with callRunningInstance
        unavailable,     // no session bus; the application runs without the entry point
    };

    virtual ~ControlBus() = default;

    // Claims kControlBusName and exports the object at kControlObjectPath. Call once.
    virtual PublishResult publish(ControlHandlers handlers) = 0;

    // Calls a method of the instance that owns kControlBusName (blocking, with a short time-out).
    virtual ControlCallResult callRunningInstance(ControlMethod method) = 0;
};

}  // namespace vocle
