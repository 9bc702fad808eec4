#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vocle {

// Reads a whole file; on failure returns none and, when asked, the reason.
std::optional<std::string> readFile(const std::filesystem::path& path, std::string* error = nullptr);

// Writes beside the target, fsyncs, then renames over it: readers see the old file or the new one.
bool writeFileAtomically(const std::filesystem::path& path, std::string_view data, std::string* error = nullptr);

// Creates the folder and its parents; errors are returned, not thrown.
bool ensureDirectory(const std::filesystem::path& path, std::string* error = nullptr);

}  // namespace vocle
