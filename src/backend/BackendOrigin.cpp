#include "backend/BackendOrigin.h"

#include <fstream>

#include "foundation/Text.h"

#ifndef VOCLE_DEFAULT_BACKEND_URL
#define VOCLE_DEFAULT_BACKEND_URL "http://127.0.0.1:8765"
#endif

namespace vocle {

namespace {

std::string urlFromConfig(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (auto hash = line.find('#'); hash != std::string::npos) line.erase(hash);
        line = trimWhitespace(line);
        if (line.empty()) continue;
        auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        if (trimWhitespace(line.substr(0, eq)) != "url") continue;
        return normalizeOrigin(line.substr(eq + 1));
    }
    return {};
}

}  // namespace

std::string normalizeOrigin(const std::string& text) {
    std::string url = trimWhitespace(text);
    while (!url.empty() && url.back() == '/') url.pop_back();
    return url;
}

std::filesystem::path backendConfigFile(const Environment& env) {
    return xdgConfigHome(env) / "vocle" / "backend.conf";
}

BackendOrigin resolveBackendOrigin(const Environment& env) {
    if (auto fromEnv = env.get("VOCLE_BACKEND_URL")) {
        std::string url = normalizeOrigin(*fromEnv);
        if (!url.empty()) return {url, "VOCLE_BACKEND_URL"};
    }
    const auto file = backendConfigFile(env);
    if (std::string url = urlFromConfig(file); !url.empty()) return {url, file.string()};
    return {normalizeOrigin(VOCLE_DEFAULT_BACKEND_URL), "built-in default"};
}

}  // namespace vocle
