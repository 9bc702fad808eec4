#pragma once

#include <QObject>
#include <QTimer>

#include <atomic>
#include <mutex>

#include "foundation/MainQueue.h"
#include "foundation/TimerHeap.h"

namespace vocle {

// The main queue on Qt's event loop: the thread that creates it (the GUI thread) runs every task.
// One precise QTimer is armed for the earliest due entry; posts from other threads wake it through a
// queued call. Ordering is the TimerHeap's: due time, then post order.
class QtMainQueue final : public QObject, public MainQueue {
    Q_OBJECT
public:
    explicit QtMainQueue(const Clock& clock, QObject* parent = nullptr);
    ~QtMainQueue() override;

    void post(Task task) override;
    TimerHandle postAfter(Seconds delay, Task task) override;
    TimerHandle scheduleRepeating(Seconds interval, Task task) override;
    const Clock& clock() const override { return clock_; }
    // The thread the queue object lives in: the one whose event loop drains it.
    bool isCurrent() const override;

    size_t pendingCount() const;

private:
    TimerHandle schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state = {});
    void requestWake();
    void drain();
    void rearm();
    double monotonicSeconds() const { return clock_.monotonicNow().time_since_epoch().count(); }

    const Clock& clock_;
    mutable std::mutex mutex_;
    TimerHeap heap_;
    QTimer timer_;
    std::atomic<bool> wakePending_{false};
};

}  // namespace vocle
