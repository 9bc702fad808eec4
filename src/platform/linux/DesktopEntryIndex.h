#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace vocle {

// One installed application as its .desktop file describes it.
struct DesktopEntry {
    std::string id;  // file name without ".desktop"; sub-folders joined with '-'
    std::string name;
    std::string iconName;
    std::string startupWMClass;
    bool noDisplay = false;
    std::filesystem::path path;
};

// How a window names its application: `_GTK_APPLICATION_ID` and the two halves of `WM_CLASS`.
struct WindowClassHint {
    std::string applicationId;
    std::string instance;
    std::string className;
};

// The installed .desktop files of the applications folders, read once. Immutable after construction, so
// any thread may query it.
class DesktopEntryIndex {
  public:
    // `applicationDirs` in precedence order: an id found in an earlier folder hides later ones.
    // `languages` (e.g. {"de_DE", "de"}) picks localized names, most specific first.
    explicit DesktopEntryIndex(const std::vector<std::filesystem::path>& applicationDirs,
                               std::vector<std::string> languages = {});

    // $XDG_DATA_HOME/applications, then each $XDG_DATA_DIRS entry's applications folder.
    static std::vector<std::filesystem::path> applicationDirectories(const Environment& env);
    // The language candidates of $LC_ALL, $LC_MESSAGES or $LANG ("de_DE.UTF-8" -> "de_DE", "de").
    static std::vector<std::string> languagesFromEnvironment(const Environment& env);
    static DesktopEntryIndex fromEnvironment(const Environment& env);

    // The desktop-file id of a window's application: its application id when a file has it, else the
    // file whose StartupWMClass is the class or instance, else a file named like them (ignoring case,
    // also the last part of a reverse-DNS id). None when nothing matches.
    std::optional<std::string> applicationIdFor(const WindowClassHint& window) const;

    const DesktopEntry* entry(const std::string& id) const;
    std::optional<std::string> name(const std::string& id) const;
    std::optional<std::string> iconName(const std::string& id) const;

    // Applications a user can pick (NoDisplay left out), ordered by name.
    std::vector<DesktopEntry> installedApplications() const;

    size_t size() const { return entries_.size(); }

  private:
    void scan(const std::filesystem::path& dir, const std::vector<std::string>& languages,
              std::map<std::string, bool>& seen);
    std::map<std::string, DesktopEntry> entries_;
};

// Reads one .desktop file's [Desktop Entry] group. None when it is not an application, is Hidden, or
// cannot be read.
std::optional<DesktopEntry> parseDesktopEntry(const std::string& contents, const std::vector<std::string>& languages);

}  // namespace vocle
