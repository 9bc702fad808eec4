#pragma once

#include <vector>

#include "platform/control_bus.h"

namespace vocle::testing {

// A scriptable session bus: the test chooses what publish() answers and what a running instance replies,
// and calls the published handlers itself as a caller on the bus would.
class FakeControlBus final : public ControlBus {
  public:
    PublishResult publishResult = PublishResult::published;
    ControlCallResult callResult{ControlCallResult::Outcome::ok, {}, {}};

    ControlHandlers handlers;
    int publishCount = 0;
    std::vector<ControlMethod> calls;

    PublishResult publish(ControlHandlers h) override {
        ++publishCount;
        if (publishResult == PublishResult::published) handlers = std::move(h);
        return publishResult;
    }
    ControlCallResult callRunningInstance(ControlMethod method) override {
        calls.push_back(method);
        return callResult;
    }
};

}  // namespace vocle::testing
