#include "foundation/VirtualMainQueue.h"

#include <algorithm>

namespace vocle {

TimerHandle VirtualMainQueue::schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state) {
    std::lock_guard lock(mutex_);
    return heap_.push(due, interval, std::move(task), std::move(state));
}

void VirtualMainQueue::post(Task task) {
    schedule(monotonicSeconds(), 0, std::move(task));
}

TimerHandle VirtualMainQueue::postAfter(Seconds delay, Task task) {
    return schedule(monotonicSeconds() + std::max(0.0, delay.count()), 0, std::move(task));
}

TimerHandle VirtualMainQueue::scheduleRepeating(Seconds interval, Task task) {
    const double every = interval.count() > 0 ? interval.count() : 1e-3;
    return schedule(monotonicSeconds() + every, every, std::move(task));
}

double VirtualMainQueue::now() const {
    std::lock_guard lock(mutex_);
    return now_ + wallOffset_;
}

double VirtualMainQueue::monotonicSeconds() const {
    std::lock_guard lock(mutex_);
    return now_;
}

MonotonicTime VirtualMainQueue::monotonicNow() const {
    return MonotonicTime(Seconds(monotonicSeconds()));
}

void VirtualMainQueue::shiftWallClock(Seconds delta) {
    std::lock_guard lock(mutex_);
    wallOffset_ += delta.count();
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
    claimThread();
    TimerHeap::Entry e;
    while (popDue(monotonicSeconds(), e)) fire(e);
}

void VirtualMainQueue::advance(Seconds duration) {
    claimThread();
    const double target = monotonicSeconds() + std::max(0.0, duration.count());
    TimerHeap::Entry e;
    while (popDue(target, e)) fire(e);
    std::lock_guard lock(mutex_);
    now_ = std::max(now_, target);
}

bool VirtualMainQueue::runNext() {
    claimThread();
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
