#include "platform/x11/X11HotKeys.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>

#include <algorithm>

#include "platform/x11/XErrorTrap.h"

namespace vocle::x11 {

void GrabbedCombinations::add(uint16_t keyCode, uint64_t modifiers) {
    std::lock_guard lock(mutex_);
    combinations_.insert({keyCode, modifiers & kShortcutModifierMask});
}

void GrabbedCombinations::remove(uint16_t keyCode, uint64_t modifiers) {
    std::lock_guard lock(mutex_);
    const auto it = combinations_.find({keyCode, modifiers & kShortcutModifierMask});
    if (it != combinations_.end()) combinations_.erase(it);
}

bool GrabbedCombinations::contains(uint16_t keyCode, uint64_t modifiers) const {
    std::lock_guard lock(mutex_);
    return combinations_.count({keyCode, modifiers & kShortcutModifierMask}) > 0;
}

X11HotKeys::X11HotKeys(MainQueue& mainQueue, std::shared_ptr<GrabbedCombinations> grabbed)
    : mainQueue_(mainQueue), grabbed_(std::move(grabbed)) {}

X11HotKeys::~X11HotKeys() {
    alive_.reset();
    if (connection_ && connection_->display()) {
        connection_->withLock([&](Display* d) {
            for (const auto& g : grabs_) ungrab(d, g);
            XSync(d, False);
            return 0;
        });
    }
    connection_.reset();  // joins the thread before the members it reads go away
}

bool X11HotKeys::connect() {
    if (connection_) return connection_->display() != nullptr;
    connection_ = std::make_unique<XConnectionThread>();
    Display* d = connection_->display();
    if (!d) return false;
    connection_->withLock([&](Display* display) {
        layout_ = ModifierLayout::query(display);
        // A held hot key repeats as presses only, so a press of a key already down is a repeat.
        XkbSetDetectableAutoRepeat(display, True, nullptr);
        return 0;
    });
    connection_->start([this](XEvent& event) { onEvent(event); });
    return true;
}

int X11HotKeys::installHandler(Handler handler) {
    if (!connect()) return kHotKeyNoDisplay;
    handler_ = std::make_shared<Handler>(std::move(handler));
    return kHotKeyOk;
}

void X11HotKeys::removeHandler() {
    handler_.reset();
}

std::vector<unsigned> X11HotKeys::lockVariants() const {
    const unsigned locks[] = {LockMask, layout_.numLock, layout_.scrollLock};
    std::vector<unsigned> variants = {0};
    for (unsigned lock : locks) {
        if (!lock) continue;
        const size_t n = variants.size();
        for (size_t i = 0; i < n; ++i) variants.push_back(variants[i] | lock);
    }
    return variants;
}

void X11HotKeys::ungrab(Display* d, const Grab& g) {
    for (unsigned variant : lockVariants())
        XUngrabKey(d, static_cast<int>(g.keycode), g.modifiers | variant, DefaultRootWindow(d));
}

HotKeyRegistration X11HotKeys::registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) {
    if (!handler_) return {std::nullopt, kHotKeyNoHandler};
    if (!connection_ || !connection_->display()) return {std::nullopt, kHotKeyNoDisplay};
    const auto keysym = keysymForMacKeyCode(keyCode);
    if (!keysym) return {std::nullopt, kHotKeyUnknownKey};
    return connection_->withLock([&](Display* d) -> HotKeyRegistration {
        const KeyCode code = XKeysymToKeycode(d, *keysym);
        if (!code) return {std::nullopt, kHotKeyUnknownKey};
        const Grab grab{
            nextHandle_, code,    xModifiersForMacFlags(modifiers & kShortcutModifierMask, layout_),
            id,          keyCode, modifiers & kShortcutModifierMask};
        int status = 0;
        {
            XErrorTrap trap(d);
            for (unsigned variant : lockVariants())
                XGrabKey(d, code, grab.modifiers | variant, DefaultRootWindow(d), False, GrabModeAsync,
                         GrabModeAsync);
            status = trap.sync();
            // All or nothing: drop the variants that did succeed.
            if (status != 0) ungrab(d, grab);
        }
        if (status != 0) return {std::nullopt, status};
        grabs_.push_back(grab);
        ++nextHandle_;
        if (grabbed_) grabbed_->add(grab.macKeyCode, grab.macModifiers);
        return {grab.handle, kHotKeyOk};
    });
}

void X11HotKeys::unregisterHotKey(HotKeyHandle handle) {
    if (!connection_ || !connection_->display()) return;
    connection_->withLock([&](Display* d) {
        const auto it =
            std::find_if(grabs_.begin(), grabs_.end(), [&](const Grab& g) { return g.handle == handle; });
        if (it == grabs_.end()) return 0;
        {
            XErrorTrap trap(d);
            ungrab(d, *it);
            trap.sync();
        }
        if (grabbed_) grabbed_->remove(it->macKeyCode, it->macModifiers);
        grabs_.erase(it);
        return 0;
    });
}

void X11HotKeys::onEvent(XEvent& event) {
    if (event.type == KeyRelease) {
        pressed_.erase(event.xkey.keycode);
        return;
    }
    if (event.type != KeyPress) return;
    if (!pressed_.insert(event.xkey.keycode).second) return;  // auto-repeat
    const unsigned locks = LockMask | layout_.numLock | layout_.scrollLock;
    const unsigned state = event.xkey.state & ~locks & 0xFF;
    for (const auto& g : grabs_) {
        if (g.keycode == event.xkey.keycode && g.modifiers == state) {
            mainQueue_.post([this, alive = std::weak_ptr<char>(alive_), id = g.id] {
                if (!alive.lock() || !handler_) return;
                auto handler = handler_;  // the handler may replace itself
                (*handler)(id);
            });
            return;
        }
    }
}

}  // namespace vocle::x11
