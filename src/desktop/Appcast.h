#pragma once

#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vocle {

// One release in an update feed (an RSS <item> with an <enclosure>).
struct AppcastItem {
    std::string title;
    std::string version;       // sparkle:version, compared with ours
    std::string shortVersion;  // sparkle:shortVersionString, shown to the user
    std::string releaseNotes;  // <description> text (may be HTML)
    std::string releaseNotesLink;
    std::string downloadURL;   // the enclosure's url
    std::string link;          // the item's <link>, else the download
    std::string pubDate;

    const std::string& displayVersion() const { return shortVersion.empty() ? version : shortVersion; }
    // Where the announcement sends the user: the item's page, else its notes, else the download.
    std::string infoURL() const;
};

// Parses an appcast feed. Items without a version are skipped; a document that is not an RSS feed is
// an error with a readable description.
Result<std::vector<AppcastItem>> parseAppcast(const std::string& xml);

// Orders version strings the way release numbers are read: numeric parts by value ("1.10" > "1.9"),
// missing parts are older than numbers and newer than pre-release tags ("1.0" > "1.0b2" > "1.0b1").
// Negative, zero or positive, as strcmp.
int compareVersions(const std::string& a, const std::string& b);

// The item with the highest version, if any.
std::optional<AppcastItem> newestItem(const std::vector<AppcastItem>& items);

}  // namespace vocle
