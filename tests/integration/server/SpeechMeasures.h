#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

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

inline std::vector<int16_t> readWavSamples(const std::filesystem::path& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_NE(file, nullptr) << path;
    if (!file) return {};
    EXPECT_EQ(info.samplerate, 16000);
    EXPECT_EQ(info.channels, 1);
    std::vector<int16_t> samples(static_cast<size_t>(info.frames));
    sf_read_short(file, samples.data(), info.frames);
    sf_close(file);
    return samples;
}

}  // namespace vocle::testing
