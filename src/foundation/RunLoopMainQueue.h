#pragma once

#include <condition_variable>
#include <mutex>

#include "foundation/MainQueue.h"
#include "foundation/TimerHeap.h"

namespace vocle {

// A plain run loop for processes without a GUI event loop (vocle-cli, tools). The thread that calls
// run() becomes the main thread until quit().
class RunLoopMainQueue final : public MainQueue {
public:
    explicit RunLoopMainQueue(const Clock& clock) : clock_(clock) {}

    void post(Task task) override;
    TimerHandle postAfter(double seconds, Task task) override;
    TimerHandle scheduleRepeating(double interval, Task task) override;
    const Clock& clock() const override { return clock_; }

    void run();
    // Runs until `done` returns true (checked after every task) or the deadline passes; returns `done()`.
    bool runUntil(const std::function<bool()>& done, double timeoutSeconds);
    void quit();

private:
    TimerHandle schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});

    const Clock& clock_;
    std::mutex mutex_;
    std::condition_variable wake_;
    TimerHeap heap_;
    bool quit_ = false;
};

}  // namespace vocle
