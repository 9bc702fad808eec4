#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "foundation/MainQueue.h"
#include "platform/portal/PortalBus.h"

namespace vocle::testing {

// The portal service as a script. Every call is recorded; it is answered on the main queue by the
// handler set for "Interface.Method", else like a portal: a call carrying a handle_token gets its
// request path back, anything else an empty success. The test plays the desktop with respond() and
// emit().
class FakePortalBus final : public portal::PortalBus {
  public:
    explicit FakePortalBus(MainQueue& main, std::string uniqueName = ":1.42");

    std::string unique;
    std::vector<portal::BusCall> calls;
    std::map<std::string, std::function<portal::BusReply(const portal::BusCall&)>> answers;

    std::string uniqueName() const override { return unique; }
    void call(portal::BusCall call, std::function<void(portal::BusReply)> reply) override;
    Subscription watchSignal(const std::string& path, const std::string& interface, const std::string& member,
                             SignalHandler handler) override;

    // Emits a signal to whoever watches path + interface.member, synchronously.
    void emit(const std::string& path, const std::string& interface, const std::string& member,
              const std::vector<portal::BusValue>& args);
    // The Response of the request made by the latest call of "Interface.Method" (its handle_token).
    void respond(const std::string& method, uint32_t code, portal::BusDict results = {});
    // Calls of "Interface.Method", in order.
    std::vector<portal::BusCall> callsOf(const std::string& method) const;
    size_t watcherCount() const { return watchers_.size(); }

  private:
    struct Watcher {
        std::string path, interface, member;
        SignalHandler handler;
    };
    MainQueue& main_;
    uint64_t nextId_ = 0;
    std::map<uint64_t, Watcher> watchers_;
};

}  // namespace vocle::testing
