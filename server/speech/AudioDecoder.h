#pragma once

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vocle::server {

enum class AudioFormat { Unknown, Wav, Mpeg4 };

// By content only: "RIFF....WAVE" or an ISO base-media "ftyp" box.
AudioFormat detectAudioFormat(std::string_view bytes);

// The bytes are a format we do not take (415).
class UnsupportedAudio : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The bytes claim a supported format but cannot be decoded (400).
class CorruptAudio : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline constexpr int kSpeechSampleRate = 16000;

// WAV (any PCM/float layout FFmpeg reads) or AAC in MPEG-4 to 16 kHz mono signed 16-bit samples.
// Stops with CorruptAudio past `maxSeconds` so a crafted file cannot exhaust memory.
std::vector<int16_t> decodeToSpeechPcm(std::string_view bytes, double maxSeconds);

}  // namespace vocle::server
