#pragma once

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/VirtualMainQueue.h"

namespace vocle::testing {

// A main queue on virtual time that also tells the test when another thread has posted to it, so the
// test can wait for real network I/O without sleeping for a fixed time.
class PumpedMainQueue final : public MainQueue {
  public:
    void post(Task task) override {
        virtualQueue.post(std::move(task));
        notify();
    }
    TimerHandle postAfter(Seconds delay, Task task) override {
        auto handle = virtualQueue.postAfter(delay, std::move(task));
        notify();
        return handle;
    }
    TimerHandle scheduleRepeating(Seconds interval, Task task) override {
        return virtualQueue.scheduleRepeating(interval, std::move(task));
    }
    bool isCurrent() const override { return virtualQueue.isCurrent(); }
    const Clock& clock() const override { return virtualQueue; }
    double now() const { return virtualQueue.now(); }

    // Runs main-queue work until `done` holds. Timers (the retry delays) fire on virtual time as soon as
    // nothing else is due; otherwise it waits for a worker thread to post. False after `realTimeout`.
    bool pumpUntil(const std::function<bool()>& done, bool fireTimers = true,
                   std::chrono::milliseconds realTimeout = std::chrono::seconds(30)) {
        const auto deadline = std::chrono::steady_clock::now() + realTimeout;
        for (;;) {
            uint64_t seen;
            {
                std::lock_guard lock(mutex_);
                seen = posts_;
            }
            virtualQueue.runUntilIdle();
            if (done()) return true;
            if (fireTimers && virtualQueue.pendingCount() > 0) {
                virtualQueue.runNext();
                continue;
            }
            std::unique_lock lock(mutex_);
            if (!cv_.wait_until(lock, deadline, [&] { return posts_ != seen; })) return done();
        }
    }

    VirtualMainQueue virtualQueue;

  private:
    void notify() {
        {
            std::lock_guard lock(mutex_);
            ++posts_;
        }
        cv_.notify_all();
    }
    std::mutex mutex_;
    std::condition_variable cv_;
    uint64_t posts_ = 0;
};

struct RecordedRequest {
    std::string method;
    std::string path;
    httplib::Headers headers;
    std::string body;
    double virtualTime = 0;
    int remotePort = 0;  // the client's end of the connection

    std::string header(const std::string& name) const {
        auto it = headers.find(name);
        return it == headers.end() ? std::string() : it->second;
    }
    bool hasHeader(const std::string& name) const { return headers.count(name) > 0; }
};

// cpp-httplib on 127.0.0.1 with a free port, serving from its own threads; every request is recorded
// with the virtual time at which it arrived.
class ScriptedServer {
  public:
    using Handler = std::function<void(const RecordedRequest&, httplib::Response&)>;

    explicit ScriptedServer(const Clock& clock) : clock_(clock) { server_.set_tcp_nodelay(true); }
    ~ScriptedServer() { stop(); }

    void on(const std::string& method, const std::string& path, Handler handler) {
        auto wrapped = [this, handler](const httplib::Request& req, httplib::Response& res) {
            RecordedRequest r{req.method, req.path, req.headers, req.body, clock_.now(), req.remote_port};
            {
                std::lock_guard lock(mutex_);
                requests_.push_back(r);
            }
            handler(r, res);
        };
        if (method == "GET") {
            server_.Get(path, wrapped);
        } else {
            server_.Post(path, wrapped);
        }
    }

    void start() {
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::yield();
    }
    void stop() {
        if (thread_.joinable()) {
            server_.stop();
            thread_.join();
        }
    }

    std::string origin() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::vector<RecordedRequest> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    size_t requestCount() const {
        std::lock_guard lock(mutex_);
        return requests_.size();
    }

  private:
    const Clock& clock_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<RecordedRequest> requests_;
};

inline void reply(httplib::Response& res, int status, const std::string& body,
                  const std::string& contentType = "application/json") {
    res.status = status;
    res.set_content(body, contentType.c_str());
}

}  // namespace vocle::testing
