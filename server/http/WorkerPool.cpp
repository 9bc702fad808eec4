#include "http/WorkerPool.h"

namespace vocle::server {

WorkerPool::WorkerPool(int threads, Work work, std::function<void()> onFinished)
    : threads_(threads), work_(std::move(work)), onFinished_(std::move(onFinished)) {}

WorkerPool::~WorkerPool() {
    stop();
}

void WorkerPool::start() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = false;
    }
    for (int i = 0; i < threads_; ++i) workers_.emplace_back([this] { main(); });
}

void WorkerPool::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        queue_.clear();
    }
    ready_.notify_all();
    for (auto& t : workers_) t.join();
    workers_.clear();
    std::lock_guard lock(mutex_);
    finished_.clear();
}

void WorkerPool::submit(PendingRequest request) {
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(std::move(request));
    }
    ready_.notify_one();
}

std::vector<FinishedRequest> WorkerPool::takeFinished() {
    std::vector<FinishedRequest> out;
    std::lock_guard lock(mutex_);
    out.swap(finished_);
    return out;
}

void WorkerPool::main() {
    for (;;) {
        PendingRequest request;
        {
            std::unique_lock lock(mutex_);
            ready_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            if (stopping_) return;
            request = std::move(queue_.front());
            queue_.pop_front();
        }
        FinishedRequest answer = work_(request);
        {
            std::lock_guard lock(mutex_);
            finished_.push_back(std::move(answer));
        }
        onFinished_();
    }
}

}  // namespace vocle::server
