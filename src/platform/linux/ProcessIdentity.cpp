#include "platform/linux/ProcessIdentity.h"

#include <fstream>
#include <iterator>
#include <map>
#include <system_error>

namespace fs = std::filesystem;

namespace vocle {

namespace {

std::optional<std::string> readWhole(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::map<std::string, std::string> environmentOf(const std::string& block) {
    std::map<std::string, std::string> vars;
    size_t start = 0;
    while (start < block.size()) {
        size_t end = block.find('\0', start);
        if (end == std::string::npos) end = block.size();
        const std::string entry = block.substr(start, end - start);
        const auto eq = entry.find('=');
        if (eq != std::string::npos) vars.emplace(entry.substr(0, eq), entry.substr(eq + 1));
        start = end + 1;
    }
    return vars;
}

std::string desktopIdOfFile(const std::string& path) {
    std::string name = fs::path(path).filename().string();
    const std::string suffix = ".desktop";
    if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
        name.resize(name.size() - suffix.size());
    return name;
}

}  // namespace

std::optional<ProcessIdentity> readProcessIdentity(int processId, const fs::path& procRoot) {
    if (processId <= 0) return std::nullopt;
    const fs::path dir = procRoot / std::to_string(processId);
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return std::nullopt;

    ProcessIdentity identity;
    if (auto comm = readWhole(dir / "comm")) {
        identity.command = *comm;
        while (!identity.command.empty() && identity.command.back() == '\n') identity.command.pop_back();
    }
    const fs::path exe = fs::read_symlink(dir / "exe", ec);
    if (!ec) {
        std::string name = exe.filename().string();
        // A binary replaced by an upgrade while it runs.
        const std::string deleted = " (deleted)";
        if (name.size() > deleted.size() &&
            name.compare(name.size() - deleted.size(), deleted.size(), deleted) == 0)
            name.resize(name.size() - deleted.size());
        identity.executable = name;
    }
    if (auto block = readWhole(dir / "environ")) {
        const auto vars = environmentOf(*block);
        const auto launched = vars.find("GIO_LAUNCHED_DESKTOP_FILE");
        const auto launchedPid = vars.find("GIO_LAUNCHED_DESKTOP_FILE_PID");
        // Children inherit the record (a shell in a terminal): it names only the process it was made for.
        if (launched != vars.end() && launchedPid != vars.end() &&
            launchedPid->second == std::to_string(processId)) {
            identity.desktopId = desktopIdOfFile(launched->second);
        } else if (auto flatpak = vars.find("FLATPAK_ID"); flatpak != vars.end()) {
            identity.desktopId = flatpak->second;
        }
    }
    if (identity.executable.empty() && identity.command.empty() && identity.desktopId.empty())
        return std::nullopt;
    return identity;
}

}  // namespace vocle
