#include "recording/SoundEffectLocator.h"

#include <system_error>

#ifndef VOCLE_INSTALL_DATADIR
#define VOCLE_INSTALL_DATADIR "/usr/local/share/vocle"
#endif

namespace vocle {

namespace fs = std::filesystem;

std::vector<fs::path> soundSearchDirectories(const Environment& env) {
    std::vector<fs::path> dirs;
    if (auto dir = env.get("VOCLE_DATA_DIR"); dir && !dir->empty()) dirs.push_back(fs::path(*dir) / "sounds");
    dirs.push_back(fs::path(VOCLE_INSTALL_DATADIR) / "sounds");
#ifdef VOCLE_SOURCE_DIR
    dirs.push_back(fs::path(VOCLE_SOURCE_DIR) / "data" / "sounds");
#endif
    return dirs;
}

std::optional<fs::path> findSoundFile(const std::string& name, const std::vector<fs::path>& directories) {
    static const char* const kExtensions[] = {"aif", "AIF", "aiff", "AIFF"};
    for (const auto& dir : directories) {
        for (const char* ext : kExtensions) {
            auto candidate = dir / (name + "." + ext);
            std::error_code ec;
            if (fs::is_regular_file(candidate, ec)) return candidate;
        }
    }
    return std::nullopt;
}

}  // namespace vocle
