#include "platform/linux/PulseAudioPlayback.h"

#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace vocle {

namespace {

class PulseSoundPlayer final : public SoundPlayer {
  public:
    PulseSoundPlayer(PulseConnection& pulse, std::vector<float> samples, int rate, int channels)
        : pulse_(pulse), samples_(std::move(samples)), rate_(rate), channels_(channels) {}
    ~PulseSoundPlayer() override { stop(); }

    void setVolume(float volume) override { volume_ = std::clamp(volume, 0.0f, 1.0f); }

    bool play(std::function<void()> finished) override {
        if (pulse_.ensureConnected()) return false;
        PulseConnection::Lock lock(pulse_);
        disconnectLocked();
        pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32NE, static_cast<uint32_t>(rate_),
                                    static_cast<uint8_t>(channels_)};
        stream_ = pa_stream_new(pulse_.context(), "Vocle sound effect", &sampleFormat, nullptr);
        if (!stream_) return false;
        finished_ = std::move(finished);
        offset_ = 0;
        // The volume goes into the samples, the stream plays at 100 %: WirePlumber replaces a new
        // stream's volume with the one it stored for the application, so on PipeWire a stream volume
        // would be ignored. An explicit 100 % also keeps PulseAudio's stream-restore out of it.
        scaled_.resize(samples_.size());
        std::transform(samples_.begin(), samples_.end(), scaled_.begin(),
                       [v = volume_](float sample) { return sample * v; });
        pa_stream_set_write_callback(stream_, writable, this);
        pa_cvolume volume;
        pa_cvolume_set(&volume, sampleFormat.channels, PA_VOLUME_NORM);
        if (pa_stream_connect_playback(stream_, nullptr, nullptr, PA_STREAM_NOFLAGS, &volume, nullptr) < 0) {
            disconnectLocked();
            return false;
        }
        return true;
    }

    void stop() override {
        PulseConnection::Lock lock(pulse_);
        disconnectLocked();
    }

  private:
    static void writable(pa_stream* s, size_t nbytes, void* userdata) {
        auto* self = static_cast<PulseSoundPlayer*>(userdata);
        const size_t total = self->scaled_.size() * sizeof(float);
        if (self->offset_ >= total) return;
        const size_t n = std::min(nbytes, total - self->offset_);
        pa_stream_write(s, reinterpret_cast<const uint8_t*>(self->scaled_.data()) + self->offset_, n, nullptr,
                        0, PA_SEEK_RELATIVE);
        self->offset_ += n;
        if (self->offset_ >= total) {
            pa_stream_set_write_callback(s, nullptr, nullptr);
            self->drainOp_ = pa_stream_drain(s, drained, self);
        }
    }
    static void drained(pa_stream* s, int, void* userdata) {
        auto* self = static_cast<PulseSoundPlayer*>(userdata);
        if (s != self->stream_) return;
        if (auto f = std::exchange(self->finished_, nullptr)) f();
    }
    void disconnectLocked() {
        finished_ = nullptr;
        if (drainOp_) {
            // A cancelled operation never calls back, so the callback cannot outlive the player.
            pa_operation_cancel(drainOp_);
            pa_operation_unref(drainOp_);
            drainOp_ = nullptr;
        }
        if (!stream_) return;
        pa_stream_set_write_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }

    PulseConnection& pulse_;
    std::vector<float> samples_;
    std::vector<float> scaled_;  // at the volume of the current play
    int rate_;
    int channels_;
    float volume_ = 1.0f;
    pa_stream* stream_ = nullptr;
    pa_operation* drainOp_ = nullptr;
    size_t offset_ = 0;
    std::function<void()> finished_;
};

}  // namespace

Result<std::shared_ptr<SoundPlayer>> PulseAudioPlayback::makePlayer(const std::filesystem::path& file) {
    SF_INFO info{};
    SNDFILE* f = sf_open(file.c_str(), SFM_READ, &info);
    if (!f)
        return Error{"Vocle.AudioFile", sf_error(nullptr),
                     file.filename().string() + ": " + sf_strerror(nullptr)};
    std::vector<float> samples(static_cast<size_t>(info.frames) * info.channels);
    sf_readf_float(f, samples.data(), info.frames);
    sf_close(f);
    if (info.channels <= 0 || info.channels > static_cast<int>(PA_CHANNELS_MAX) || info.samplerate <= 0)
        return Error{"Vocle.AudioFile", 0, file.filename().string() + ": unsupported format"};
    return std::shared_ptr<SoundPlayer>(
        std::make_shared<PulseSoundPlayer>(pulse_, std::move(samples), info.samplerate, info.channels));
}

}  // namespace vocle
