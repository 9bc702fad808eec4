#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct DBusConnection;
struct DBusMessage;

namespace vocle::testing {

// A blocking D-Bus client of the tests' own (libdbus, private connection), for driving desktop services
// directly: method calls with bounded waits and signals read as they arrive. Values cover what portal and
// compositor calls carry; anything else in a reply is skipped.
class TestBus {
  public:
    struct ObjectPath {
        std::string path;
        bool operator==(const ObjectPath&) const = default;
    };
    using Leaf = std::variant<bool, int32_t, uint32_t, std::string, ObjectPath>;
    using Dict = std::map<std::string, Leaf>;  // a{sv}
    using Arg = std::variant<bool, int32_t, uint32_t, std::string, ObjectPath, Dict>;
    using Args = std::vector<Arg>;

    // Throws std::runtime_error when the bus at `address` cannot be reached.
    explicit TestBus(const std::string& address);
    ~TestBus();
    TestBus(const TestBus&) = delete;
    TestBus& operator=(const TestBus&) = delete;

    std::string uniqueName() const;
    bool hasOwner(const std::string& name);

    // Calls and waits for the reply; throws std::runtime_error naming the D-Bus error or the timeout.
    Args call(const std::string& destination, const std::string& path, const std::string& interface,
              const std::string& method, const Args& args = {}, double timeout = 10.0);
    // A property read through org.freedesktop.DBus.Properties; none when it is absent or not a plain value.
    std::optional<Leaf> property(const std::string& destination, const std::string& path,
                                 const std::string& interface, const std::string& name);

    void addMatch(const std::string& rule);
    // The body of the first signal `interface`.`member` sent from object `path` within `timeout`, running
    // `meanwhile` between reads; other messages are dropped.
    std::optional<Args> waitForSignal(const std::string& path, const std::string& interface,
                                      const std::string& member, double timeout,
                                      const std::function<void()>& meanwhile = {});

  private:
    DBusConnection* connection_ = nullptr;
};

// Reads a value of an expected type out of a dictionary; none when absent or of another type.
template <typename T>
std::optional<T> lookup(const TestBus::Dict& dict, const std::string& key) {
    const auto it = dict.find(key);
    if (it == dict.end() || !std::holds_alternative<T>(it->second)) return std::nullopt;
    return std::get<T>(it->second);
}

}  // namespace vocle::testing
