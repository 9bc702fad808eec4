#include "foundation/DispatchQueue.h"

namespace vocle {

WorkerThreads::WorkerThreads(unsigned count) {
    for (unsigned i = 0; i < count; ++i) threads_.emplace_back([this] { loop(); });
}

WorkerThreads::~WorkerThreads() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    for (auto& t : threads_) t.join();
}

void WorkerThreads::push(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    cv_.notify_one();
}

void WorkerThreads::loop() {
    for (;;) {
        Task task;
        {
            std::unique_lock lock(mutex_);
            cv_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) return;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

void ManualDispatchQueue::async(Task task) {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
}

size_t ManualDispatchQueue::runAll() {
    size_t ran = 0;
    for (;;) {
        Task task;
        {
            std::lock_guard lock(mutex_);
            if (tasks_.empty()) return ran;
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
        ++ran;
    }
}

size_t ManualDispatchQueue::pending() const {
    std::lock_guard lock(mutex_);
    return tasks_.size();
}

}  // namespace vocle
