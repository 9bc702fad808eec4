#include "foundation/RunLoopMainQueue.h"

#include <algorithm>
#include <chrono>

namespace vocle {

namespace {
struct Later {
    template <class E>
    bool operator()(const E& a, const E& b) const {
        if (a.due != b.due) return a.due > b.due;
        return a.seq > b.seq;
    }
};
}  // namespace

TimerHandle RunLoopMainQueue::schedule(double due, double interval, Task task,
                                       std::shared_ptr<TimerState> state) {
    if (!state) state = std::make_shared<TimerState>();
    {
        std::lock_guard lock(mutex_);
        heap_.push_back(Entry{due, nextSeq_++, interval, std::move(task), state});
        std::push_heap(heap_.begin(), heap_.end(), Later{});
    }
    wake_.notify_all();
    return TimerHandle(state);
}

void RunLoopMainQueue::post(Task task) { schedule(0, 0, std::move(task)); }

TimerHandle RunLoopMainQueue::postAfter(double seconds, Task task) {
    return schedule(clock_.now() + std::max(0.0, seconds), 0, std::move(task));
}

TimerHandle RunLoopMainQueue::scheduleRepeating(double interval, Task task) {
    if (interval <= 0) interval = 1e-3;
    return schedule(clock_.now() + interval, interval, std::move(task));
}

void RunLoopMainQueue::run() {
    runUntil([] { return false; }, 1e18);
}

bool RunLoopMainQueue::runUntil(const std::function<bool()>& done, double timeoutSeconds) {
    const double deadline = clock_.now() + timeoutSeconds;
    {
        std::lock_guard lock(mutex_);
        quit_ = false;
    }
    while (!done()) {
        Entry e;
        {
            std::unique_lock lock(mutex_);
            for (;;) {
                if (quit_) return done();
                const double now = clock_.now();
                if (now >= deadline) return done();
                if (!heap_.empty() && heap_.front().due <= now) break;
                double until = deadline;
                if (!heap_.empty()) until = std::min(until, heap_.front().due);
                wake_.wait_for(lock, std::chrono::duration<double>(std::min(until - now, 0.5)));
            }
            std::pop_heap(heap_.begin(), heap_.end(), Later{});
            e = std::move(heap_.back());
            heap_.pop_back();
        }
        if (e.state->cancelled) continue;
        if (e.interval > 0) {
            schedule(e.due + e.interval, e.interval, e.task, e.state);
        } else {
            e.state->finished = true;
        }
        e.task();
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
