#pragma once

#include <filesystem>
#include <optional>

#include "foundation/Error.h"

namespace vocle {

// Offline mix of two WAV files into one 32-bit float WAV at the larger sample rate and the larger
// channel count, each source at 0.9 gain. Streams in 4096-frame blocks; never holds a whole file.
class AudioMixer {
public:
    static constexpr int kBlockFrames = 4096;
    static constexpr float kSourceGain = 0.9f;
    static inline const char* kErrorDomain = "Vocle.Mix";
    static constexpr int kInvalidFormats = -10;
    static constexpr int kRenderingError = -20;

    // Output length is the larger of the two inputs' frame counts, each counted at its own rate.
    // File errors come back with the domain "Vocle.AudioFile".
    static std::optional<Error> mix(const std::filesystem::path& first, const std::filesystem::path& second,
                                    const std::filesystem::path& output);
};

}  // namespace vocle
