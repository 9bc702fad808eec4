#pragma once

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

// Word error counting shared by the speech tests and the streaming benchmark.
namespace vocle::testing {

// Lower-case words, punctuation dropped: what a word error rate compares.
inline std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> out;
    std::string current;
    for (unsigned char ch : text) {
        if (std::isalnum(ch) || ch == '\'') {
            current.push_back(static_cast<char>(std::tolower(ch)));
        } else if (!current.empty()) {
            out.push_back(current);
            current.clear();
        }
    }
    if (!current.empty()) out.push_back(current);
    return out;
}

// Substitutions, insertions and deletions that turn `ref` into `hyp`.
inline size_t wordErrors(const std::vector<std::string>& ref, const std::vector<std::string>& hyp) {
    std::vector<size_t> prev(hyp.size() + 1), cur(hyp.size() + 1);
    for (size_t j = 0; j <= hyp.size(); ++j) prev[j] = j;
    for (size_t i = 1; i <= ref.size(); ++i) {
        cur[0] = i;
        for (size_t j = 1; j <= hyp.size(); ++j) {
            cur[j] =
                std::min({prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (ref[i - 1] == hyp[j - 1] ? 0 : 1)});
        }
        std::swap(prev, cur);
    }
    return prev[hyp.size()];
}

}  // namespace vocle::testing
