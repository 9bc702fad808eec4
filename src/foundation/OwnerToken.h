#pragma once

#include <memory>
#include <utility>

namespace vocle {

// Lets deferred work hold its owner weakly: a guarded task does nothing once the token is destroyed.
// Destroy the token on the main queue, the same thread the guarded tasks run on.
class OwnerToken {
public:
    OwnerToken() : alive_(std::make_shared<char>(0)) {}
    OwnerToken(const OwnerToken&) = delete;
    OwnerToken& operator=(const OwnerToken&) = delete;

    template <class F>
    auto guard(F f) const {
        return [weak = std::weak_ptr<char>(alive_), f = std::move(f)](auto&&... args) mutable {
            if (weak.lock()) f(std::forward<decltype(args)>(args)...);
        };
    }
    std::weak_ptr<void> weak() const { return alive_; }

private:
    std::shared_ptr<char> alive_;
};

}  // namespace vocle
