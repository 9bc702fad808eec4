#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

typedef struct _XDisplay Display;
typedef union _XEvent XEvent;

namespace vocle::x11 {

// A private connection to the X server with a thread that reads its events. Every Xlib call on the
// connection goes through withLock(), from any thread; the event callback runs on the reading thread
// with the lock held. Keeping hot keys and key monitoring on their own connections means a busy or
// blocked main thread never delays or loses a key press.
class XConnectionThread {
  public:
    // Opens the display named by $DISPLAY; display() is null when that fails.
    XConnectionThread();
    ~XConnectionThread();
    XConnectionThread(const XConnectionThread&) = delete;
    XConnectionThread& operator=(const XConnectionThread&) = delete;

    Display* display() const { return display_; }

    // Starts reading events. Call once, after the connection has selected what it wants.
    void start(std::function<void(XEvent&)> onEvent);

    template <class F>
    auto withLock(F f) {
        struct Nudge {
            XConnectionThread* self;
            // Requests like XSync may have queued events without the socket staying readable.
            ~Nudge() { self->wake(); }
        } nudge{this};
        std::lock_guard lock(mutex_);
        return f(display_);
    }

  private:
    void run();
    void wake();

    Display* display_ = nullptr;
    std::mutex mutex_;
    std::function<void(XEvent&)> onEvent_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace vocle::x11
