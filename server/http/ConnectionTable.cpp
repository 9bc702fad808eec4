#include "http/ConnectionTable.h"

namespace vocle::server {

ConnectionTable::Admission ConnectionTable::admit(const std::string& client) const {
    Admission result;
    if (countFor(client) >= maxPerClient_) {
        const uint64_t victim = oldestWaiting(&client, 0);
        if (victim == 0) return {};
        result.evicted.push_back(victim);
    }
    if (entries_.size() - result.evicted.size() >= maxConnections_) {
        const uint64_t victim = oldestWaiting(nullptr, result.evicted.empty() ? 0 : result.evicted.front());
        if (victim == 0) return {};
        result.evicted.push_back(victim);
    }
    result.accepted = true;
    return result;
}

void ConnectionTable::add(uint64_t id, const std::string& client, double now, double deadline) {
    entries_[id] = Entry{client, Phase::Waiting, now, deadline};
    ++perClient_[client];
}

void ConnectionTable::remove(uint64_t id) {
    auto it = entries_.find(id);
    if (it == entries_.end()) return;
    auto count = perClient_.find(it->second.client);
    if (count != perClient_.end() && --count->second == 0) perClient_.erase(count);
    entries_.erase(it);
}

void ConnectionTable::setPhase(uint64_t id, Phase phase, double now, double deadline) {
    auto it = entries_.find(id);
    if (it == entries_.end()) return;
    if (phase == Phase::Waiting && it->second.phase != Phase::Waiting) it->second.waitingSince = now;
    it->second.phase = phase;
    it->second.deadline = deadline;
}

void ConnectionTable::setDeadline(uint64_t id, double deadline) {
    auto it = entries_.find(id);
    if (it != entries_.end()) it->second.deadline = deadline;
}

std::vector<uint64_t> ConnectionTable::expired(double now) const {
    std::vector<uint64_t> result;
    for (const auto& [id, entry] : entries_) {
        if (entry.deadline <= now) result.push_back(id);
    }
    return result;
}

size_t ConnectionTable::countFor(const std::string& client) const {
    auto it = perClient_.find(client);
    return it == perClient_.end() ? 0 : it->second;
}

uint64_t ConnectionTable::oldestWaiting(const std::string* client, uint64_t except) const {
    uint64_t best = 0;
    double bestSince = 0;
    for (const auto& [id, entry] : entries_) {
        if (id == except || entry.phase != Phase::Waiting || (client && entry.client != *client)) continue;
        if (best == 0 || entry.waitingSince < bestSince || (entry.waitingSince == bestSince && id < best)) {
            best = id;
            bestSince = entry.waitingSince;
        }
    }
    return best;
}

}  // namespace vocle::server
