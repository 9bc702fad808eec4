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

// One worker thread, tasks in order. The destructor finishes queued work, then joins.
class SerialThreadQueue final : public DispatchQueue {
public:
    explicit SerialThreadQueue(std::string name);
    ~SerialThreadQueue() override;
    void async(Task task) override;
    const std::string& name() const { return name_; }

private:
    void loop();
    std::string name_;
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};

// A small pool for independent work (the "global queues").
class BackgroundQueue final : public DispatchQueue {
public:
    explicit BackgroundQueue(unsigned threads = 2);
    ~BackgroundQueue() override;
    void async(Task task) override;

private:
    void loop();
    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<Task> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
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
