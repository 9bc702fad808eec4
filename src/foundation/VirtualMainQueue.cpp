#include "foundation/VirtualMainQueue.h"

#include <algorithm>

namespace vocle {

namespace {
// std heap functions keep the largest element first; invert so the earliest (then oldest) wins.
struct Later {
    template <class E>
    bool operator()(const E& a, const E& b) const {
        if (a.due != b.due) return a.due > b.due;
        return a.seq > b.seq;
    }
};
}  // namespace

TimerHandle VirtualMainQueue::schedule(double due, double interval, Task task,
                                       std::shared_ptr<TimerState> state) {
    if (!state) state = std::make_shared<TimerState>();
    std::lock_guard lock(mutex_);
    heap_.push_back(Entry{due, nextSeq_++, interval, std::move(task), state});
    std::push_heap(heap_.begin(), heap_.end(), Later{});
    return TimerHandle(state);
}

void VirtualMainQueue::post(Task task) {
    double due;
    {
        std::lock_guard lock(mutex_);
        due = now_;
    }
    schedule(due, 0, std::move(task));
}

TimerHandle VirtualMainQueue::postAfter(double seconds, Task task) {
    return schedule(now() + std::max(0.0, seconds), 0, std::move(task));
}

TimerHandle VirtualMainQueue::scheduleRepeating(double interval, Task task) {
    if (interval <= 0) interval = 1e-3;
    return schedule(now() + interval, interval, std::move(task));
}

double VirtualMainQueue::now() const {
    std::lock_guard lock(mutex_);
    return now_;
}

bool VirtualMainQueue::popDue(double limit, Entry& out) {
    std::lock_guard lock(mutex_);
    while (!heap_.empty()) {
        std::pop_heap(heap_.begin(), heap_.end(), Later{});
        Entry e = std::move(heap_.back());
        heap_.pop_back();
        if (e.state->cancelled) continue;
        if (e.due > limit) {
            heap_.push_back(std::move(e));
            std::push_heap(heap_.begin(), heap_.end(), Later{});
            return false;
        }
        if (e.due > now_) now_ = e.due;
        out = std::move(e);
        return true;
    }
    return false;
}

void VirtualMainQueue::fire(Entry& e) {
    if (e.interval > 0) {
        // Re-armed before running so the task may cancel its own handle.
        schedule(e.due + e.interval, e.interval, e.task, e.state);
    } else {
        e.state->finished = true;
    }
    e.task();
}

void VirtualMainQueue::runUntilIdle() {
    Entry e;
    while (popDue(now(), e)) {
        fire(e);
    }
}

void VirtualMainQueue::advance(double seconds) {
    const double target = now() + std::max(0.0, seconds);
    Entry e;
    while (popDue(target, e)) {
        fire(e);
    }
    std::lock_guard lock(mutex_);
    now_ = std::max(now_, target);
}

bool VirtualMainQueue::runNext() {
    Entry e;
    if (!popDue(1e300, e)) return false;
    fire(e);
    return true;
}

size_t VirtualMainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<size_t>(
        std::count_if(heap_.begin(), heap_.end(), [](const Entry& e) { return !e.state->cancelled; }));
}

}  // namespace vocle
