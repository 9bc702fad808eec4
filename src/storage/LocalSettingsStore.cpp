#include "storage/LocalSettingsStore.h"

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "storage/UnreadableFileKeeper.h"

namespace vocle {

void LocalSettingsStore::saveModes(const std::vector<Mode>& modes) const {
    const auto path = modesFile();
    Json json = Json::array();
    for (const auto& m : modes) json.push_back(m.toJson());
    std::string error;
    if (!writeFileAtomically(path, toCompactJson(json), &error)) {
        log("LocalSettingsStore saveModes error: ", error);
        return;
    }
    log("Local modes saved -> ", path.string(), " (", modes.size(), " modes)");
}

std::optional<std::vector<Mode>> LocalSettingsStore::loadModes() const {
    const auto path = modesFile();
    auto data = readFile(path);
    if (!data) return std::nullopt;
    try {
        const Json json = parseJson(*data);
        if (!json.is_array()) throw DecodingError("Expected an array of modes");
        std::vector<Mode> modes;
        for (const auto& item : json) modes.push_back(Mode::fromJson(item));
        log("Loaded ", modes.size(), " modes from local storage");
        return modes;
    } catch (const DecodingError& e) {
        log("LocalSettingsStore loadModes error: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        return std::nullopt;
    }
}

}  // namespace vocle
