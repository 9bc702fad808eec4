#pragma once

#include <functional>
#include <vector>

#include "foundation/Signal.h"
#include "platform/remote_input.h"

namespace vocle::testing {

// The test plays the desktop: request() leaves the state at `asking` until answer() is called.
class FakeRemoteInput final : public RemoteInput {
  public:
    RemoteInputState current = RemoteInputState::notGranted;
    int requests = 0;

    RemoteInputState state() const override { return current; }
    void request(std::function<void(RemoteInputState)> done) override {
        ++requests;
        if (done) pending_.push_back(std::move(done));
        set(RemoteInputState::asking);
    }
    Subscription observeState(std::function<void(RemoteInputState)> handler) override {
        return changed_.subscribe([handler = std::move(handler)](const RemoteInputState& s) { handler(s); });
    }
    // The desktop's answer to the open request.
    void answer(RemoteInputState outcome) {
        set(outcome);
        auto waiting = std::move(pending_);
        pending_.clear();
        for (auto& done : waiting) done(outcome);
    }
    void set(RemoteInputState s) {
        current = s;
        changed_.emit(s);
    }

  private:
    std::vector<std::function<void(RemoteInputState)>> pending_;
    Signal<RemoteInputState> changed_;
};

}  // namespace vocle::testing
