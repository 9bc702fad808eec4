#include "screens/AutostartEntry.h"

#include <system_error>

#include "foundation/FileIO.h"
#include "foundation/Log.h"

namespace vocle {

AutostartEntry::AutostartEntry(const Environment& env, std::string executable)
    : env_(env), executable_(std::move(executable)) {}

std::filesystem::path AutostartEntry::path() const { return xdgConfigHome(env_) / "autostart" / "vocle.desktop"; }

bool AutostartEntry::isEnabled() const {
    auto text = readFile(path());
    if (!text) return false;
    return text->find("\nHidden=true") == std::string::npos &&
           text->find("\nX-GNOME-Autostart-enabled=false") == std::string::npos;
}

std::string AutostartEntry::quoteExecArgument(const std::string& argument) {
    const std::string reserved = " \t\n\"'\\><~|&;$*?#()`";
    if (argument.find_first_of(reserved) == std::string::npos && !argument.empty()) return argument;
    std::string out = "\"";
    for (char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
    // The whole value is a string value of the key file, where a backslash is escaped once more.
    std::string escaped;
    for (char c : out) {
        if (c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string AutostartEntry::contents() const {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Vocle\n"
           "Comment=Dictation from anywhere\n"
           "Exec=" +
           quoteExecArgument(executable_) +
           "\n"
           "Icon=vocle\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

std::optional<std::string> AutostartEntry::setEnabled(bool enabled) {
    const auto file = path();
    std::string error;
    if (enabled) {
        if (!ensureDirectory(file.parent_path(), &error) || !writeFileAtomically(file, contents(), &error)) {
            log("❌ Failed to write autostart entry ", file.string(), ": ", error);
            return "Could not turn on start at login: " + error;
        }
        log("✅ Autostart entry written: ", file.string());
        return std::nullopt;
    }
    std::error_code ec;
    std::filesystem::remove(file, ec);
    if (ec) {
        log("❌ Failed to remove autostart entry ", file.string(), ": ", ec.message());
        return "Could not turn off start at login: " + ec.message();
    }
    log("✅ Autostart entry removed: ", file.string());
    return std::nullopt;
}

}  // namespace vocle
