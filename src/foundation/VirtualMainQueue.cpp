#include "foundation/VirtualMainQueue.h"

#include <algorithm>

namespace vocle {

TimerHandle VirtualMainQueue::schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state) {
    std::lock_guard lock(mutex_);
    return heap_.push(due, interval, std::move(task), std::move(state));
}

void VirtualMainQueue::post(Task task) { schedule(now(), 0, std::move(task)); }

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

bool VirtualMainQueue::popDue(double limit, TimerHeap::Entry& out) {
    std::lock_guard lock(mutex_);
    const TimerHeap::Entry* next = heap_.peek();
    if (!next || next->due > limit) return false;
    out = heap_.pop();
    now_ = std::max(now_, out.due);
    return true;
}

void VirtualMainQueue::fire(TimerHeap::Entry& e) {
    fireTimer(e, [this](double due, double interval, const Task& task, std::shared_ptr<TimerState> state) {
        schedule(due, interval, task, std::move(state));
    });
}

void VirtualMainQueue::runUntilIdle() {
    TimerHeap::Entry e;
    while (popDue(now(), e)) fire(e);
}

void VirtualMainQueue::advance(double seconds) {
    const double target = now() + std::max(0.0, seconds);
    TimerHeap::Entry e;
    while (popDue(target, e)) fire(e);
    std::lock_guard lock(mutex_);
    now_ = std::max(now_, target);
}

bool VirtualMainQueue::runNext() {
    TimerHeap::Entry e;
    if (!popDue(1e300, e)) return false;
    fire(e);
    return true;
}

size_t VirtualMainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return heap_.liveCount();
}

}  // namespace vocle
