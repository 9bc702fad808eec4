#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "foundation/Clock.h"

namespace vocle {

using Task = std::function<void()>;

// Shared between a queue and the handle the caller keeps; cancelling only flips a flag so it is safe
// from any thread and after the queue has already run or dropped the task.
struct TimerState {
    std::atomic<bool> cancelled{false};
    std::atomic<bool> finished{false};
};

class TimerHandle {
public:
    TimerHandle() = default;
    explicit TimerHandle(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}

    void cancel() const {
        if (state_) state_->cancelled = true;
    }
    // True while the timer may still fire.
    bool isActive() const { return state_ && !state_->cancelled && !state_->finished; }
    bool isNull() const { return !state_; }

private:
    std::shared_ptr<TimerState> state_;
};

// The application's main thread: all state, timers and debounces live here.
class MainQueue {
public:
    virtual ~MainQueue() = default;

    // Runs the task on the main queue after everything already queued. Thread-safe.
    virtual void post(Task task) = 0;
    // One-shot delayed call; the handle cancels it. Thread-safe.
    virtual TimerHandle postAfter(Seconds delay, Task task) = 0;
    // Fires every `interval` until cancelled; the first firing is one interval from now. Thread-safe.
    virtual TimerHandle scheduleRepeating(Seconds interval, Task task) = 0;
    // The clock the queue's delays are measured on (its monotonic reading; wall time never moves a timer).
    virtual const Clock& clock() const = 0;
    // True on the thread that runs the queue's tasks. Thread-safe.
    virtual bool isCurrent() const = 0;
};

}  // namespace vocle
