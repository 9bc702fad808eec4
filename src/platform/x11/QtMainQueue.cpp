#include "platform/x11/QtMainQueue.h"

#include <QThread>

#include <algorithm>
#include <cmath>

namespace vocle {

namespace {
// A drain that keeps finding due work yields to the event loop after this long, so input and painting
// are never starved by a task that reposts itself.
constexpr double kDrainSliceSeconds = 0.02;
}  // namespace

QtMainQueue::QtMainQueue(const Clock& clock, QObject* parent) : QObject(parent), clock_(clock) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &QtMainQueue::drain);
}

QtMainQueue::~QtMainQueue() = default;

TimerHandle QtMainQueue::schedule(double due, double interval, Task task, std::shared_ptr<TimerState> state) {
    TimerHandle handle;
    {
        std::lock_guard lock(mutex_);
        handle = heap_.push(due, interval, std::move(task), std::move(state));
    }
    requestWake();
    return handle;
}

void QtMainQueue::post(Task task) {
    schedule(monotonicSeconds(), 0, std::move(task));
}

TimerHandle QtMainQueue::postAfter(Seconds delay, Task task) {
    return schedule(monotonicSeconds() + std::max(0.0, delay.count()), 0, std::move(task));
}

TimerHandle QtMainQueue::scheduleRepeating(Seconds interval, Task task) {
    const double every = interval.count() > 0 ? interval.count() : 1e-3;
    return schedule(monotonicSeconds() + every, every, std::move(task));
}

bool QtMainQueue::isCurrent() const {
    return QThread::currentThread() == thread();
}

size_t QtMainQueue::pendingCount() const {
    std::lock_guard lock(mutex_);
    return heap_.liveCount();
}

void QtMainQueue::requestWake() {
    // One queued wake at a time; the drain re-reads the heap, so further requests add nothing.
    if (wakePending_.exchange(true)) return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            wakePending_ = false;
            rearm();
        },
        Qt::QueuedConnection);
}

void QtMainQueue::rearm() {
    double due;
    {
        std::lock_guard lock(mutex_);
        const TimerHeap::Entry* next = heap_.peek();
        if (!next) {
            timer_.stop();
            return;
        }
        due = next->due;
    }
    const double wait = std::max(0.0, due - monotonicSeconds());
    // Rounded up: waking a millisecond early would only find nothing due and arm again.
    const int ms = static_cast<int>(std::min(std::ceil(wait * 1000.0), 24.0 * 3600 * 1000));
    timer_.start(ms);
}

void QtMainQueue::drain() {
    const double sliceEnd = monotonicSeconds() + kDrainSliceSeconds;
    for (;;) {
        TimerHeap::Entry e;
        {
            std::lock_guard lock(mutex_);
            const TimerHeap::Entry* next = heap_.peek();
            if (!next || next->due > monotonicSeconds()) break;
            e = heap_.pop();
        }
        fireTimer(e, [this](double due, double interval, const Task& task, std::shared_ptr<TimerState> state) {
            std::lock_guard lock(mutex_);
            heap_.push(due, interval, task, std::move(state));
        });
        if (monotonicSeconds() >= sliceEnd) break;
    }
    rearm();
}

}  // namespace vocle
