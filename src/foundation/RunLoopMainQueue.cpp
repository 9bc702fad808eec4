#include "foundation/RunLoopMainQueue.h"

#include <algorithm>
#include <chrono>

namespace vocle {

TimerHandle RunLoopMainQueue::schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state) {
    TimerHandle handle;
    {
        std::lock_guard lock(mutex_);
        handle = heap_.push(due, interval, std::move(task), std::move(state));
    }
    wake_.notify_all();
    return handle;
}

void RunLoopMainQueue::post(Task task) { schedule(0, 0, std::move(task)); }

TimerHandle RunLoopMainQueue::postAfter(Seconds delay, Task task) {
    return schedule(monotonicSeconds() + std::max(0.0, delay.count()), 0, std::move(task));
}

TimerHandle RunLoopMainQueue::scheduleRepeating(Seconds interval, Task task) {
    const double every = interval.count() > 0 ? interval.count() : 1e-3;
    return schedule(monotonicSeconds() + every, every, std::move(task));
}

void RunLoopMainQueue::run() {
    runUntil([] { return false; }, Seconds(1e18));
}

bool RunLoopMainQueue::runUntil(const std::function<bool()>& done, Seconds timeout) {
    thread_ = std::this_thread::get_id();
    const double deadline = monotonicSeconds() + timeout.count();
    {
        std::lock_guard lock(mutex_);
        quit_ = false;
    }
    while (!done()) {
        TimerHeap::Entry e;
        {
            std::unique_lock lock(mutex_);
            for (;;) {
                if (quit_) return done();
                const double now = monotonicSeconds();
                if (now >= deadline) return done();
                const TimerHeap::Entry* next = heap_.peek();
                if (next && next->due <= now) break;
                const double until = next ? std::min(deadline, next->due) : deadline;
                wake_.wait_for(lock, std::chrono::duration<double>(std::min(until - now, 0.5)));
            }
            e = heap_.pop();
        }
        fireTimer(e, [this](double due, double interval, const Task& task, std::shared_ptr<TimerState> state) {
            schedule(due, interval, task, std::move(state));
        });
    }
    return true;
}

void RunLoopMainQueue::quit() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
}

}  // namespace vocle
