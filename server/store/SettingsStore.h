#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "foundation/Clock.h"
#include "foundation/Json.h"
#include "store/Database.h"

namespace vocle::server {

class VersionConflict : public std::runtime_error {
  public:
    explicit VersionConflict(int64_t current)
        : std::runtime_error("Settings version conflict: the stored version is " + std::to_string(current)),
          currentVersion(current) {}
    int64_t currentVersion;
};

struct StoredSettings {
    std::optional<Json> document;  // none until the first backup
    int64_t version = 0;
};

// The user's settings backup; each stored backup is one version higher and older versions are kept
// (the most recent `historyLimit`) so that a bad upload can be undone by an operator.
class SettingsStore {
  public:
    SettingsStore(Database& db, const Clock& clock, int historyLimit = 50)
        : db_(db), clock_(clock), historyLimit_(historyLimit) {}

    StoredSettings load(const std::string& userId);
    // Throws VersionConflict when `ifMatchVersion` is given and differs from the stored version.
    StoredSettings save(const std::string& userId, const Json& document,
                        std::optional<int64_t> ifMatchVersion);

  private:
    Database& db_;
    const Clock& clock_;
    int historyLimit_;
};

}  // namespace vocle::server
