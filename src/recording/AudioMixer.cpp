#include "recording/AudioMixer.h"

#include <sndfile.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <memory>
#include <vector>

#include "media/Ffmpeg.h"

namespace vocle {

namespace {

constexpr const char* kFileDomain = "Vocle.AudioFile";

Error invalidFormats() {
    return Error{AudioMixer::kErrorDomain, AudioMixer::kInvalidFormats, "Invalid source formats"};
}
Error renderingError() {
    return Error{AudioMixer::kErrorDomain, AudioMixer::kRenderingError, "Rendering error"};
}
Error fileError(SNDFILE* file, const std::filesystem::path& path) {
    return Error{kFileDomain, sf_error(file), path.string() + ": " + sf_strerror(file)};
}

struct SndfileCloser {
    void operator()(SNDFILE* f) const { sf_close(f); }
};
using SndfilePtr = std::unique_ptr<SNDFILE, SndfileCloser>;

// One input, read block by block and converted to the output rate and channel count. After its end
// it yields silence.
class Source {
  public:
    std::optional<Error> open(const std::filesystem::path& path) {
        file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
        if (!file_) return fileError(nullptr, path);
        if (info_.channels <= 0 || info_.samplerate <= 0 || media::exceedsMaxSampleRate(info_.samplerate))
            return invalidFormats();
        return std::nullopt;
    }
    int rate() const { return info_.samplerate; }
    int channels() const { return info_.channels; }
    sf_count_t frames() const { return info_.frames; }

    std::optional<Error> prepare(int outRate, int outChannels) {
        outChannels_ = outChannels;
        if (outRate == rate() && outChannels == channels()) return std::nullopt;
        AVChannelLayout inLayout, outLayout;
        av_channel_layout_default(&inLayout, channels());
        av_channel_layout_default(&outLayout, outChannels);
        SwrContext* raw = nullptr;
        const int rc = swr_alloc_set_opts2(&raw, &outLayout, AV_SAMPLE_FMT_FLT, outRate, &inLayout,
                                           AV_SAMPLE_FMT_FLT, rate(), 0, nullptr);
        av_channel_layout_uninit(&inLayout);
        av_channel_layout_uninit(&outLayout);
        swr_.reset(raw);
        if (rc < 0 || !swr_) return invalidFormats();
        if (outChannels != channels()) {
            // A mono source goes to every output channel at full level; otherwise channel i stays i.
            std::vector<double> matrix(static_cast<size_t>(outChannels) * channels(), 0.0);
            for (int o = 0; o < outChannels; ++o) {
                if (channels() == 1) {
                    matrix[o] = 1.0;
                } else if (o < channels()) {
                    matrix[static_cast<size_t>(o) * channels() + o] = 1.0;
                }
            }
            if (swr_set_matrix(swr_.get(), matrix.data(), channels()) < 0) return invalidFormats();
        }
        if (swr_init(swr_.get()) < 0) return invalidFormats();
        return std::nullopt;
    }

    // Fills `out` (interleaved, output channels) with the next `frames` frames.
    std::optional<Error> read(float* out, size_t frames) {
        while (fifoFrames() < frames && !drained_) {
            if (auto error = pull()) return error;
        }
        const size_t have = std::min(frames, fifoFrames());
        const size_t n = have * outChannels_;
        std::copy_n(fifo_.begin() + static_cast<std::ptrdiff_t>(fifoPos_), n, out);
        std::fill(out + n, out + frames * outChannels_, 0.0f);
        fifoPos_ += n;
        if (fifoPos_ == fifo_.size()) {
            fifo_.clear();
            fifoPos_ = 0;
        }
        return std::nullopt;
    }

  private:
    size_t fifoFrames() const { return (fifo_.size() - fifoPos_) / outChannels_; }

    std::optional<Error> pull() {
        const size_t block = AudioMixer::kBlockFrames;
        in_.resize(block * channels());
        sf_count_t got = eof_ ? 0 : sf_readf_float(file_.get(), in_.data(), static_cast<sf_count_t>(block));
        if (got <= 0) eof_ = true;
        if (!swr_) {
            if (eof_) {
                drained_ = true;
                return std::nullopt;
            }
            compact();
            fifo_.insert(fifo_.end(), in_.begin(), in_.begin() + got * channels());
            return std::nullopt;
        }
        const int inFrames = eof_ ? 0 : static_cast<int>(got);
        const int capacity = swr_get_out_samples(swr_.get(), inFrames);
        if (capacity < 0) return renderingError();
        compact();
        const size_t base = fifo_.size();
        fifo_.resize(base + static_cast<size_t>(capacity) * outChannels_);
        uint8_t* outPlanes[1] = {reinterpret_cast<uint8_t*>(fifo_.data() + base)};
        const uint8_t* inPlanes[1] = {reinterpret_cast<const uint8_t*>(in_.data())};
        const int converted =
            swr_convert(swr_.get(), outPlanes, capacity, eof_ ? nullptr : inPlanes, inFrames);
        if (converted < 0) return renderingError();
        fifo_.resize(base + static_cast<size_t>(converted) * outChannels_);
        if (eof_ && converted == 0) drained_ = true;
        return std::nullopt;
    }
    void compact() {
        if (fifoPos_ == 0) return;
        fifo_.erase(fifo_.begin(), fifo_.begin() + static_cast<std::ptrdiff_t>(fifoPos_));
        fifoPos_ = 0;
    }

    SF_INFO info_{};
    SndfilePtr file_;
    media::ResamplerPtr swr_;
    int outChannels_ = 1;
    std::vector<float> in_;
    std::vector<float> fifo_;
    size_t fifoPos_ = 0;
    bool eof_ = false;
    bool drained_ = false;
};

}  // namespace

std::optional<Error> AudioMixer::mix(const std::filesystem::path& first, const std::filesystem::path& second,
                                     const std::filesystem::path& output) {
    Source a, b;
    if (auto error = a.open(first)) return error;
    if (auto error = b.open(second)) return error;

    const int outRate = std::max(a.rate(), b.rate());
    const int outChannels = std::max(a.channels(), b.channels());
    if (auto error = a.prepare(outRate, outChannels)) return error;
    if (auto error = b.prepare(outRate, outChannels)) return error;

    SF_INFO outInfo{};
    outInfo.samplerate = outRate;
    outInfo.channels = outChannels;
    outInfo.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    if (!sf_format_check(&outInfo)) return invalidFormats();
    SndfilePtr out(sf_open(output.c_str(), SFM_WRITE, &outInfo));
    if (!out) return fileError(nullptr, output);

    // Each input's length counts in its own rate; the longer one decides how much is rendered.
    const sf_count_t length = std::max(a.frames(), b.frames());
    const size_t samplesPerBlock = static_cast<size_t>(kBlockFrames) * outChannels;
    std::vector<float> bufA(samplesPerBlock), bufB(samplesPerBlock);
    for (sf_count_t position = 0; position < length;) {
        const size_t frames = static_cast<size_t>(std::min<sf_count_t>(kBlockFrames, length - position));
        if (auto error = a.read(bufA.data(), frames)) return error;
        if (auto error = b.read(bufB.data(), frames)) return error;
        const size_t n = frames * outChannels;
        for (size_t i = 0; i < n; ++i) bufA[i] = kSourceGain * bufA[i] + kSourceGain * bufB[i];
        if (sf_writef_float(out.get(), bufA.data(), static_cast<sf_count_t>(frames)) !=
            static_cast<sf_count_t>(frames)) {
            return fileError(out.get(), output);
        }
        position += static_cast<sf_count_t>(frames);
    }
    if (sf_close(out.release()) != 0)
        return Error{kFileDomain, 1, output.filename().string() + ": close failed"};
    return std::nullopt;
}

}  // namespace vocle
