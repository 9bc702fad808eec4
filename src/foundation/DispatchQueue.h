#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/MainQueue.h"

namespace vocle {

// Where blocking work runs: a named serial queue or a global background queue.
class DispatchQueue {
public:
    virtual ~DispatchQueue() = default;
    virtual void async(Task task) = 0;
};

// Worker threads draining one task list; the destructor finishes queued work, then joins.
class WorkerThreads {
public:
    explicit WorkerThreads(unsigned count);
    ~WorkerThreads();
    void push(Task task);

private:
    void loop();
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

// One worker thread, tasks in order.
class SerialThreadQueue final : public DispatchQueue {
public:
    explicit SerialThreadQueue(std::string name) : name_(std::move(name)), worker_(1) {}
    void async(Task task) override { worker_.push(std::move(task)); }
    const std::string& name() const { return name_; }

private:
    std::string name_;
    WorkerThreads worker_;
};

// A small pool for independent work (the "global queues").
class BackgroundQueue final : public DispatchQueue {
public:
    explicit BackgroundQueue(unsigned threads = 2) : workers_(threads ? threads : 1) {}
    void async(Task task) override { workers_.push(std::move(task)); }

private:
    WorkerThreads workers_;
};

// Test double: nothing runs until the test says so.
class ManualDispatchQueue final : public DispatchQueue {
public:
    void async(Task task) override;
    // Runs queued tasks (and those they queue) until none is left; returns how many ran.
    size_t runAll();
    size_t pending() const;

private:
    mutable std::mutex mutex_;
    std::deque<Task> tasks_;
};

// Test double: runs the task at once on the caller's thread.
class InlineDispatchQueue final : public DispatchQueue {
public:
    void async(Task task) override { task(); }
};

}  // namespace vocle
