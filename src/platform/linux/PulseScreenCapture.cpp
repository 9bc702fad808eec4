#include "platform/linux/PulseScreenCapture.h"

#include <memory>
#include <vector>

#include "platform/linux/PulseRecordStream.h"

namespace vocle {

namespace {

class PulseSystemAudioStream final : public SystemAudioStream {
  public:
    PulseSystemAudioStream(PulseConnection& pulse, MainQueue& mainQueue)
        : pulse_(pulse), mainQueue_(mainQueue) {}

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
            return answer(completion,
                          Error{"PulseAudio", PA_ERR_INVALID, "No audio output was added to the stream"});
        // The stream reports from the PulseAudio loop thread.
        stream_->start([queue = &mainQueue_, completion](std::optional<Error> error) {
            queue->post([completion, error] { completion(error); });
        });
    }

    void stopCapture(Completion completion) override {
        if (!stream_)
            return answer(completion, Error{"PulseAudio", PA_ERR_BADSTATE, "The stream was not started"});
        auto failure = stream_->failure();
        stream_->stop();
        answer(completion, failure);
    }

  private:
    void answer(const Completion& completion, std::optional<Error> error) {
        mainQueue_.post([completion, error] { completion(error); });
    }

    PulseConnection& pulse_;
    MainQueue& mainQueue_;
    std::unique_ptr<PulseRecordStream> stream_;
};

}  // namespace

void PulseScreenCapture::makeStream(
    std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) {
    auto result = [this]() -> Result<std::shared_ptr<SystemAudioStream>> {
        if (auto error = pulse_.ensureConnected()) return *error;
        return std::shared_ptr<SystemAudioStream>(
            std::make_shared<PulseSystemAudioStream>(pulse_, mainQueue_));
    }();
    mainQueue_.post([completion = std::move(completion), result] { completion(result); });
}

}  // namespace vocle
