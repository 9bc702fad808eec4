#pragma once

#include <optional>
#include <string>

#include "foundation/Clock.h"
#include "storage/DataFolder.h"

namespace vocle {

// The desktop's restore token for our keyboard grant, in "{data folder}/remote-desktop.json" as
// {"restoreToken": "..."}. The token is a credential of this user's session only; the file is written
// readable by its owner alone. An unreadable file is kept aside and read as no token (the desktop asks
// once more).
class RemoteInputGrantStore {
  public:
    static constexpr const char* kFileName = "remote-desktop.json";

    RemoteInputGrantStore(DataFolder folder, const Clock& clock)
        : folder_(std::move(folder)), clock_(clock) {}

    std::optional<std::string> load() const;
    // None removes the file.
    void save(const std::optional<std::string>& token) const;

  private:
    DataFolder folder_;
    const Clock& clock_;
};

}  // namespace vocle
