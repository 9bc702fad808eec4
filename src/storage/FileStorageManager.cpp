#include "storage/FileStorageManager.h"

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "foundation/Text.h"
#include "foundation/Uuid.h"
#include "storage/UnreadableFileKeeper.h"

namespace vocle {

namespace fs = std::filesystem;


AppSettings FileStorageManager::loadSettings() const {
    const fs::path path = appSupportDirectory() / "settings.json";
    auto data = readFile(path);
    if (!data) {
        logLine("No settings file found, returning defaults");
        return AppSettings::defaults();
    }
    try {
        AppSettings settings = AppSettings::fromJson(parseJson(*data));
        log("Loaded settings from ", path.string());
        return settings;
    } catch (const DecodingError& e) {
        log("FileStorageManager settings load error: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        return AppSettings::defaults();
    }
}

void FileStorageManager::saveSettings(const AppSettings& settings) const {
    const fs::path path = appSupportDirectory() / "settings.json";
    std::string error;
    if (!writeFileAtomically(path, toPrettyJson(settings.toJson()), &error)) {
        log("FileStorageManager settings save error: ", error);
        return;
    }
    log("Settings saved to ", path.string());
}

OnboardingState FileStorageManager::loadOnboardingState() const {
    const fs::path path = appSupportDirectory() / "onboarding.json";
    auto data = readFile(path);
    if (!data) {
        logLine("No onboarding state file found, returning defaults");
        return {};
    }
    try {
        return OnboardingState::fromJson(parseJson(*data));
    } catch (const DecodingError& e) {
        log("Failed to load onboarding state: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        return {};
    }
}

void FileStorageManager::saveOnboardingState(const OnboardingState& state) const {
    std::string error;
    if (!writeFileAtomically(appSupportDirectory() / "onboarding.json", toPrettyJson(state.toJson()), &error)) {
        log("Failed to save onboarding state: ", error);
        return;
    }
    logLine("Onboarding state saved");
}

std::string FileStorageManager::deviceId() const {
    const fs::path path = appSupportDirectory() / "device-id.txt";
    if (auto data = readFile(path); data && isValidUtf8(*data)) {
        if (auto id = trimWhitespace(*data); !id.empty()) return id;
    }
    const std::string id = Uuid::random().string();
    writeFileAtomically(path, id);  // a failed write only means a new id next launch
    log("Generated new device ID: ", id);
    return id;
}

void FileStorageManager::saveSession(const std::string& text) const {
    const fs::path path = appSupportDirectory() / "session.json";
    std::string error;
    if (!writeFileAtomically(path, text, &error)) {
        log("FileStorageManager session save error: ", error);
        return;
    }
    log("Session saved to ", path.string());
}

void FileStorageManager::clearSession() const {
    std::error_code ec;
    fs::remove(appSupportDirectory() / "session.json", ec);
    logLine("Session cleared");
}

void FileStorageManager::saveCloudTemplatesCache(const std::string& templatesJSON) const {
    const fs::path path = cacheDirectory() / "cloud-templates.json";
    const CloudTemplatesCache cache{templatesJSON, clock_.now()};
    std::string error;
    if (!writeFileAtomically(path, toPrettyJson(cache.toJson()), &error)) {
        log("Failed to save cloud templates cache: ", error);
        return;
    }
    log("Cloud templates cached to ", path.string());
}

std::optional<std::string> FileStorageManager::loadCloudTemplatesCache() const {
    const fs::path path = cacheDirectory() / "cloud-templates.json";
    auto data = readFile(path);
    if (!data) return std::nullopt;
    CloudTemplatesCache cache;
    try {
        cache = CloudTemplatesCache::fromJson(parseJson(*data));
    } catch (const DecodingError& e) {
        log("Failed to load cloud templates cache: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        return std::nullopt;
    }
    // A date in the future gives a negative age and counts as fresh.
    if (clock_.now() - cache.cachedAt < kTemplatesCacheLifetime) return cache.templatesJSON;
    logLine("Cloud templates cache expired");
    return std::nullopt;
}

}  // namespace vocle
