#include "storage/RemoteInputGrantStore.h"

#include <filesystem>
#include <system_error>

#include "foundation/FileIO.h"
#include "foundation/Json.h"
#include "foundation/Log.h"
#include "storage/UnreadableFileKeeper.h"

namespace vocle {

namespace fs = std::filesystem;

std::optional<std::string> RemoteInputGrantStore::load() const {
    const fs::path path = folder_.appSupportDirectory() / kFileName;
    if (!fs::exists(path)) return std::nullopt;
    std::string error;
    const auto data = readFile(path, &error);
    if (!data) {
        log("Failed to load the remote input grant: ", error);
        return std::nullopt;
    }
    try {
        const Json json = parseJson(*data);
        requireObjectValue(json, "remote input grant");
        auto token = optionalString(json, "restoreToken");
        if (token && token->empty()) return std::nullopt;
        return token;
    } catch (const DecodingError& e) {
        log("Failed to load the remote input grant: ", e.what());
        keepUnreadableFile(path, *data, clock_);
        return std::nullopt;
    }
}

void RemoteInputGrantStore::save(const std::optional<std::string>& token) const {
    const fs::path path = folder_.appSupportDirectory() / kFileName;
    std::error_code ec;
    if (!token) {
        fs::remove(path, ec);
        if (ec) log("Failed to forget the remote input grant: ", ec.message());
        return;
    }
    std::string error;
    if (!writeFileAtomically(path, toPrettyJson(Json{{"restoreToken", *token}}), &error)) {
        log("Failed to save the remote input grant: ", error);
        return;
    }
    fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::replace, ec);
}

}  // namespace vocle
