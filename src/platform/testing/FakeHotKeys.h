#pragma once

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "foundation/MainQueue.h"
#include "platform/events.h"

namespace vocle::testing {

// A scriptable hot-key service: the test decides which calls fail and presses combinations by hand.
// Presses reach the handler through the main queue, as from the window system.
class FakeHotKeys final : public HotKeys {
  public:
    struct Registered {
        HotKeyHandle handle;
        uint16_t keyCode;
        uint64_t modifiers;
        uint32_t id;
    };

    explicit FakeHotKeys(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    int installHandler(Handler handler) override;
    void removeHandler() override;
    HotKeyRegistration registerHotKey(uint16_t keyCode, uint64_t modifiers, uint32_t id) override;
    void unregisterHotKey(HotKeyHandle handle) override;

    // Scripting.
    int installStatus = kHotKeyOk;
    // Combinations another client holds: registering them fails with this status.
    void refuse(uint16_t keyCode, uint64_t modifiers, int status) { refused_[{keyCode, modifiers}] = status; }
    // The user presses a combination (flags may carry lock bits). True when a registration took it.
    bool press(uint16_t keyCode, uint64_t flags);

    // Inspection.
    bool hasHandler() const { return static_cast<bool>(handler_); }
    const std::vector<Registered>& registrations() const { return registrations_; }
    std::optional<Registered> registrationFor(uint32_t id) const;
    int registerCalls = 0;

  private:
    MainQueue& mainQueue_;
    Handler handler_;
    std::vector<Registered> registrations_;
    std::map<std::pair<uint16_t, uint64_t>, int> refused_;
    HotKeyHandle nextHandle_ = 1;
};

}  // namespace vocle::testing
