#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vocle::server {

struct TextReplacement {
    std::string from;  // spoken phrase
    std::string to;    // text put in its place
};

// Each replacement in list order over the result of the previous ones: case-insensitive, whole words
// only, any run of blanks in the text matching one blank of the phrase. Text that is only line breaks
// takes the blanks around the phrase with it, so "new line" does not leave stray spaces.
std::string applyReplacements(std::string_view text, const std::vector<TextReplacement>& replacements);

}  // namespace vocle::server
