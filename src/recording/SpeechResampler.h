#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vocle {

// Turns capture blocks (interleaved float at the device's rate and channel count) into 16 kHz mono
// 16-bit samples for the recogniser: channels averaged, each output sample the mean of the input
// samples it covers (a box filter, enough against aliasing for speech), held when the device runs
// slower. Keeps its phase across blocks. One thread at a time (the capture thread).
class SpeechResampler {
  public:
    static constexpr double kOutputRate = 16000.0;

    // Appends the converted samples of one block to `out`.
    void process(const float* interleaved, size_t frames, int channels, double rate,
                 std::vector<int16_t>& out);

  private:
    double rate_ = 0;
    double phase_ = 0;  // output samples owed, in [0, 1)
    double sum_ = 0;
    int count_ = 0;
};

}  // namespace vocle
