#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace vocle::server {

// Book-keeping of the open connections for the event loop: who may connect, who gives way, whose time
// is up. Times are seconds on any monotonic scale, passed in, so that the rules run without sockets.
class ConnectionTable {
  public:
    enum class Phase {
        Waiting,    // idle between requests, or the head is still arriving
        Receiving,  // the head is in, the body is arriving
        Busy,       // a worker has the request, or the answer is being written
    };

    struct Admission {
        bool accepted = false;
        std::vector<uint64_t> evicted;  // connections to close to make room
    };

    ConnectionTable(size_t maxConnections, size_t maxPerClient)
        : maxConnections_(maxConnections), maxPerClient_(maxPerClient) {}

    // Room for a new connection from `client`. At a cap, the connection that has waited longest
    // without sending a complete request gives way (so a client flooding idle sockets only pushes out
    // its own); when there is none, the newcomer is refused. Call add() when accepted.
    Admission admit(const std::string& client) const;
    void add(uint64_t id, const std::string& client, double now, double deadline);
    void remove(uint64_t id);
    // Entering Waiting restarts the waiting age. A deadline of infinity never expires (a worker has it).
    void setPhase(uint64_t id, Phase phase, double now, double deadline);
    void setDeadline(uint64_t id, double deadline);

    std::vector<uint64_t> expired(double now) const;
    size_t size() const { return entries_.size(); }
    size_t countFor(const std::string& client) const;

  private:
    struct Entry {
        std::string client;
        Phase phase = Phase::Waiting;
        double waitingSince = 0;
        double deadline = 0;
    };
    // Longest-waiting connection in Waiting, of `client` or of anyone when null; 0 when none.
    uint64_t oldestWaiting(const std::string* client, uint64_t except) const;

    size_t maxConnections_;
    size_t maxPerClient_;
    std::unordered_map<uint64_t, Entry> entries_;
    std::unordered_map<std::string, size_t> perClient_;
};

}  // namespace vocle::server
