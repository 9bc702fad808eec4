#include "platform/linux/DesktopEntryIndex.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <system_error>

#include "foundation/Log.h"

namespace fs = std::filesystem;

namespace vocle {

namespace {

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool equalsIgnoringCase(const std::string& a, const std::string& b) { return lowercase(a) == lowercase(b); }

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

// The escapes a desktop-file string value may carry.
std::string unescape(const std::string& value) {
    std::string out;
    out.reserve(value.size());
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            out += value[i];
            continue;
        }
        switch (value[++i]) {
            case 's': out += ' '; break;
            case 'n': out += '\n'; break;
            case 't': out += '\t'; break;
            case 'r': out += '\r'; break;
            case '\\': out += '\\'; break;
            default: out += '\\'; out += value[i]; break;
        }
    }
    return out;
}

std::optional<std::string> readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return buffer.str();
}

}  // namespace

std::optional<DesktopEntry> parseDesktopEntry(const std::string& contents,
                                              const std::vector<std::string>& languages) {
    std::map<std::string, std::string> keys;
    bool inMainGroup = false;
    bool sawMainGroup = false;
    std::istringstream lines(contents);
    std::string line;
    while (std::getline(lines, line)) {
        line = trimmed(line);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            inMainGroup = line == "[Desktop Entry]";
            sawMainGroup = sawMainGroup || inMainGroup;
            continue;
        }
        if (!inMainGroup) continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const std::string key = trimmed(line.substr(0, eq));
        // The first occurrence of a key counts.
        keys.emplace(key, unescape(trimmed(line.substr(eq + 1))));
    }
    if (!sawMainGroup) return std::nullopt;
    auto value = [&](const std::string& key) -> std::string {
        auto it = keys.find(key);
        return it == keys.end() ? std::string() : it->second;
    };
    if (value("Type") != "Application") return std::nullopt;
    if (value("Hidden") == "true") return std::nullopt;

    DesktopEntry entry;
    entry.name = value("Name");
    for (const auto& language : languages) {
        auto it = keys.find("Name[" + language + "]");
        if (it != keys.end() && !it->second.empty()) {
            entry.name = it->second;
            break;
        }
    }
    entry.iconName = value("Icon");
    entry.startupWMClass = value("StartupWMClass");
    entry.noDisplay = value("NoDisplay") == "true";
    return entry;
}

DesktopEntryIndex::DesktopEntryIndex(const std::vector<fs::path>& applicationDirs,
                                     std::vector<std::string> languages) {
    // Ids seen in an earlier folder, including those it hides.
    std::map<std::string, bool> seen;
    for (const auto& dir : applicationDirs) scan(dir, languages, seen);
}

void DesktopEntryIndex::scan(const fs::path& dir, const std::vector<std::string>& languages,
                             std::map<std::string, bool>& seen) {
    std::error_code ec;
    if (!fs::is_directory(dir, ec)) return;
    fs::recursive_directory_iterator it(dir, fs::directory_options::skip_permission_denied, ec);
    if (ec) {
        log("DesktopEntryIndex: Cannot read ", dir.string(), ": ", ec.message());
        return;
    }
    for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec) break;
        const fs::path& path = it->path();
        if (path.extension() != ".desktop" || !it->is_regular_file(ec)) continue;
        // The desktop-file id: the path below the applications folder, '/' becoming '-'.
        std::string id = path.lexically_relative(dir).replace_extension().generic_string();
        std::replace(id.begin(), id.end(), '/', '-');
        if (seen.count(id)) continue;
        const auto contents = readFile(path);
        if (!contents) {
            log("DesktopEntryIndex: Cannot read ", path.string());
            continue;
        }
        auto entry = parseDesktopEntry(*contents, languages);
        seen[id] = entry.has_value();
        if (!entry) continue;
        entry->id = id;
        entry->path = path;
        entries_.emplace(id, std::move(*entry));
    }
}

std::vector<fs::path> DesktopEntryIndex::applicationDirectories(const Environment& env) {
    std::vector<fs::path> dirs{xdgDataHome(env) / "applications"};
    std::string dataDirs = env.get("XDG_DATA_DIRS").value_or("");
    if (dataDirs.empty()) dataDirs = "/usr/local/share/:/usr/share/";
    std::istringstream parts(dataDirs);
    std::string part;
    while (std::getline(parts, part, ':')) {
        // Relative entries are invalid and ignored, as the base-directory rules say.
        if (part.empty() || part[0] != '/') continue;
        dirs.push_back(fs::path(part) / "applications");
    }
    return dirs;
}

std::vector<std::string> DesktopEntryIndex::languagesFromEnvironment(const Environment& env) {
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = env.get(name).value_or("");
        if (!locale.empty()) break;
    }
    // "de_DE.UTF-8@euro": the encoding and modifier do not name a language.
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") return {};
    std::vector<std::string> languages{locale};
    const auto underscore = locale.find('_');
    if (underscore != std::string::npos) languages.push_back(locale.substr(0, underscore));
    return languages;
}

DesktopEntryIndex DesktopEntryIndex::fromEnvironment(const Environment& env) {
    return DesktopEntryIndex(applicationDirectories(env), languagesFromEnvironment(env));
}

std::optional<std::string> DesktopEntryIndex::applicationIdFor(const WindowClassHint& window) const {
    if (!window.applicationId.empty() && entries_.count(window.applicationId)) return window.applicationId;

    std::vector<std::string> candidates;
    for (const auto* name : {&window.className, &window.instance}) {
        if (!name->empty()) candidates.push_back(*name);
    }
    for (const auto& candidate : candidates) {
        for (const auto& [id, entry] : entries_) {
            if (entry.startupWMClass == candidate) return id;
        }
    }
    for (const auto& candidate : candidates) {
        for (const auto& [id, entry] : entries_) {
            if (!entry.startupWMClass.empty() && equalsIgnoringCase(entry.startupWMClass, candidate)) return id;
        }
    }
    for (const auto& candidate : candidates) {
        for (const auto& [id, entry] : entries_) {
            if (equalsIgnoringCase(id, candidate)) return id;
        }
    }
    // Reverse-DNS ids: "org.gnome.Gedit" for a window of class "Gedit".
    for (const auto& candidate : candidates) {
        for (const auto& [id, entry] : entries_) {
            const auto dot = id.rfind('.');
            if (dot != std::string::npos && equalsIgnoringCase(id.substr(dot + 1), candidate)) return id;
        }
    }
    return std::nullopt;
}

const DesktopEntry* DesktopEntryIndex::entry(const std::string& id) const {
    auto it = entries_.find(id);
    return it == entries_.end() ? nullptr : &it->second;
}

std::optional<std::string> DesktopEntryIndex::name(const std::string& id) const {
    const DesktopEntry* e = entry(id);
    if (!e || e->name.empty()) return std::nullopt;
    return e->name;
}

std::optional<std::string> DesktopEntryIndex::iconName(const std::string& id) const {
    const DesktopEntry* e = entry(id);
    if (!e || e->iconName.empty()) return std::nullopt;
    return e->iconName;
}

std::vector<DesktopEntry> DesktopEntryIndex::installedApplications() const {
    std::vector<DesktopEntry> apps;
    for (const auto& [id, entry] : entries_) {
        if (!entry.noDisplay) apps.push_back(entry);
    }
    std::stable_sort(apps.begin(), apps.end(), [](const DesktopEntry& a, const DesktopEntry& b) {
        return lowercase(a.name) < lowercase(b.name);
    });
    return apps;
}

}  // namespace vocle
