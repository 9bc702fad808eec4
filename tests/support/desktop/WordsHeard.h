#pragma once

#include <cctype>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace vocle::testing {

// How many of the reference's words are in the text: the recogniser gets most, not all, right, so
// dictation tests count words rather than compare text.
inline size_t wordsHeard(const std::string& text, const std::string& reference) {
    std::string cleaned;
    for (const char c : text)
        cleaned += std::isalpha(static_cast<unsigned char>(c)) ? static_cast<char>(std::tolower(c)) : ' ';
    std::istringstream heard(cleaned);
    std::set<std::string> words{std::istream_iterator<std::string>(heard), {}};
    std::istringstream expected(reference);
    size_t n = 0;
    for (std::string w; expected >> w;) n += words.count(w);
    return n;
}

}  // namespace vocle::testing
