#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/MainQueue.h"

// Qt defines `emit` and `slots` as macros; set them aside here so this header works in any include order.
#pragma push_macro("emit")
#pragma push_macro("slots")
#undef emit
#undef slots

namespace vocle {

// RAII: the connection ends when the subscription is destroyed or reset.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& other) noexcept : cancel_(std::exchange(other.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            cancel_ = std::exchange(other.cancel_, nullptr);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (auto c = std::exchange(cancel_, nullptr)) c();
    }
    bool isActive() const { return static_cast<bool>(cancel_); }

private:
    std::function<void()> cancel_;
};

// A publish-only subject. Emission is synchronous on the emitting thread unless the subscriber asked
// for main-queue delivery. Thread-safe; slots run outside the lock so they may (un)subscribe.
template <class... Args>
class Signal {
public:
    using Slot = std::function<void(const Args&...)>;

    Signal() : core_(std::make_shared<Core>()) {}
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    [[nodiscard]] Subscription subscribe(Slot slot, MainQueue* deliverOn = nullptr) {
        auto entry = std::make_shared<Entry>(Entry{std::move(slot), deliverOn, std::make_shared<bool>(true)});
        uint64_t id;
        {
            std::lock_guard lock(core_->mutex);
            id = core_->nextId++;
            core_->slots.emplace(id, entry);
        }
        return Subscription([weakCore = std::weak_ptr<Core>(core_), id, alive = entry->alive] {
            *alive = false;
            if (auto core = weakCore.lock()) {
                std::lock_guard lock(core->mutex);
                core->slots.erase(id);
            }
        });
    }

    void emit(const Args&... args) const {
        std::vector<std::shared_ptr<Entry>> targets;
        {
            std::lock_guard lock(core_->mutex);
            for (auto& [id, e] : core_->slots) targets.push_back(e);
        }
        for (auto& e : targets) {
            if (!*e->alive) continue;
            if (e->queue) {
                e->queue->post([e, values = std::make_tuple(args...)] {
                    if (*e->alive) std::apply(e->slot, values);
                });
            } else {
                e->slot(args...);
            }
        }
    }

    size_t subscriberCount() const {
        std::lock_guard lock(core_->mutex);
        return core_->slots.size();
    }

private:
    struct Entry {
        Slot slot;
        MainQueue* queue;
        std::shared_ptr<bool> alive;
    };
    struct Core {
        std::mutex mutex;
        uint64_t nextId = 0;
        std::map<uint64_t, std::shared_ptr<Entry>> slots;
    };
    std::shared_ptr<Core> core_;
};

// An observable value: every set() publishes the new value, as a published property does.
template <class T>
class Observable {
public:
    Observable() = default;
    explicit Observable(T initial) : value_(std::move(initial)) {}

    const T& get() const { return value_; }
    const T& operator()() const { return value_; }

    void set(T value) {
        value_ = std::move(value);
        changed_.emit(value_);
    }
    // Publishes only when the value differs; for fields whose observers care about transitions.
    void setIfChanged(T value) {
        if (!(value_ == value)) set(std::move(value));
    }

    // The slot receives each new value; it is not called with the current one.
    [[nodiscard]] Subscription subscribe(std::function<void(const T&)> slot, MainQueue* deliverOn = nullptr) {
        return changed_.subscribe(std::move(slot), deliverOn);
    }

private:
    T value_{};
    Signal<T> changed_;
};

}  // namespace vocle

#pragma pop_macro("slots")
#pragma pop_macro("emit")
