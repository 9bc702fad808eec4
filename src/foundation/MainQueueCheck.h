#pragma once

#include <cstdlib>
#include <functional>
#include <mutex>
#include <utility>

#include "foundation/Log.h"
#include "foundation/MainQueue.h"

namespace vocle {

// Called with the function name when code meant for the main queue runs on another thread. Without a
// handler the process logs the place and aborts; tests install one that records the call.
using MainQueueViolationHandler = std::function<void(const char* where)>;

namespace detail {
inline std::mutex& mainQueueViolationMutex() {
    static std::mutex mutex;
    return mutex;
}
inline MainQueueViolationHandler& mainQueueViolationHandler() {
    static MainQueueViolationHandler handler;
    return handler;
}
}  // namespace detail

// Returns the handler it replaces.
inline MainQueueViolationHandler setMainQueueViolationHandler(MainQueueViolationHandler handler) {
    std::lock_guard lock(detail::mainQueueViolationMutex());
    return std::exchange(detail::mainQueueViolationHandler(), std::move(handler));
}

inline void reportMainQueueViolation(const char* where) {
    MainQueueViolationHandler handler;
    {
        std::lock_guard lock(detail::mainQueueViolationMutex());
        handler = detail::mainQueueViolationHandler();
    }
    if (handler) return handler(where);
    log("Main queue check failed: ", where, " ran off the main queue");
    std::abort();
}

inline void checkOnMainQueue(const MainQueue& queue, const char* where) {
    if (!queue.isCurrent()) reportMainQueueViolation(where);
}

class ScopedMainQueueViolationHandler {
public:
    explicit ScopedMainQueueViolationHandler(MainQueueViolationHandler handler)
        : previous_(setMainQueueViolationHandler(std::move(handler))) {}
    ~ScopedMainQueueViolationHandler() { setMainQueueViolationHandler(std::move(previous_)); }
    ScopedMainQueueViolationHandler(const ScopedMainQueueViolationHandler&) = delete;
    ScopedMainQueueViolationHandler& operator=(const ScopedMainQueueViolationHandler&) = delete;

private:
    MainQueueViolationHandler previous_;
};

}  // namespace vocle

// For components that are main queue only; compiled out of release builds.
#ifdef NDEBUG
#define VOCLE_ASSERT_MAIN_QUEUE(queue) static_cast<void>(0)
#else
#define VOCLE_ASSERT_MAIN_QUEUE(queue) ::vocle::checkOnMainQueue((queue), __func__)
#endif
