#include "foundation/NotificationCenter.h"

#include <vector>

namespace vocle {

std::optional<std::string> Notification::string(const std::string& key) const {
    auto it = userInfo.find(key);
    if (it == userInfo.end()) return std::nullopt;
    if (auto s = std::get_if<std::string>(&it->second)) return *s;
    return std::nullopt;
}

std::optional<double> Notification::number(const std::string& key) const {
    auto it = userInfo.find(key);
    if (it == userInfo.end()) return std::nullopt;
    return std::visit(
        [](const auto& v) -> std::optional<double> {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, std::string> || std::is_same_v<V, bool>) {
                return std::nullopt;
            } else {
                return static_cast<double>(v);
            }
        },
        it->second);
}

std::optional<bool> Notification::boolean(const std::string& key) const {
    auto it = userInfo.find(key);
    if (it == userInfo.end()) return std::nullopt;
    if (auto b = std::get_if<bool>(&it->second)) return *b;
    return std::nullopt;
}

Subscription NotificationCenter::addObserver(const std::string& name, Observer observer, MainQueue* deliverOn,
                                             const void* sender) {
    auto entry = std::make_shared<Entry>(
        Entry{name, sender, std::move(observer), deliverOn, std::make_shared<bool>(true)});
    uint64_t id;
    {
        std::lock_guard lock(core_->mutex);
        id = core_->nextId++;
        core_->entries.emplace(id, entry);
    }
    return Subscription([weakCore = std::weak_ptr<Core>(core_), id, alive = entry->alive] {
        *alive = false;
        if (auto core = weakCore.lock()) {
            std::lock_guard lock(core->mutex);
            core->entries.erase(id);
        }
    });
}

void NotificationCenter::post(const std::string& name, const void* sender, UserInfo userInfo) {
    std::vector<std::shared_ptr<Entry>> targets;
    {
        std::lock_guard lock(core_->mutex);
        for (auto& [id, e] : core_->entries) {
            if (e->name == name && (e->sender == nullptr || e->sender == sender)) targets.push_back(e);
        }
    }
    if (targets.empty()) return;
    auto note = std::make_shared<const Notification>(Notification{name, sender, std::move(userInfo)});
    for (auto& e : targets) {
        if (e->queue) {
            e->queue->post([e, note] {
                if (*e->alive) e->observer(*note);
            });
        } else if (*e->alive) {
            e->observer(*note);
        }
    }
}

}  // namespace vocle
