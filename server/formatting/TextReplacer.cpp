#include "formatting/TextReplacer.h"

#include <cctype>
#include <optional>

namespace vocle::server {

namespace {

bool isWordByte(unsigned char ch) {
    return std::isalnum(ch) || ch == '_' || ch == '\'' || ch >= 0x80;
}
bool isBlank(unsigned char ch) {
    return ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r';
}

std::string normalizedPhrase(std::string_view from) {
    std::string out;
    bool pendingSpace = false;
    for (unsigned char ch : from) {
        if (isBlank(ch)) {
            pendingSpace = !out.empty();
            continue;
        }
        if (pendingSpace) out.push_back(' ');
        pendingSpace = false;
        out.push_back(static_cast<char>(ch));
    }
    return out;
}

// End of the match of `phrase` at `pos`, or none.
std::optional<size_t> matchAt(std::string_view text, size_t pos, std::string_view phrase) {
    size_t t = pos;
    for (size_t p = 0; p < phrase.size(); ++p) {
        const auto pc = static_cast<unsigned char>(phrase[p]);
        if (pc == ' ') {
            if (t >= text.size() || !isBlank(static_cast<unsigned char>(text[t]))) return std::nullopt;
            while (t < text.size() && isBlank(static_cast<unsigned char>(text[t]))) ++t;
            continue;
        }
        if (t >= text.size()) return std::nullopt;
        const auto tc = static_cast<unsigned char>(text[t]);
        if (pc < 0x80 ? std::tolower(pc) != std::tolower(tc) : pc != tc) return std::nullopt;
        ++t;
    }
    return t;
}

bool onlyLineBreaks(std::string_view s) {
    if (s.empty()) return false;
    for (char ch : s) {
        if (ch != '\n' && ch != '\r') return false;
    }
    return true;
}

std::string replaceOne(std::string_view text, const TextReplacement& r) {
    const std::string phrase = normalizedPhrase(r.from);
    if (phrase.empty()) return std::string(text);
    const bool wordStart = isWordByte(static_cast<unsigned char>(phrase.front()));
    const bool wordEnd = isWordByte(static_cast<unsigned char>(phrase.back()));
    const bool absorbBlanks = onlyLineBreaks(r.to);
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        const bool boundaryBefore =
            !wordStart || i == 0 || !isWordByte(static_cast<unsigned char>(text[i - 1]));
        if (boundaryBefore) {
            if (auto end = matchAt(text, i, phrase)) {
                const bool boundaryAfter =
                    !wordEnd || *end == text.size() || !isWordByte(static_cast<unsigned char>(text[*end]));
                if (boundaryAfter) {
                    size_t next = *end;
                    if (absorbBlanks) {
                        while (!out.empty() && (out.back() == ' ' || out.back() == '\t')) out.pop_back();
                        while (next < text.size() && (text[next] == ' ' || text[next] == '\t')) ++next;
                    }
                    out += r.to;
                    i = next;
                    continue;
                }
            }
        }
        out.push_back(text[i]);
        ++i;
    }
    return out;
}

}  // namespace

std::string applyReplacements(std::string_view text, const std::vector<TextReplacement>& replacements) {
    std::string result(text);
    for (const auto& r : replacements) result = replaceOne(result, r);
    return result;
}

}  // namespace vocle::server
