#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "platform/portal/PortalBus.h"

struct DBusConnection;
struct DBusMessage;

namespace vocle::portal {

// The session bus through libdbus, on a private connection that a thread of its own drives: every
// send, read and dispatch happens there, so the toolkit's own bus connection and its event loop never
// see our traffic. Replies and signals are handed to the main queue in the order they arrived. When the
// bus is gone every call answers with an error, on the main queue as usual.
class LibdbusPortalBus final : public PortalBus {
  public:
    // `address`: a bus address to use instead of the session bus (tests). Connecting blocks for the
    // bus's hello only.
    explicit LibdbusPortalBus(MainQueue& main, const std::string& address = {});
    ~LibdbusPortalBus() override;
    LibdbusPortalBus(const LibdbusPortalBus&) = delete;
    LibdbusPortalBus& operator=(const LibdbusPortalBus&) = delete;

    static constexpr std::chrono::seconds kCallTimeout{30};

    bool connected() const { return connected_; }
    std::string uniqueName() const override;
    void call(BusCall call, std::function<void(BusReply)> reply) override;
    Subscription watchSignal(const std::string& path, const std::string& interface, const std::string& member,
                             SignalHandler handler) override;

    // Service name and destination of calls; the portal's unless a test names its own.
    void setService(std::string service) { service_ = std::move(service); }

  private:
    struct Pending {
        std::function<void(BusReply)> reply;
        std::chrono::steady_clock::time_point deadline;
    };
    struct Watcher {
        std::string path, interface, member;
        std::shared_ptr<SignalHandler> handler;
    };
    using Job = std::function<void(DBusConnection*)>;

    void run();
    void post(Job job);
    void drainJobs();
    void dispatchIncoming();
    void expireCalls();
    void disconnect(const std::string& why);
    void handleMessage(DBusMessage* message);
    void answer(std::function<void(BusReply)> reply, BusReply value);
    std::string matchRule(const Watcher& w) const;

    MainQueue& main_;
    std::string service_ = kPortalService;
    DBusConnection* connection_ = nullptr;
    std::atomic<bool> connected_{false};
    std::atomic<bool> stopping_{false};
    int wakeFd_ = -1;

    mutable std::mutex mutex_;  // guards everything below, shared with the bus thread
    std::string unique_;
    std::deque<Job> jobs_;
    std::map<uint32_t, Pending> pending_;
    std::map<uint64_t, Watcher> watchers_;
    uint64_t nextWatcher_ = 0;

    OwnerToken owner_;
    std::thread thread_;
};

}  // namespace vocle::portal
