#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "foundation/MainQueue.h"
#include "foundation/TimerHeap.h"

namespace vocle {

// Deterministic main queue for tests: time moves only through advance(). Tasks due at the same time run
// in the order they were posted; work posted while running is honoured in the same call.
// It keeps both clocks: advance() moves the monotonic and the wall reading together, shiftWallClock()
// moves only the wall reading, as a user or NTP setting the system time would.
class VirtualMainQueue final : public MainQueue, public Clock {
public:
    explicit VirtualMainQueue(double startTime = 1'700'000'000.0) : now_(startTime) {}

    void post(Task task) override;
    TimerHandle postAfter(Seconds delay, Task task) override;
    TimerHandle scheduleRepeating(Seconds interval, Task task) override;
    const Clock& clock() const override { return *this; }
    // The thread that created the queue, or the one that last ran it.
    bool isCurrent() const override { return std::this_thread::get_id() == thread_.load(); }
    double now() const override;
    MonotonicTime monotonicNow() const override;

    // Runs everything due at the current time, including tasks that those tasks post for now.
    void runUntilIdle();
    // Moves time forward, firing each timer at its own due time, in order.
    void advance(Seconds duration);
    void advance(double seconds) { advance(Seconds(seconds)); }
    // Advances to the next due timer (if any) and runs it; returns false when nothing is scheduled.
    bool runNext();
    // Number of tasks and timers still waiting to fire.
    size_t pendingCount() const;
    // Sets the wall clock forward or back; no timer moves.
    void shiftWallClock(Seconds delta);

private:
    TimerHandle schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});
    // Pops the earliest live entry due at or before `limit`, moving the clock to its due time.
    bool popDue(double limit, TimerHeap::Entry& out);
    void fire(TimerHeap::Entry& e);
    double monotonicSeconds() const;
    void claimThread() { thread_ = std::this_thread::get_id(); }

    mutable std::mutex mutex_;
    double now_;  // monotonic; the wall reading adds wallOffset_
    double wallOffset_ = 0;
    TimerHeap heap_;
    std::atomic<std::thread::id> thread_{std::this_thread::get_id()};
};

}  // namespace vocle
