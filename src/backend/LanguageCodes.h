#pragma once

#include <map>
#include <string>

namespace vocle {

// Display name of a language (as modes store it) to the code the backend expects; 50 rows.
const std::map<std::string, std::string>& languageCodeMapping();

// The code for a display name, or the name itself when the table does not know it. Exact match only.
std::string languageCode(const std::string& languageName);

}  // namespace vocle
