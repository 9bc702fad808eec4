#pragma once

#include <utility>

#include "foundation/MainQueue.h"

namespace vocle {

// A timer its owner holds as a member: starting it again replaces the pending firing and destroying it
// cancels it, so no handle outlives the object whose work it would run. One-shot or repeating, by the
// start call. Not thread-safe; use it where its owner lives (the main queue).
class Timer {
public:
    Timer() = default;
    ~Timer() { cancel(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    Timer(Timer&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
    Timer& operator=(Timer&& other) noexcept {
        if (this != &other) {
            cancel();
            handle_ = std::exchange(other.handle_, {});
        }
        return *this;
    }

    // Fires once after `delay`.
    void start(MainQueue& queue, Seconds delay, Task task) {
        cancel();
        handle_ = queue.postAfter(delay, std::move(task));
    }
    // Fires every `interval` until cancelled, restarted or destroyed; the task may cancel its own timer.
    void startRepeating(MainQueue& queue, Seconds interval, Task task) {
        cancel();
        handle_ = queue.scheduleRepeating(interval, std::move(task));
    }
    void cancel() {
        handle_.cancel();
        handle_ = {};
    }
    // True while a start is pending (a one-shot that fired is no longer active).
    bool isActive() const { return handle_.isActive(); }

private:
    TimerHandle handle_;
};

}  // namespace vocle
