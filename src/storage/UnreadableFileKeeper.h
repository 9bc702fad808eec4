#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "foundation/Clock.h"

namespace vocle {

// Before a store falls back to defaults over a file it could not decode, the file is copied aside as
// "{name}.corrupt-{unix seconds}" so the user's data is never silently lost. The same content is kept
// once only, so a broken file re-read at every launch does not pile up copies.
// Returns the path of the kept copy (new or existing), none when copying failed.
std::optional<std::filesystem::path> keepUnreadableFile(const std::filesystem::path& file, std::string_view content,
                                                        const Clock& clock);

}  // namespace vocle
