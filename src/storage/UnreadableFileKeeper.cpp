#include "storage/UnreadableFileKeeper.h"

#include <cmath>

#include "foundation/FileIO.h"
#include "foundation/Log.h"

namespace vocle {

namespace fs = std::filesystem;

std::optional<fs::path> keepUnreadableFile(const fs::path& file, std::string_view content, const Clock& clock) {
    const std::string prefix = file.filename().string() + ".corrupt-";
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(file.parent_path(), ec)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) != 0) continue;
        if (auto existing = readFile(entry.path()); existing && *existing == content) return entry.path();
    }
    auto seconds = static_cast<long long>(std::floor(clock.now()));
    fs::path kept = file.parent_path() / (prefix + std::to_string(seconds));
    // Two different broken contents within one second still get distinct names.
    for (int n = 1; fs::exists(kept); ++n) {
        kept = file.parent_path() / (prefix + std::to_string(seconds) + "-" + std::to_string(n));
    }
    std::string error;
    if (!writeFileAtomically(kept, content, &error)) {
        log("Could not keep unreadable ", file.filename().string(), ": ", error);
        return std::nullopt;
    }
    log("Kept unreadable ", file.filename().string(), " as ", kept.string());
    return kept;
}

}  // namespace vocle
