#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace vocle {

// Where the "start" and "stop" sounds live: $VOCLE_DATA_DIR/sounds, then the installed
// share/vocle/sounds, then the source tree's data/sounds (development builds).
std::vector<std::filesystem::path> soundSearchDirectories(const Environment& env);

// The first existing "{name}.aif", ".AIF", ".aiff", ".AIFF" in the directories, in that order.
std::optional<std::filesystem::path> findSoundFile(const std::string& name,
                                                   const std::vector<std::filesystem::path>& directories);

}  // namespace vocle
