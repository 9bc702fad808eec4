#include "platform/linux/PulseScreenCapture.h"

#include <memory>
#include <vector>

#include "platform/linux/PulseRecordStream.h"

namespace vocle {

namespace {

class PulseSystemAudioStream final : public SystemAudioStream {
  public:
    explicit PulseSystemAudioStream(PulseConnection& pulse) : pulse_(pulse) {}

    std::optional<Error> addAudioOutput(DispatchQueue& queue,
                                        std::function<void(const AudioSampleBuffer&)> handler) override {
        auto handlerPtr = std::make_shared<std::function<void(const AudioSampleBuffer&)>>(std::move(handler));
        DispatchQueue* q = &queue;
        stream_ = std::make_unique<PulseRecordStream>(
            pulse_, "@DEFAULT_MONITOR@",
            [q, handlerPtr](const float* s, size_t frames, int channels, double rate) {
                // The loop's buffer is only valid during this call: the queue gets its own copy.
                auto copy =
                    std::make_shared<std::vector<float>>(s, s + frames * static_cast<size_t>(channels));
                q->async([handlerPtr, copy, frames, channels, rate] {
                    AudioSampleBuffer b;
                    b.sampleRate = rate;
                    b.channels = channels;
                    b.frames = frames;
                    b.samples = copy->data();
                    (*handlerPtr)(b);
                });
            });
        return std::nullopt;
    }

    void startCapture(Completion completion) override {
        if (!stream_)
            return completion(Error{"PulseAudio", PA_ERR_INVALID, "No audio output was added to the stream"});
        stream_->start(std::move(completion));
    }

    void stopCapture(Completion completion) override {
        if (!stream_) return completion(Error{"PulseAudio", PA_ERR_BADSTATE, "The stream was not started"});
        auto failure = stream_->failure();
        stream_->stop();
        completion(failure);
    }

  private:
    PulseConnection& pulse_;
    std::unique_ptr<PulseRecordStream> stream_;
};

}  // namespace

void PulseScreenCapture::makeStream(
    std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) {
    if (auto error = pulse_.ensureConnected()) return completion(*error);
    completion(std::shared_ptr<SystemAudioStream>(std::make_shared<PulseSystemAudioStream>(pulse_)));
}

}  // namespace vocle
