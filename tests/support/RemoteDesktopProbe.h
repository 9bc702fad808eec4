#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "support/TestBus.h"

namespace vocle::testing {

// A keyboard-only client of the RemoteDesktop desktop portal written for the tests, so that what the
// portal service does can be checked independently of the application's own portal code. Blocking calls,
// bounded waits; failures throw std::runtime_error.
class RemoteDesktopProbe {
  public:
    static constexpr const char* kPortal = "org.freedesktop.portal.Desktop";
    static constexpr const char* kPath = "/org/freedesktop/portal/desktop";
    static constexpr const char* kInterface = "org.freedesktop.portal.RemoteDesktop";

    struct Response {
        uint32_t code = 2;  // 0 granted, 1 cancelled by the user, 2 ended otherwise
        TestBus::Dict results;
    };

    explicit RemoteDesktopProbe(const std::string& busAddress, double timeout = 20.0);

    // CreateSession, then SelectDevices for the keyboard with `options` added (e.g. persist_mode).
    Response createKeyboardSession(const TestBus::Dict& selectOptions = {});
    // Start: `answer` runs once the request is out (it answers the consent dialog); the portal's response.
    Response start(const std::function<void()>& answer);
    void keysym(uint32_t keysym, bool pressed);
    // Presses and releases each of the ASCII characters (their keysyms equal their codes).
    void type(const std::string& ascii);
    // Ctrl+V: the paste shortcut.
    void paste();
    // Closes the session (as an application does at quit); session() still names it afterwards.
    void close();

    const std::string& session() const { return session_; }
    TestBus& bus() { return bus_; }

  private:
    // Sends a request carrying a fresh handle_token in its last (options) argument, then waits for the
    // Request's Response, running `meanwhile` while waiting.
    Response request(const std::string& method, TestBus::Args args,
                     const std::function<void()>& meanwhile = {});

    TestBus bus_;
    double timeout_;
    std::string sender_;
    std::string session_;
    int counter_ = 0;
};

}  // namespace vocle::testing
