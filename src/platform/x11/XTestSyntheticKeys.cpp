#include "platform/x11/XTestSyntheticKeys.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

#include "foundation/Log.h"
#include "platform/x11/XErrorTrap.h"

namespace vocle::x11 {

namespace {

bool isDown(const char keys[32], unsigned code) {
    return keys[code / 8] & (1 << (code % 8));
}

std::optional<std::string> classOf(Display* d, Window w) {
    XClassHint hint{nullptr, nullptr};
    if (!XGetClassHint(d, w, &hint)) return std::nullopt;
    std::optional<std::string> out;
    if (hint.res_class)
        out = hint.res_class;
    else if (hint.res_name)
        out = hint.res_name;
    if (hint.res_name) XFree(hint.res_name);
    if (hint.res_class) XFree(hint.res_class);
    return out;
}

Window activeWindow(Display* d) {
    const Atom property = XInternAtom(d, "_NET_ACTIVE_WINDOW", False);
    Atom type;
    int format;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    Window w = 0;
    if (XGetWindowProperty(d, DefaultRootWindow(d), property, 0, 1, False, XA_WINDOW, &type, &format, &count,
                           &after, &data) == Success &&
        data && count == 1 && format == 32)
        w = *reinterpret_cast<Window*>(data);
    if (data) XFree(data);
    return w;
}

}  // namespace

XTestSyntheticKeys::XTestSyntheticKeys() {
    display_ = XOpenDisplay(nullptr);
    if (!display_) {
        logLine("Synthetic keys: cannot open the X display");
        return;
    }
    XErrorTrap::adopt(display_);
    int event, error, major, minor;
    hasXTest_ = XTestQueryExtension(display_, &event, &error, &major, &minor);
    if (!hasXTest_) logLine("Synthetic keys: the X server has no XTest extension");
}

XTestSyntheticKeys::~XTestSyntheticKeys() {
    if (!display_) return;
    XErrorTrap::release(display_);
    XCloseDisplay(display_);
}

void XTestSyntheticKeys::postKey(uint16_t keyCode, bool down) {
    if (!isAvailable()) return;
    const auto sym = keysymForMacKeyCode(keyCode);
    const KeyCode code = sym ? XKeysymToKeycode(display_, *sym) : 0;
    if (!code) {
        log("Synthetic keys: no key for key code ", keyCode);
        return;
    }
    XTestFakeKeyEvent(display_, code, down ? True : False, CurrentTime);
    XFlush(display_);
}

uint64_t XTestSyntheticKeys::heldModifiers() {
    if (!display_) return 0;
    char keys[32];
    XQueryKeymap(display_, keys);
    uint64_t flags = 0;
    for (unsigned code = 8; code < 256; ++code)
        if (isDown(keys, code)) flags |= macFlagForModifierKeysym(XkbKeycodeToKeysym(display_, code, 0, 0));
    return flags;
}

bool XTestSyntheticKeys::nonModifierKeyHeld() {
    if (!display_) return false;
    char keys[32];
    XQueryKeymap(display_, keys);
    for (unsigned code = 8; code < 256; ++code) {
        if (!isDown(keys, code)) continue;
        const KeySym sym = XkbKeycodeToKeysym(display_, code, 0, 0);
        if (!IsModifierKey(sym) && !macFlagForModifierKeysym(sym)) return true;
    }
    return false;
}

void XTestSyntheticKeys::releaseHeldModifiers() {
    if (!isAvailable()) return;
    char keys[32];
    XQueryKeymap(display_, keys);
    for (unsigned code = 8; code < 256; ++code) {
        if (isDown(keys, code) && macFlagForModifierKeysym(XkbKeycodeToKeysym(display_, code, 0, 0)))
            XTestFakeKeyEvent(display_, code, False, CurrentTime);
    }
    XSync(display_, False);
}

std::optional<std::string> XTestSyntheticKeys::focusedWindowClass() {
    if (!display_) return std::nullopt;
    Window w = activeWindow(display_);
    if (!w) {
        int revert;
        XGetInputFocus(display_, &w, &revert);
    }
    // The focus may sit on a child of the client window: walk up to the one with a class.
    XErrorTrap trap(display_);
    for (int depth = 0; w && w != PointerRoot && w != DefaultRootWindow(display_) && depth < 16; ++depth) {
        if (auto cls = classOf(display_, w)) return cls;
        Window root, parent;
        Window* children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(display_, w, &root, &parent, &children, &count)) break;
        if (children) XFree(children);
        w = parent;
    }
    return std::nullopt;
}

}  // namespace vocle::x11
