#include "foundation/Environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace vocle {

namespace fs = std::filesystem;

std::optional<std::string> ProcessEnvironment::get(const std::string& name) const {
    const char* v = std::getenv(name.c_str());
    if (!v) return std::nullopt;
    return std::string(v);
}

std::optional<std::string> MapEnvironment::get(const std::string& name) const {
    auto it = values_.find(name);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

namespace {
fs::path homeDirectory(const Environment& env) {
    if (auto home = env.get("HOME"); home && !home->empty()) return *home;
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return "/";
}

fs::path absoluteOr(const Environment& env, const char* name, const fs::path& fallback) {
    if (auto v = env.get(name); v && !v->empty() && fs::path(*v).is_absolute()) return *v;
    return fallback;
}
}  // namespace

fs::path xdgDataHome(const Environment& env) {
    return absoluteOr(env, "XDG_DATA_HOME", homeDirectory(env) / ".local" / "share");
}

fs::path xdgConfigHome(const Environment& env) {
    return absoluteOr(env, "XDG_CONFIG_HOME", homeDirectory(env) / ".config");
}

fs::path temporaryDirectory(const Environment& env) { return absoluteOr(env, "TMPDIR", "/tmp"); }

}  // namespace vocle
