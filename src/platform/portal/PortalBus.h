#pragma once

#include <functional>
#include <string>
#include <vector>

#include "foundation/Signal.h"
#include "platform/portal/BusValue.h"

namespace vocle::portal {

inline constexpr const char* kPortalService = "org.freedesktop.portal.Desktop";
inline constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
inline constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
inline constexpr const char* kSessionInterface = "org.freedesktop.portal.Session";

// One method call to the portal service (kPortalService); `path` is kPortalPath for the portal
// interfaces, or a request's or session's own object.
struct BusCall {
    std::string path = kPortalPath;
    std::string interface;
    std::string method;
    std::vector<BusValue> args;
};

struct BusReply {
    std::string errorName;  // empty on success, else e.g. "org.freedesktop.DBus.Error.UnknownMethod"
    std::string errorMessage;
    std::vector<BusValue> values;

    bool ok() const { return errorName.empty(); }
};

// Our connection to the session bus, as the portal clients see it. Replies and signals arrive on the
// main queue; a call on a lost connection answers with an error, never not at all.
class PortalBus {
  public:
    virtual ~PortalBus() = default;

    // This connection's unique name (":1.42"); request objects are named after it. Empty when not
    // connected.
    virtual std::string uniqueName() const = 0;

    virtual void call(BusCall call, std::function<void(BusReply)> reply) = 0;

    // Signals that the portal service emits on `path` with interface.member.
    using SignalHandler = std::function<void(const std::vector<BusValue>& args)>;
    [[nodiscard]] virtual Subscription watchSignal(const std::string& path, const std::string& interface,
                                                   const std::string& member, SignalHandler handler) = 0;
};

}  // namespace vocle::portal
