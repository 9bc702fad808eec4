#pragma once

#include <map>
#include <memory>

#include "foundation/MainQueue.h"
#include "platform/events.h"

namespace vocle::testing {

// Global monitor: every typed event goes to every monitor through the main queue; nothing is consumed.
class FakeKeyMonitor final : public KeyMonitor {
  public:
    explicit FakeKeyMonitor(MainQueue& mainQueue) : mainQueue_(mainQueue) {}
    Subscription addGlobalMonitor(Handler handler) override;
    bool observesAllApplications() const override { return observesAll; }
    // False: it stands for an X server under a Wayland compositor, which sees only its own windows.
    bool observesAll = true;

    void type(const KeyEvent& event);
    void keyDown(uint16_t keyCode, uint64_t flags) { type({KeyEventType::keyDown, keyCode, flags}); }
    size_t monitorCount() const { return handlers_->size(); }

  private:
    MainQueue& mainQueue_;
    std::shared_ptr<std::map<int, Handler>> handlers_ = std::make_shared<std::map<int, Handler>>();
    int nextId_ = 0;
};

// Local monitor: events are offered synchronously, in the order the monitors were added, until one
// consumes. Handlers may add or remove monitors while being called.
class FakeLocalKeyMonitor final : public LocalKeyMonitor {
  public:
    Subscription addLocalMonitor(uint32_t mask, Handler handler) override;

    // Returns true when a monitor consumed the event (the widget would not see it).
    bool dispatch(const KeyEvent& event);
    bool keyDown(uint16_t keyCode, uint64_t flags) {
        return dispatch({KeyEventType::keyDown, keyCode, flags});
    }
    size_t monitorCount() const { return entries_->size(); }

  private:
    struct Entry {
        uint32_t mask;
        Handler handler;
        std::shared_ptr<bool> alive;
    };
    std::shared_ptr<std::map<int, Entry>> entries_ = std::make_shared<std::map<int, Entry>>();
    int nextId_ = 0;
};

}  // namespace vocle::testing
