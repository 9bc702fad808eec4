#include "platform/x11/XInputKeyMonitor.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

#include <unistd.h>

#include <vector>

#include "foundation/Log.h"

namespace vocle::x11 {

XInputKeyMonitor::XInputKeyMonitor(MainQueue& mainQueue,
                                   std::shared_ptr<const GrabbedCombinations> ownHotKeys)
    : mainQueue_(mainQueue), ownHotKeys_(std::move(ownHotKeys)) {}

XInputKeyMonitor::~XInputKeyMonitor() {
    connection_.reset();
}

bool XInputKeyMonitor::isAvailable() {
    return connect();
}

bool XInputKeyMonitor::connect() {
    if (connectTried_) return available_;
    connectTried_ = true;
    connection_ = std::make_unique<XConnectionThread>();
    if (!connection_->display()) {
        logLine("Global key monitor: cannot open the X display");
        return false;
    }
    available_ = connection_->withLock([&](Display* d) {
        int event = 0, error = 0;
        if (!XQueryExtension(d, "XInputExtension", &xiOpcode_, &event, &error)) {
            logLine("Global key monitor: the X server has no XInput extension");
            return false;
        }
        int major = 2, minor = 2;
        if (XIQueryVersion(d, &major, &minor) != Success) {
            log("Global key monitor: XInput 2.2 not supported (server has ", major, ".", minor, ")");
            return false;
        }
        layout_ = ModifierLayout::query(d);
        // Start from the modifiers and Caps Lock as they are now.
        char keys[32];
        XQueryKeymap(d, keys);
        for (unsigned code = 8; code < 256; ++code) {
            if (!(keys[code / 8] & (1 << (code % 8)))) continue;
            if (const uint64_t bit = macFlagForModifierKeysym(XkbKeycodeToKeysym(d, code, 0, 0)))
                heldModifierKeys_[code] = bit;
        }
        unsigned indicators = 0;
        if (XkbGetIndicatorState(d, XkbUseCoreKbd, &indicators) == Success) capsLock_ = indicators & 1;

        unsigned char mask[XIMaskLen(XI_LASTEVENT)] = {};
        XISetMask(mask, XI_RawKeyPress);
        XISetMask(mask, XI_RawKeyRelease);
        XIEventMask eventMask{XIAllMasterDevices, static_cast<int>(sizeof mask), mask};
        XISelectEvents(d, DefaultRootWindow(d), &eventMask, 1);
        XSync(d, False);
        return true;
    });
    if (available_) connection_->start([this](XEvent& e) { onEvent(e); });
    return available_;
}

Subscription XInputKeyMonitor::addGlobalMonitor(Handler handler) {
    connect();
    std::lock_guard lock(handlers_->mutex);
    const int id = handlers_->nextId++;
    handlers_->byId.emplace(id, std::make_shared<Handler>(std::move(handler)));
    return Subscription([weak = std::weak_ptr<Handlers>(handlers_), id] {
        if (auto h = weak.lock()) {
            std::lock_guard lock(h->mutex);
            h->byId.erase(id);
        }
    });
}

void XInputKeyMonitor::onEvent(XEvent& event) {
    if (event.type != GenericEvent || event.xcookie.extension != xiOpcode_) return;
    Display* d = connection_->display();
    if (!XGetEventData(d, &event.xcookie)) return;
    const int type = event.xcookie.evtype;
    const auto* raw = static_cast<const XIRawEvent*>(event.xcookie.data);
    const unsigned code = static_cast<unsigned>(raw->detail);
    const bool repeat = raw->flags & XIKeyRepeat;
    XFreeEventData(d, &event.xcookie);
    if (type != XI_RawKeyPress && type != XI_RawKeyRelease) return;

    const KeySym sym = XkbKeycodeToKeysym(d, static_cast<KeyCode>(code), 0, 0);
    const uint64_t modifierBit = macFlagForModifierKeysym(sym);
    if (modifierBit) {
        if (type == XI_RawKeyPress)
            heldModifierKeys_[code] = modifierBit;
        else
            heldModifierKeys_.erase(code);
    }
    if (sym == XK_Caps_Lock && type == XI_RawKeyPress && !repeat) capsLock_ = !capsLock_;
    if (type != XI_RawKeyPress || repeat) return;

    uint64_t flags = capsLock_ ? kModifierCapsLock : 0;
    for (const auto& [held, bit] : heldModifierKeys_) flags |= bit;
    const auto macCode = macKeyCodeForKeysym(sym);
    if (!macCode) return;
    const KeyEvent keyEvent{
        modifierBit || sym == XK_Caps_Lock ? KeyEventType::flagsChanged : KeyEventType::keyDown, *macCode,
        flags};
    if (keyEvent.type == KeyEventType::keyDown && ownHotKeys_ && ownHotKeys_->contains(*macCode, flags))
        return;
    // Keys typed into our own windows belong to the local monitor; raw events would report them twice.
    if (ownWindowHasFocus(d)) return;
    deliver(keyEvent);
}

bool XInputKeyMonitor::ownWindowHasFocus(Display* d) {
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(d, &focus, &revert);
    const Atom pidAtom = XInternAtom(d, "_NET_WM_PID", False);
    // The focus can be on a child of the top-level that carries the pid.
    for (int depth = 0; focus && focus != PointerRoot && focus != DefaultRootWindow(d) && depth < 8;
         ++depth) {
        Atom type;
        int format;
        unsigned long count = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(d, focus, pidAtom, 0, 1, False, XA_CARDINAL, &type, &format, &count, &after,
                               &data) == Success &&
            data && count == 1) {
            const auto pid = static_cast<pid_t>(*reinterpret_cast<unsigned long*>(data));
            XFree(data);
            return pid == ownPid_;
        }
        if (data) XFree(data);
        Window root, parent;
        Window* children = nullptr;
        unsigned n = 0;
        if (!XQueryTree(d, focus, &root, &parent, &children, &n)) return false;
        if (children) XFree(children);
        focus = parent;
    }
    return false;
}

void XInputKeyMonitor::deliver(const KeyEvent& event) {
    mainQueue_.post([weak = std::weak_ptr<Handlers>(handlers_), event] {
        auto handlers = weak.lock();
        if (!handlers) return;
        std::vector<std::pair<int, std::shared_ptr<Handler>>> snapshot;
        {
            std::lock_guard lock(handlers->mutex);
            snapshot.assign(handlers->byId.begin(), handlers->byId.end());
        }
        for (const auto& [id, handler] : snapshot) {
            {
                // Skip monitors removed by an earlier handler of this same event.
                std::lock_guard lock(handlers->mutex);
                if (!handlers->byId.count(id)) continue;
            }
            (*handler)(event);
        }
    });
}

}  // namespace vocle::x11
