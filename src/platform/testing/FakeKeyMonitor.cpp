#include "platform/testing/FakeKeyMonitor.h"

#include <vector>

namespace vocle::testing {

Subscription FakeKeyMonitor::addGlobalMonitor(Handler handler) {
    const int id = nextId_++;
    handlers_->emplace(id, std::move(handler));
    return Subscription([weak = std::weak_ptr(handlers_), id] {
        if (auto h = weak.lock()) h->erase(id);
    });
}

void FakeKeyMonitor::type(const KeyEvent& event) {
    for (const auto& [id, handler] : *handlers_) {
        mainQueue_.post([weak = std::weak_ptr(handlers_), id = id, event] {
            // A monitor removed before delivery no longer hears the event.
            auto handlers = weak.lock();
            if (!handlers) return;
            auto it = handlers->find(id);
            if (it != handlers->end()) it->second(event);
        });
    }
}

Subscription FakeLocalKeyMonitor::addLocalMonitor(uint32_t mask, Handler handler) {
    const int id = nextId_++;
    auto alive = std::make_shared<bool>(true);
    entries_->emplace(id, Entry{mask, std::move(handler), alive});
    return Subscription([weak = std::weak_ptr(entries_), id, alive] {
        *alive = false;
        if (auto e = weak.lock()) e->erase(id);
    });
}

bool FakeLocalKeyMonitor::dispatch(const KeyEvent& event) {
    const uint32_t bit = event.type == KeyEventType::keyDown        ? kKeyDownMask
                         : event.type == KeyEventType::flagsChanged ? kFlagsChangedMask
                                                                    : 0;
    std::vector<Entry> snapshot;
    for (const auto& [id, e] : *entries_) snapshot.push_back(e);
    for (const auto& e : snapshot) {
        if (!*e.alive || !(e.mask & bit)) continue;
        if (e.handler(event)) return true;
    }
    return false;
}

}  // namespace vocle::testing
