#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct DBusConnection;
struct DBusMessage;

namespace vocle::testing {

// A plain libdbus client of the desktop portals for integration tests, independent of the application's
// own portal code, so a test can tell a broken portal from a broken client. One private connection: portal
// sessions live as long as the connection that created them.
class PortalTestClient {
  public:
    struct Shortcut {
        std::string id;
        std::string description;
        std::string preferredTrigger;
    };
    using Shortcuts = std::vector<Shortcut>;
    using Value = std::variant<std::string, uint32_t, bool, Shortcuts>;
    using Options = std::map<std::string, Value>;

    struct Response {
        uint32_t code = 2;
        // Results by kind: strings and object paths, unsigned numbers, and shortcut lists as
        // (id, trigger_description) pairs.
        std::map<std::string, std::string> strings;
        std::map<std::string, uint32_t> numbers;
        std::vector<std::pair<std::string, std::string>> shortcuts;
    };
    struct Signal {
        std::string interface;
        std::string member;
        std::string path;
        std::vector<std::string> strings;  // the string and object path arguments, in order
    };

    // Throws std::runtime_error when the bus cannot be reached.
    explicit PortalTestClient(const std::string& busAddress);
    ~PortalTestClient();
    PortalTestClient(const PortalTestClient&) = delete;
    PortalTestClient& operator=(const PortalTestClient&) = delete;

    const std::string& uniqueName() const { return uniqueName_; }
    bool nameHasOwner(const std::string& name);
    // The interface names the portal object introspects to.
    std::vector<std::string> portalInterfaces();
    std::optional<uint32_t> portalVersion(const std::string& interface);

    // Calls a request-style portal method: `arguments` go before the options (strings starting with '/'
    // travel as object paths), a handle_token is added, and the Response signal of the request is awaited.
    // None when the call failed or no answer came within `timeout`; `error` then says why.
    std::optional<Response> request(const std::string& interface, const std::string& method,
                                    const std::vector<Value>& arguments, Options options,
                                    double timeout = 10.0, std::string* error = nullptr);
    // A plain method call on the portal object (e.g. NotifyKeyboardKeysym); false with `error` on failure.
    bool call(const std::string& interface, const std::string& method, const std::vector<Value>& arguments,
              const std::vector<int32_t>& numbers = {}, std::string* error = nullptr);
    // Closes a portal session (org.freedesktop.portal.Session.Close on its handle).
    bool closeSession(const std::string& handle, std::string* error = nullptr);
    // RemoteDesktop.NotifyKeyboardKeysym.
    bool notifyKeysym(const std::string& session, int32_t keysym, bool pressed, std::string* error = nullptr);

    // Stores `permissions` for `app` under `table`/`id` in the portals' permission store.
    bool setPermission(const std::string& table, const std::string& id, const std::string& app,
                       const std::vector<std::string>& permissions, std::string* error = nullptr);
    // The permissions stored for `app`, or none when the entry does not exist.
    std::optional<std::vector<std::string>> permissions(const std::string& table, const std::string& id,
                                                        const std::string& app);

    // Signals of `interface` seen so far (after watch()), oldest first; waits up to `timeout` for one named
    // `member` to arrive.
    void watch(const std::string& interface);
    std::optional<Signal> waitForSignal(const std::string& member, double timeout);

  private:
    DBusMessage* callRaw(DBusMessage* message, double timeout, std::string* error);
    void pump(double timeout);

    DBusConnection* connection_ = nullptr;
    std::string uniqueName_;
    std::vector<DBusMessage*> pending_;
    int tokens_ = 0;
};

}  // namespace vocle::testing
