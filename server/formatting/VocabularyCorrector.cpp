#include "formatting/VocabularyCorrector.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace vocle::server {

namespace {

std::string key(std::string_view s) {
    std::string out;
    for (unsigned char ch : s) {
        if (std::isalnum(ch) || ch >= 0x80) out.push_back(static_cast<char>(std::tolower(ch)));
    }
    return out;
}

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> previous(b.size() + 1), current(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + cost});
        }
        std::swap(previous, current);
    }
    return previous[b.size()];
}

size_t allowedDistance(size_t length) {
    if (length <= 3) return 0;
    if (length <= 6) return 1;
    if (length <= 10) return 2;
    return 3;
}

struct Token {
    std::string leading, core, trailing;
};

Token splitToken(const std::string& word) {
    size_t begin = 0, end = word.size();
    while (begin < end && !std::isalnum(static_cast<unsigned char>(word[begin])) &&
           static_cast<unsigned char>(word[begin]) < 0x80) {
        ++begin;
    }
    while (end > begin && !std::isalnum(static_cast<unsigned char>(word[end - 1])) &&
           static_cast<unsigned char>(word[end - 1]) < 0x80) {
        --end;
    }
    return {word.substr(0, begin), word.substr(begin, end - begin), word.substr(end)};
}

}  // namespace

std::vector<std::string> parseVocabulary(std::string_view vocabWords) {
    std::vector<std::string> out;
    std::string current;
    auto flush = [&] {
        size_t b = 0, e = current.size();
        while (b < e && std::isspace(static_cast<unsigned char>(current[b]))) ++b;
        while (e > b && std::isspace(static_cast<unsigned char>(current[e - 1]))) --e;
        if (e > b) out.push_back(current.substr(b, e - b));
        current.clear();
    };
    for (char ch : vocabWords) {
        if (ch == ',' || ch == '\n' || ch == ';') {
            flush();
        } else {
            current.push_back(ch);
        }
    }
    flush();
    return out;
}

std::string applyVocabulary(std::string_view text, const std::vector<std::string>& terms) {
    struct Term {
        std::string text, key;
        size_t words;
    };
    std::vector<Term> prepared;
    for (const auto& t : terms) {
        std::string k = key(t);
        if (k.empty()) continue;
        prepared.push_back({t, k, static_cast<size_t>(std::count(t.begin(), t.end(), ' ')) + 1});
    }
    // Split on blanks only, keeping line breaks as their own separators so layouts survive.
    std::vector<std::string> words;
    std::vector<std::string> separators;  // separators[i] follows words[i]
    std::string current, sep;
    std::string leadingSep;
    for (char ch : text) {
        if (std::isspace(static_cast<unsigned char>(ch))) {
            if (!current.empty()) {
                words.push_back(std::move(current));
                current.clear();
                separators.emplace_back();
            }
            if (words.empty()) {
                leadingSep.push_back(ch);
            } else {
                separators.back().push_back(ch);
            }
        } else {
            current.push_back(ch);
        }
    }
    if (!current.empty()) {
        words.push_back(std::move(current));
        separators.emplace_back();
    }
    if (prepared.empty() || words.empty()) return std::string(text);

    std::string out = leadingSep;
    size_t i = 0;
    while (i < words.size()) {
        struct Best {
            size_t distance, span;
            const Term* term;
        };
        std::optional<Best> best;
        std::string combined;
        for (size_t span = 1; span <= 3 && i + span <= words.size(); ++span) {
            if (span > 1 && separators[i + span - 2].find('\n') != std::string::npos) break;
            const Token tok = splitToken(words[i + span - 1]);
            if (span > 1 && !splitToken(words[i + span - 2]).trailing.empty()) break;  // punctuation between
            combined += key(tok.core);
            if (combined.empty()) break;
            for (const Term& term : prepared) {
                if (span > term.words + 1) continue;
                if (combined[0] != term.key[0]) continue;
                const size_t limit = allowedDistance(term.key.size());
                if (combined.size() + limit < term.key.size() || combined.size() > term.key.size() + limit)
                    continue;
                const size_t d = editDistance(combined, term.key);
                if (d > limit) continue;
                if (span > 1 && combined.size() < 4) continue;
                if (!best || d < best->distance || (d == best->distance && span > best->span)) {
                    best = Best{d, span, &term};
                }
            }
        }
        if (best) {
            const Token first = splitToken(words[i]);
            const Token last = splitToken(words[i + best->span - 1]);
            out += first.leading + best->term->text + last.trailing;
            i += best->span;
        } else {
            out += words[i];
            ++i;
        }
        out += separators[i - 1];
    }
    return out;
}

}  // namespace vocle::server
