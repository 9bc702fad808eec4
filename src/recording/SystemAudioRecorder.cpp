#include "recording/SystemAudioRecorder.h"

#include "foundation/Log.h"
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
    MainQueue* queue = &mainQueue_;
    auto made = token_.guard([this, queue, target = std::move(target),
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
        stream->startCapture([queue, started = callbacks.started](std::optional<Error> error) mutable {
            queue->post([started, error]() mutable { started(error); });
        });
    });
    screenCapture_.makeStream([queue, made](Result<std::shared_ptr<SystemAudioStream>> result) mutable {
        queue->post([made, result]() mutable { made(result); });
    });
}

void SystemAudioRecorder::stop(Completion done) {
    MainQueue* queue = &mainQueue_;
    stream_->stopCapture([queue, done](std::optional<Error> error) mutable {
        queue->post([done, error]() mutable { done(error); });
    });
}

void SystemAudioRecorder::release() {
    stream_.reset();
    if (sink_) sink_->close();
    sink_.reset();
}

void SystemAudioRecorder::dropLate() {
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
