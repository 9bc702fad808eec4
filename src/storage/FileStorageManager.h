#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "foundation/Clock.h"
#include "storage/AppSettings.h"
#include "storage/DataFolder.h"

namespace vocle {

// The small files of the data folder. Holds no state; every call reads or writes a whole file and
// logs one line. Callers never see an error: loads fall back to defaults, saves log and carry on.
class FileStorageManager {
public:
    FileStorageManager(DataFolder folder, const Clock& clock) : folder_(std::move(folder)), clock_(clock) {}

    std::filesystem::path appSupportDirectory() const { return folder_.appSupportDirectory(); }
    std::filesystem::path cacheDirectory() const { return folder_.cacheDirectory(); }
    const DataFolder& dataFolder() const { return folder_; }
    const Clock& clock() const { return clock_; }

    AppSettings loadSettings() const;
    void saveSettings(const AppSettings& settings) const;

    OnboardingState loadOnboardingState() const;
    void saveOnboardingState(const OnboardingState& state) const;

    std::string deviceId() const;

    void saveSession(const std::string& text) const;
    void clearSession() const;

    void saveCloudTemplatesCache(const std::string& templatesJSON) const;
    std::optional<std::string> loadCloudTemplatesCache() const;

    // Templates are fresh for this long after caching.
    static constexpr double kTemplatesCacheLifetime = 86400.0;

private:
    DataFolder folder_;
    const Clock& clock_;
};

}  // namespace vocle
