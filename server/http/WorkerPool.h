#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "http/HttpExchange.h"

namespace vocle::server {

// Threads that turn complete requests into answers. `work` runs on a worker; `onFinished` is called
// there after each answer is queued, for the event loop to collect with takeFinished().
class WorkerPool {
  public:
    using Work = std::function<FinishedRequest(const PendingRequest&)>;
    WorkerPool(int threads, Work work, std::function<void()> onFinished);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    void start();
    // Drops requests not yet started, waits for those running, forgets their answers.
    void stop();
    void submit(PendingRequest request);
    std::vector<FinishedRequest> takeFinished();

  private:
    void main();

    int threads_;
    Work work_;
    std::function<void()> onFinished_;
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<PendingRequest> queue_;
    std::vector<FinishedRequest> finished_;
    bool stopping_ = false;
    std::vector<std::thread> workers_;
};

}  // namespace vocle::server
