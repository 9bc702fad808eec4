#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/Clock.h"
#include "store/Database.h"

namespace vocle::server {

struct SupportMessage {
    std::optional<std::string> userId;
    std::string message;
    std::string deviceId;
    std::string appVersion;
};

class SupportStore {
  public:
    SupportStore(Database& db, const Clock& clock) : db_(db), clock_(clock) {}
    int64_t add(const SupportMessage& message);

  private:
    Database& db_;
    const Clock& clock_;
};

}  // namespace vocle::server
