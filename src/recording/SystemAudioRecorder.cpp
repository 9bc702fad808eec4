#include "recording/SystemAudioRecorder.h"

#include "foundation/BindToMain.h"
#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"
#include "recording/SystemAudioController.h"
#include "recording/SystemAudioSink.h"

namespace vocle {

SystemAudioRecorder::SystemAudioRecorder(MainQueue& mainQueue, ScreenCapture& screenCapture,
                                         SystemAudioController& systemAudio, DispatchQueue& sampleQueue)
    : mainQueue_(mainQueue),
      screenCapture_(screenCapture),
      systemAudio_(systemAudio),
      sampleQueue_(sampleQueue) {}

SystemAudioRecorder::~SystemAudioRecorder() = default;

void SystemAudioRecorder::start(std::filesystem::path target, StartCallbacks callbacks) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    auto made = [this, target = std::move(target),
                 callbacks](Result<std::shared_ptr<SystemAudioStream>> result) mutable {
        if (callbacks.isCancelled()) {
            log("🚫 Cancel flagged — dropping the system audio stream that was still being set up");
            return;
        }
        if (!result.ok()) return callbacks.failed(result.error());
        auto stream = result.value();
        stream_ = stream;
        SystemAudioController* controller = &systemAudio_;
        sink_ = std::make_shared<SystemAudioSink>(
            target, [controller] { return controller->isPlayingSoundEffect(); });
        auto sink = sink_;
        if (auto error = stream->addAudioOutput(sampleQueue_,
                                                [sink](const AudioSampleBuffer& b) { sink->handle(b); })) {
            return callbacks.failed(*error);
        }
        stream->startCapture(bindToMain(mainQueue_, token_, callbacks.started));
    };
    screenCapture_.makeStream(bindToMain(mainQueue_, token_, made));
}

void SystemAudioRecorder::stop(Completion done) {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    stream_->stopCapture(bindToMain(mainQueue_, token_, done));
}

void SystemAudioRecorder::release() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    stream_.reset();
    if (sink_) sink_->close();
    sink_.reset();
}

void SystemAudioRecorder::dropLate() {
    VOCLE_ASSERT_MAIN_QUEUE(mainQueue_);
    if (!stream_) return;
    stream_->stopCapture([](std::optional<Error>) {});
    release();
}

std::optional<std::filesystem::path> SystemAudioRecorder::openFile() const {
    if (sink_ && sink_->isOpen()) return sink_->target();
    return std::nullopt;
}

std::optional<float> SystemAudioRecorder::level() const {
    if (stream_ && sink_) return sink_->lastAveragePower();
    return std::nullopt;
}

}  // namespace vocle
