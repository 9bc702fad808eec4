#pragma once

#include <filesystem>

#include "foundation/Environment.h"

namespace vocle {

// The per-user "Vocle" data folder under the XDG data home. Resolved on every call, created on demand;
// a creation error is left for the following read or write to report.
class DataFolder {
public:
    explicit DataFolder(std::filesystem::path dataHome) : dataHome_(std::move(dataHome)) {}
    static DataFolder fromEnvironment(const Environment& env) { return DataFolder(xdgDataHome(env)); }

    std::filesystem::path appSupportDirectory() const;
    std::filesystem::path cacheDirectory() const;
    const std::filesystem::path& dataHome() const { return dataHome_; }

private:
    std::filesystem::path dataHome_;
};

}  // namespace vocle
