#pragma once

#include <memory>
#include <type_traits>
#include <utility>

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"

namespace vocle {

// Turns `f` into a callback any thread may call (platform and worker callbacks): each call is posted to
// `queue` and runs there only while `owner` lives. The arguments are copied into the posted task.
// The queue must outlive the callback; the owner need not.
template <class F>
auto bindToMain(MainQueue& queue, const OwnerToken& owner, F f) {
    return [queue = &queue, alive = owner.weak(), f = std::make_shared<F>(std::move(f))](auto&&... args) {
        if (alive.expired()) return;
        queue->post(
            [alive, f, ... args = std::decay_t<decltype(args)>(std::forward<decltype(args)>(args))]() mutable {
                // Checked again on the main queue: the owner may have gone while the task waited.
                if (alive.lock()) (*f)(std::move(args)...);
            });
    };
}

}  // namespace vocle
