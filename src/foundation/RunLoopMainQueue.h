#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "foundation/MainQueue.h"
#include "foundation/TimerHeap.h"

namespace vocle {

// A plain run loop for processes without a GUI event loop (vocle-cli, tools). The thread that calls
// run() becomes the main thread until quit(); before the first run it is the thread that created the loop.
class RunLoopMainQueue final : public MainQueue {
public:
    explicit RunLoopMainQueue(const Clock& clock) : clock_(clock) {}

    void post(Task task) override;
    TimerHandle postAfter(Seconds delay, Task task) override;
    TimerHandle scheduleRepeating(Seconds interval, Task task) override;
    const Clock& clock() const override { return clock_; }
    bool isCurrent() const override { return std::this_thread::get_id() == thread_.load(); }

    void run();
    // Runs until `done` returns true (checked after every task) or the timeout passes; returns `done()`.
    bool runUntil(const std::function<bool()>& done, Seconds timeout);
    void quit();

private:
    TimerHandle schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});
    double monotonicSeconds() const { return clock_.monotonicNow().time_since_epoch().count(); }

    const Clock& clock_;
    std::mutex mutex_;
    std::condition_variable wake_;
    TimerHeap heap_;
    bool quit_ = false;
    std::atomic<std::thread::id> thread_{std::this_thread::get_id()};
};

}  // namespace vocle
