#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vocle::server {

// A canonical 44-byte-header PCM WAV file of mono 16-bit samples.
std::string encodeWav(const std::vector<int16_t>& samples, int sampleRate);

}  // namespace vocle::server
