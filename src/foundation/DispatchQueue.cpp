#include "foundation/DispatchQueue.h"

namespace vocle {

SerialThreadQueue::SerialThreadQueue(std::string name) : name_(std::move(name)) {
    thread_ = std::thread([this] { loop(); });
}

SerialThreadQueue::~SerialThreadQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void SerialThreadQueue::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    cv_.notify_one();
}

void SerialThreadQueue::loop() {
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

BackgroundQueue::BackgroundQueue(unsigned threads) {
    if (threads == 0) threads = 1;
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this] { loop(); });
}

BackgroundQueue::~BackgroundQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    cv_.notify_all();
    for (auto& t : threads_) t.join();
}

void BackgroundQueue::async(Task task) {
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    cv_.notify_one();
}

void BackgroundQueue::loop() {
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
