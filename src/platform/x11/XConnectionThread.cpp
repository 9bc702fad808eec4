#include "platform/x11/XConnectionThread.h"

#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "platform/x11/XErrorTrap.h"

namespace vocle::x11 {

XConnectionThread::XConnectionThread() {
    display_ = XOpenDisplay(nullptr);
    if (display_) XErrorTrap::adopt(display_);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) == 0) {
        wakeRead_ = fds[0];
        wakeWrite_ = fds[1];
    }
}

XConnectionThread::~XConnectionThread() {
    stopping_ = true;
    wake();
    if (thread_.joinable()) thread_.join();
    if (display_) {
        XErrorTrap::release(display_);
        XCloseDisplay(display_);
    }
    if (wakeRead_ >= 0) ::close(wakeRead_);
    if (wakeWrite_ >= 0) ::close(wakeWrite_);
}

void XConnectionThread::start(std::function<void(XEvent&)> onEvent) {
    if (!display_ || thread_.joinable() || wakeRead_ < 0) return;
    onEvent_ = std::move(onEvent);
    thread_ = std::thread([this] { run(); });
}

void XConnectionThread::wake() {
    if (wakeWrite_ < 0) return;
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(wakeWrite_, &c, 1);
}

void XConnectionThread::run() {
    const int xfd = ConnectionNumber(display_);
    while (!stopping_) {
        {
            std::lock_guard lock(mutex_);
            while (XPending(display_) > 0) {
                XEvent event;
                XNextEvent(display_, &event);
                onEvent_(event);
            }
        }
        pollfd fds[2] = {{xfd, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) continue;
        if (fds[1].revents & POLLIN) {
            char buffer[64];
            while (::read(wakeRead_, buffer, sizeof buffer) > 0) {
            }
        }
        if (fds[0].revents & (POLLERR | POLLHUP)) break;  // the server went away
    }
}

}  // namespace vocle::x11
