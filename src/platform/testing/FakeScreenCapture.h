#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/screen_capture.h"

namespace vocle::testing {

// A system-audio stream whose start and stop answer at once (by default) or when the test says.
class FakeSystemAudioStream final : public SystemAudioStream {
  public:
    std::optional<Error> addOutputError;
    std::optional<Error> startError;
    std::optional<Error> stopError;
    bool answerStartAtOnce = true;
    bool answerStopAtOnce = true;

    int startCount = 0;
    int stopCount = 0;

    std::optional<Error> addAudioOutput(DispatchQueue& queue,
                                        std::function<void(const AudioSampleBuffer&)> handler) override;
    void startCapture(Completion completion) override;
    void stopCapture(Completion completion) override;

    void answerStart() { answer(pendingStart_, startError); }
    void answerStop() { answer(pendingStop_, stopError); }
    // Queues one block of interleaved samples on the handler's queue.
    void deliver(std::vector<float> interleaved, int channels, double sampleRate);
    bool hasHandler() const { return static_cast<bool>(handler_); }

  private:
    static void answer(Completion& pending, const std::optional<Error>& error);
    DispatchQueue* queue_ = nullptr;
    std::function<void(const AudioSampleBuffer&)> handler_;
    Completion pendingStart_;
    Completion pendingStop_;
};

class FakeScreenCapture final : public ScreenCapture {
  public:
    bool preflight = true;
    bool requestAnswer = true;
    bool supported = true;
    std::optional<Error> makeError;
    bool answerMakeAtOnce = true;

    int requestCount = 0;
    std::vector<std::shared_ptr<FakeSystemAudioStream>> streams;
    // Applied to each new stream before it is handed out.
    std::function<void(FakeSystemAudioStream&)> configureStream;

    bool preflightAccess() const override { return preflight; }
    bool requestAccess() override {
        ++requestCount;
        return requestAnswer;
    }
    bool isSupported() const override { return supported; }
    void makeStream(std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) override;
    void answerMake();

    FakeSystemAudioStream& lastStream() { return *streams.back(); }

  private:
    std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> pendingMake_;
};

}  // namespace vocle::testing
