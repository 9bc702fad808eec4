#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>

#include <unistd.h>

#include "foundation/MainQueue.h"
#include "platform/events.h"
#include "platform/x11/KeysymTable.h"
#include "platform/x11/X11HotKeys.h"
#include "platform/x11/XConnectionThread.h"

namespace vocle::x11 {

// The global key monitor: XInput 2 raw key events from every master keyboard, selected on the root
// window of a private connection. Raw events are copies: the focused window still gets every key.
// Keys typed into our own windows are left out; the local monitor sees those.
// Modifier state is followed from the raw events themselves (they carry none), so a quick
// Alt-down, Space, Alt-up burst is seen as Alt+Space even when it is read later.
class XInputKeyMonitor final : public KeyMonitor {
  public:
    // `ownHotKeys`: presses of these combinations are left to the hot-key path.
    explicit XInputKeyMonitor(MainQueue& mainQueue,
                              std::shared_ptr<const GrabbedCombinations> ownHotKeys = nullptr);
    ~XInputKeyMonitor() override;

    Subscription addGlobalMonitor(Handler handler) override;
    // False when there is no X server or it lacks XInput 2.2 (the reason was logged).
    bool isAvailable();

  private:
    bool connect();
    void onEvent(XEvent& event);  // connection thread
    void deliver(const KeyEvent& event);
    bool ownWindowHasFocus(Display* display);  // connection thread

    MainQueue& mainQueue_;
    std::shared_ptr<const GrabbedCombinations> ownHotKeys_;
    std::unique_ptr<XConnectionThread> connection_;
    bool connectTried_ = false;
    bool available_ = false;
    int xiOpcode_ = 0;
    // Connection thread only.
    ModifierLayout layout_;
    std::map<unsigned, uint64_t> heldModifierKeys_;  // keycode -> modifier bit
    bool capsLock_ = false;
    const int ownPid_ = static_cast<int>(::getpid());

    struct Handlers {
        std::mutex mutex;
        std::map<int, std::shared_ptr<Handler>> byId;
        int nextId = 0;
    };
    std::shared_ptr<Handlers> handlers_ = std::make_shared<Handlers>();
};

}  // namespace vocle::x11
