#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vocle::portal {

// D-Bus values as the desktop portals use them, free of any bus library: the flows are tested on a fake
// bus, and the real bus marshals these by their signature.
class BusValue;

struct ObjectPath {
    std::string path;
    friend bool operator==(const ObjectPath&, const ObjectPath&) = default;
};

// a{sv}: the portals' option and result dictionaries. Values travel as variants.
using BusDict = std::map<std::string, BusValue>;

// aX. The element signature is needed only for an empty array; a filled one takes its first item's.
struct BusArray {
    std::string elementSignature;
    std::vector<BusValue> items;
    friend bool operator==(const BusArray&, const BusArray&) = default;
};

struct BusStruct {
    std::vector<BusValue> fields;
    friend bool operator==(const BusStruct&, const BusStruct&) = default;
};

class BusValue {
  public:
    using Storage = std::variant<bool, uint32_t, int32_t, uint64_t, int64_t, double, std::string, ObjectPath,
                                 BusArray, BusDict, BusStruct>;

    BusValue() : value_(std::string()) {}
    BusValue(bool v) : value_(v) {}
    BusValue(uint32_t v) : value_(v) {}
    BusValue(int32_t v) : value_(v) {}
    BusValue(uint64_t v) : value_(v) {}
    BusValue(int64_t v) : value_(v) {}
    BusValue(double v) : value_(v) {}
    BusValue(std::string v) : value_(std::move(v)) {}
    BusValue(const char* v) : value_(std::string(v)) {}
    BusValue(ObjectPath v) : value_(std::move(v)) {}
    BusValue(BusArray v) : value_(std::move(v)) {}
    BusValue(BusDict v) : value_(std::move(v)) {}
    BusValue(BusStruct v) : value_(std::move(v)) {}

    const Storage& storage() const { return value_; }
    // The D-Bus type signature: "s", "u", "o", "a{sv}", "a(sa{sv})", ...
    std::string signature() const;

    const std::string* asString() const { return std::get_if<std::string>(&value_); }
    std::optional<uint32_t> asUint() const;  // u, or a non-negative i
    std::optional<bool> asBool() const;
    const ObjectPath* asObjectPath() const { return std::get_if<ObjectPath>(&value_); }
    const BusArray* asArray() const { return std::get_if<BusArray>(&value_); }
    const BusDict* asDict() const { return std::get_if<BusDict>(&value_); }
    const BusStruct* asStruct() const { return std::get_if<BusStruct>(&value_); }

    friend bool operator==(const BusValue& a, const BusValue& b) { return a.value_ == b.value_; }

  private:
    Storage value_;
};

// Reads from an a{sv}; none when the key is absent or of another type.
std::optional<std::string> dictString(const BusDict& dict, const std::string& key);
std::optional<uint32_t> dictUint(const BusDict& dict, const std::string& key);

// A short readable form for log lines and test failures: {"types": 1, "handle_token": "vocle1"}.
std::string describe(const BusValue& value);

}  // namespace vocle::portal
