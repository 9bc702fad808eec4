#include "recording/SpeechResampler.h"

#include <algorithm>
#include <cmath>

namespace vocle {

namespace {
int16_t toS16(double v) {
    return static_cast<int16_t>(std::lround(std::clamp(v, -1.0, 1.0) * 32767.0));
}
}  // namespace

void SpeechResampler::process(const float* interleaved, size_t frames, int channels, double rate,
                              std::vector<int16_t>& out) {
    if (channels < 1 || rate <= 0 || frames == 0) return;
    if (rate != rate_) {  // a new device: start afresh
        rate_ = rate;
        phase_ = 0;
        sum_ = 0;
        count_ = 0;
    }
    const double step = kOutputRate / rate;  // output samples per input frame
    out.reserve(out.size() + static_cast<size_t>(static_cast<double>(frames) * step) + 2);
    for (size_t i = 0; i < frames; ++i) {
        double mono = 0;
        for (int c = 0; c < channels; ++c) mono += interleaved[i * static_cast<size_t>(channels) + c];
        mono /= channels;
        sum_ += mono;
        ++count_;
        phase_ += step;
        while (phase_ >= 1.0) {
            out.push_back(toS16(sum_ / count_));
            phase_ -= 1.0;
            // Upsampling repeats the sample; downsampling starts the next window.
            if (phase_ < 1.0) {
                sum_ = 0;
                count_ = 0;
            }
        }
    }
}

}  // namespace vocle
