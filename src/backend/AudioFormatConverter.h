#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace vocle {

// Re-encodes a finished recording as mono AAC-LC in an ".m4a" so the upload is several times smaller.
// Streams packet by packet through FFmpeg; no whole-file buffers. Blocking: run it off the main queue.
// The operation keeps its historical name although the output is AAC.
class AudioFormatConverter {
  public:
    class ConversionError : public std::runtime_error {
      public:
        enum class Kind { conversionFailed, invalidInputFile, outputFileCreationFailed };

        static ConversionError conversionFailed(const std::string& message) {
            return {Kind::conversionFailed, "Audio conversion failed: " + message};
        }
        static ConversionError invalidInputFile() {
            return {Kind::invalidInputFile, "Invalid input audio file"};
        }
        static ConversionError outputFileCreationFailed() {
            return {Kind::outputFileCreationFailed, "Failed to create output file"};
        }
        Kind kind() const { return kind_; }

      private:
        ConversionError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
        Kind kind_;
    };

    // Returns true or throws ConversionError. An existing output file is replaced; a partly written one
    // is left behind on failure.
    bool convertToMP3(const std::filesystem::path& inputURL, const std::filesystem::path& outputURL);

    // 48 000 / 64 000 / 96 000 / 128 000 bps below 18 000, 26 000 and 38 000 Hz and above.
    static int bitRateForSampleRate(double sampleRate);
    // The AAC encoder takes only the MPEG-4 rates; other sources are resampled up to the next one so no
    // bandwidth is lost (17 999 Hz -> 22 050 Hz, 38 000 Hz -> 44 100 Hz).
    static int encoderSampleRate(int sourceRate);
};

}  // namespace vocle
