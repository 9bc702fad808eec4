#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>

#include "support/WordErrors.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

namespace vocle::testing {

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
