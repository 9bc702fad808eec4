#pragma once

#include <memory>
#include <string>

#include "platform/notifications.h"

namespace vocle {

// Desktop notices through org.freedesktop.Notifications on the session bus (QtDBus). Actions come back
// as the service's ActionInvoked signal, on the thread that runs Qt's event loop (the main queue). Without
// a notification service the notice is logged and dropped: the warning on the Settings screen remains.
class QtDBusNotifications final : public DesktopNotifications {
  public:
    static constexpr const char* kService = "org.freedesktop.Notifications";
    static constexpr const char* kPath = "/org/freedesktop/Notifications";

    // `busAddress` empty: the session bus of the environment.
    explicit QtDBusNotifications(std::string busAddress = {});
    ~QtDBusNotifications() override;

    void notify(const DesktopNotice& notice, std::function<void(int action)> onAction = {}) override;

  private:
    struct Receiver;
    std::unique_ptr<Receiver> receiver_;
};

}  // namespace vocle
