#include "platform/x11/XErrorTrap.h"

#include <X11/Xlib.h>

#include <map>
#include <mutex>
#include <set>

#include "foundation/Log.h"
#include "foundation/ProcessExit.h"

namespace vocle::x11 {

namespace {

struct TrapState {
    std::mutex mutex;
    std::set<Display*> adopted;
    std::map<Display*, int> firstError;  // displays with an active trap
    XErrorHandler previous = nullptr;
};

TrapState& state() {
    static TrapState s;
    return s;
}

int handleError(Display* display, XErrorEvent* error) {
    XErrorHandler previous = nullptr;
    {
        auto& s = state();
        std::lock_guard lock(s.mutex);
        const auto trap = s.firstError.find(display);
        if (trap != s.firstError.end()) {
            if (trap->second == 0) trap->second = error->error_code;
            return 0;
        }
        if (s.adopted.count(display)) {
            log("X error ", static_cast<int>(error->error_code), " on request ",
                static_cast<int>(error->request_code), ".", static_cast<int>(error->minor_code));
            return 0;
        }
        previous = s.previous;
    }
    return previous ? previous(display, error) : 0;
}

int handleConnectionLoss(Display*) {
    logLine("❌ Lost the connection to the X server");
    endProcessNow(1);
}

void installHandler() {
    static std::once_flag once;
    std::call_once(once, [] {
        XErrorHandler previous = XSetErrorHandler(handleError);
        std::lock_guard lock(state().mutex);
        state().previous = previous;
    });
}

}  // namespace

void XErrorTrap::adopt(Display* display) {
    installHandler();
    std::lock_guard lock(state().mutex);
    state().adopted.insert(display);
}

void XErrorTrap::release(Display* display) {
    std::lock_guard lock(state().mutex);
    state().adopted.erase(display);
    state().firstError.erase(display);
}

void XErrorTrap::endProcessOnConnectionLoss() {
    XSetIOErrorHandler(handleConnectionLoss);
}

XErrorTrap::XErrorTrap(Display* display) : display_(display) {
    installHandler();
    XSync(display_, False);  // errors of earlier requests are not ours to report
    std::lock_guard lock(state().mutex);
    state().firstError[display_] = 0;
}

XErrorTrap::~XErrorTrap() {
    XSync(display_, False);
    std::lock_guard lock(state().mutex);
    state().firstError.erase(display_);
}

int XErrorTrap::sync() {
    XSync(display_, False);
    std::lock_guard lock(state().mutex);
    return state().firstError[display_];
}

}  // namespace vocle::x11
