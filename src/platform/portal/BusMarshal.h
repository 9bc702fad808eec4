#pragma once

#include <string>
#include <vector>

#include "platform/portal/BusValue.h"

struct DBusMessage;
struct DBusMessageIter;

namespace vocle::portal {

// BusValue <-> libdbus message arguments. Values go out by their own signature (a{sv} values wrapped in
// variants, empty arrays by their element signature); coming in, variants are unwrapped, dictionaries
// with string keys become BusDict, bytes and 16-bit integers widen to 32 bits. Returns false (and says
// why) when libdbus refuses a value, e.g. an invalid object path.
bool appendValue(DBusMessageIter* iter, const BusValue& value, std::string* error = nullptr);
bool appendArgs(DBusMessage* message, const std::vector<BusValue>& args, std::string* error = nullptr);
BusValue readValue(DBusMessageIter* iter);
std::vector<BusValue> readArgs(DBusMessage* message);

}  // namespace vocle::portal
