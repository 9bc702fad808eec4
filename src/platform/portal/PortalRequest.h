#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "foundation/OwnerToken.h"
#include "platform/portal/PortalBus.h"

namespace vocle::portal {

// The Response codes of org.freedesktop.portal.Request, plus `failed` for a call the portal refused
// outright (no such interface, bad arguments, bus gone).
enum class PortalOutcome { success = 0, cancelled = 1, ended = 2, failed = 3 };
const char* outcomeName(PortalOutcome outcome);

struct PortalResponse {
    PortalOutcome outcome = PortalOutcome::failed;
    BusDict results;
    std::string error;  // with `failed`: the bus error, for the log
};

// "/org/freedesktop/portal/desktop/request/1_42/vocle3" for sender ":1.42" and token "vocle3".
std::string requestPath(const std::string& uniqueName, const std::string& token);
std::string sessionPath(const std::string& uniqueName, const std::string& token);

// Portal methods that answer later through a Request object. Each request gets a fresh handle token;
// the Response signal is watched on the predicted path before the call goes out, so a fast answer is
// never missed, and an older portal that returns another path is followed there. `done` runs once.
class PortalRequests {
  public:
    explicit PortalRequests(PortalBus& bus, std::string tokenPrefix = "vocle");
    ~PortalRequests();

    using Done = std::function<void(const PortalResponse&)>;
    // Adds "handle_token" to the a{sv} at `call.args[optionsIndex]` and sends the call. Returns the token.
    std::string send(BusCall call, size_t optionsIndex, Done done);
    // A token for another object the caller names, e.g. a session's "session_handle_token".
    std::string nextToken();
    // Closes an open request (the desktop takes its dialog down); its `done` is not called.
    void cancel(const std::string& token);
    size_t openCount() const { return open_.size(); }

    PortalBus& bus() { return bus_; }

  private:
    struct Open {
        std::string path;
        Done done;
        Subscription response;
    };
    void watch(const std::string& token, const std::string& path);
    void finish(const std::string& token, PortalResponse response);

    PortalBus& bus_;
    std::string prefix_;
    uint64_t counter_ = 0;
    std::map<std::string, Open> open_;
    OwnerToken owner_;
};

}  // namespace vocle::portal
