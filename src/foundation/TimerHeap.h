#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/MainQueue.h"

namespace vocle {

// The ordering both main queues share: earliest due time first, then post order. Not thread-safe;
// the owning queue locks around it.
class TimerHeap {
public:
    struct Entry {
        double due = 0;
        uint64_t seq = 0;
        double interval = 0;  // 0 for one-shot
        Task task;
        std::shared_ptr<TimerState> state;
    };

    TimerHandle push(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});
    // Removes cancelled entries at the front; returns the earliest live one or null.
    const Entry* peek();
    Entry pop();
    size_t liveCount() const;

private:
    std::vector<Entry> heap_;
    uint64_t nextSeq_ = 0;
};

// Marks a fired one-shot finished, or re-arms a repeating timer (before it runs, so the task may
// cancel its own handle); then runs the task. Call without holding the queue's lock.
template <class Rearm>
void fireTimer(TimerHeap::Entry& e, Rearm rearm) {
    if (e.interval > 0) {
        rearm(e.due + e.interval, e.interval, e.task, e.state);
    } else {
        e.state->finished = true;
    }
    e.task();
}

}  // namespace vocle
