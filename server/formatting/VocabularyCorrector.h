#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vocle::server {

// The user's terms, from the comma- (or line-) separated vocabulary text.
std::vector<std::string> parseVocabulary(std::string_view vocabWords);

// Replaces words (or runs of up to three words, for terms the recogniser split, like "get hub") that are
// within a small edit distance of a listed term with the term as written. Words of three letters or
// fewer only match exactly; the first letter must agree, which keeps ordinary words from being pulled in.
std::string applyVocabulary(std::string_view text, const std::vector<std::string>& terms);

}  // namespace vocle::server
