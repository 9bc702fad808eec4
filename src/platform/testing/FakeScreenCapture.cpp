#include "platform/testing/FakeScreenCapture.h"

namespace vocle::testing {

std::optional<Error> FakeSystemAudioStream::addAudioOutput(
    DispatchQueue& queue, std::function<void(const AudioSampleBuffer&)> handler) {
    if (addOutputError) return addOutputError;
    queue_ = &queue;
    handler_ = std::move(handler);
    return std::nullopt;
}

void FakeSystemAudioStream::startCapture(Completion completion) {
    ++startCount;
    pendingStart_ = std::move(completion);
    if (answerStartAtOnce) answerStart();
}

void FakeSystemAudioStream::stopCapture(Completion completion) {
    ++stopCount;
    pendingStop_ = std::move(completion);
    if (answerStopAtOnce) answerStop();
}

void FakeSystemAudioStream::answer(Completion& pending, const std::optional<Error>& error) {
    if (auto f = std::exchange(pending, nullptr)) f(error);
}

void FakeSystemAudioStream::deliver(std::vector<float> interleaved, int channels, double sampleRate) {
    if (!queue_ || !handler_) return;
    queue_->async([handler = handler_, samples = std::move(interleaved), channels, sampleRate] {
        AudioSampleBuffer b;
        b.sampleRate = sampleRate;
        b.channels = channels;
        b.frames = samples.size() / static_cast<size_t>(channels);
        b.samples = samples.data();
        handler(b);
    });
}

void FakeScreenCapture::makeStream(
    std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) {
    pendingMake_ = std::move(completion);
    if (answerMakeAtOnce) answerMake();
}

void FakeScreenCapture::answerMake() {
    auto f = std::exchange(pendingMake_, nullptr);
    if (!f) return;
    if (makeError) return f(*makeError);
    auto s = std::make_shared<FakeSystemAudioStream>();
    if (configureStream) configureStream(*s);
    streams.push_back(s);
    f(std::shared_ptr<SystemAudioStream>(s));
}

}  // namespace vocle::testing
