#pragma once

#include <filesystem>
#include <string>

#include "foundation/Environment.h"

namespace vocle {

// Where the backend lives and where that came from, for diagnostics.
struct BackendOrigin {
    std::string url;     // no trailing slash
    std::string source;  // "VOCLE_BACKEND_URL", the backend.conf path, or "built-in default"
};

// First match wins: $VOCLE_BACKEND_URL; the "url" entry of $XDG_CONFIG_HOME/vocle/backend.conf
// ("url = https://vocle.example.org", '#' starts a comment); the origin compiled in at build time.
BackendOrigin resolveBackendOrigin(const Environment& env);

std::filesystem::path backendConfigFile(const Environment& env);

// Trims blanks and trailing slashes.
std::string normalizeOrigin(const std::string& text);

}  // namespace vocle
