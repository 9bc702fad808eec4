#pragma once

#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "foundation/MainQueue.h"
#include "platform/events.h"
#include "platform/x11/KeysymTable.h"
#include "platform/x11/XConnectionThread.h"

namespace vocle::x11 {

// The combinations this process holds as hot keys. With XInput 2.1 and later the server still sends raw
// key events for a grabbed key, so the key monitor consults this to leave those presses to the hot key.
class GrabbedCombinations {
  public:
    void add(uint16_t keyCode, uint64_t modifiers);
    void remove(uint16_t keyCode, uint64_t modifiers);
    bool contains(uint16_t keyCode, uint64_t modifiers) const;

  private:
    mutable std::mutex mutex_;
    std::multiset<std::pair<uint16_t, uint64_t>> combinations_;
};

// Hot keys as passive grabs on the root window (XGrabKey), one per Caps/Num/Scroll Lock combination so
// that lock keys never matter. A combination another client holds is refused with BadAccess (10).
class X11HotKeys final : public HotKeys {
  public:
    explicit X11HotKeys(MainQueue& mainQueue, std::shared_ptr<GrabbedCombinations> grabbed = nullptr);
    ~X11HotKeys() override;

    int installHandler(Handler handler) override;
    void removeHandler() override;
    HotKeyRegistration registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) override;
    void unregisterHotKey(HotKeyHandle handle) override;

  private:
    struct Grab {
        HotKeyHandle handle;
        unsigned keycode;
        unsigned modifiers;
        uint32_t id;
        uint16_t macKeyCode;
        uint64_t macModifiers;
    };
    bool connect();
    void onEvent(XEvent& event);  // connection thread
    std::vector<unsigned> lockVariants() const;
    void ungrab(Display* display, const Grab& grab);

    MainQueue& mainQueue_;
    std::shared_ptr<GrabbedCombinations> grabbed_;
    std::unique_ptr<XConnectionThread> connection_;
    ModifierLayout layout_;
    // Guarded by the connection lock: read by the event thread.
    std::vector<Grab> grabs_;
    std::set<unsigned> pressed_;
    HotKeyHandle nextHandle_ = 1;
    // Main thread only.
    std::shared_ptr<Handler> handler_;
    std::shared_ptr<char> alive_ = std::make_shared<char>(0);
};

}  // namespace vocle::x11
