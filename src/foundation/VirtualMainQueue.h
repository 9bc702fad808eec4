#pragma once

#include <mutex>

#include "foundation/MainQueue.h"
#include "foundation/TimerHeap.h"

namespace vocle {

// Deterministic main queue for tests: time moves only through advance(). Tasks due at the same time run
// in the order they were posted; work posted while running is honoured in the same call.
class VirtualMainQueue final : public MainQueue, public Clock {
public:
    explicit VirtualMainQueue(double startTime = 1'700'000'000.0) : now_(startTime) {}

    void post(Task task) override;
    TimerHandle postAfter(double seconds, Task task) override;
    TimerHandle scheduleRepeating(double interval, Task task) override;
    const Clock& clock() const override { return *this; }
    double now() const override;

    // Runs everything due at the current time, including tasks that those tasks post for now.
    void runUntilIdle();
    // Moves time forward, firing each timer at its own due time, in order.
    void advance(double seconds);
    // Advances to the next due timer (if any) and runs it; returns false when nothing is scheduled.
    bool runNext();
    // Number of tasks and timers still waiting to fire.
    size_t pendingCount() const;

private:
    TimerHandle schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});
    // Pops the earliest live entry due at or before `limit`, moving the clock to its due time.
    bool popDue(double limit, TimerHeap::Entry& out);
    void fire(TimerHeap::Entry& e);

    mutable std::mutex mutex_;
    double now_;
    TimerHeap heap_;
};

}  // namespace vocle
