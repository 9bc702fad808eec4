#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "core/Mode.h"
#include "foundation/Clock.h"
#include "storage/DataFolder.h"

namespace vocle {

// The user's modes, "modes.json", in the mode manager's order.
class LocalSettingsStore {
public:
    LocalSettingsStore(DataFolder folder, const Clock& clock) : folder_(std::move(folder)), clock_(clock) {}

    void saveModes(const std::vector<Mode>& modes) const;
    // None when there is no usable file; an empty stored list is returned as empty.
    std::optional<std::vector<Mode>> loadModes() const;

    std::filesystem::path modesFile() const { return folder_.appSupportDirectory() / "modes.json"; }

private:
    DataFolder folder_;
    const Clock& clock_;
};

}  // namespace vocle
