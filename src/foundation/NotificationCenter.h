#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "foundation/MainQueue.h"
#include "foundation/Signal.h"

namespace vocle {

using UserInfoValue = std::variant<bool, int, float, double, std::string>;
using UserInfo = std::map<std::string, UserInfoValue>;

struct Notification {
    std::string name;
    const void* sender = nullptr;
    UserInfo userInfo;

    std::optional<std::string> string(const std::string& key) const;
    // Reads any numeric member as double.
    std::optional<double> number(const std::string& key) const;
    std::optional<bool> boolean(const std::string& key) const;
};

// Process-wide broadcasts by name. Observers with no delivery queue are called synchronously on the
// posting thread; with one, the notification is re-posted to it.
class NotificationCenter {
public:
    using Observer = std::function<void(const Notification&)>;

    [[nodiscard]] Subscription addObserver(const std::string& name, Observer observer,
                                           MainQueue* deliverOn = nullptr,
                                           const void* sender = nullptr);
    void post(const std::string& name, const void* sender = nullptr, UserInfo userInfo = {});

private:
    struct Entry {
        std::string name;
        const void* sender;
        Observer observer;
        MainQueue* queue;
        std::shared_ptr<bool> alive;
    };
    struct Core {
        std::mutex mutex;
        uint64_t nextId = 0;
        std::map<uint64_t, std::shared_ptr<Entry>> entries;
    };
    std::shared_ptr<Core> core_ = std::make_shared<Core>();
};

}  // namespace vocle
