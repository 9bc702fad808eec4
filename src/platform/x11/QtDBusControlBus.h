#pragma once

#include <memory>
#include <string>

#include "platform/control_bus.h"

class QObject;

namespace vocle {

// The session-bus entry point on QtDBus. Incoming calls arrive on the thread that runs Qt's event loop
// (the main queue); Toggle, Cancel and Activate are answered first and run right after, so a slow
// handler never holds the caller.
//
// Each instance has its own bus connection, so a second instance (in this process or another) finds
// the name taken.
class QtDBusControlBus final : public ControlBus {
  public:
    // `busAddress` empty: the session bus of the environment.
    explicit QtDBusControlBus(std::string busAddress = {});
    ~QtDBusControlBus() override;

    PublishResult publish(ControlHandlers handlers) override;
    ControlCallResult callRunningInstance(ControlMethod method) override;

    static constexpr int kCallTimeoutMs = 3000;

  private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
    std::unique_ptr<QObject> exported_;
};

}  // namespace vocle
