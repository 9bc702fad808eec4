#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include "foundation/DispatchQueue.h"
#include "foundation/Error.h"

namespace vocle {

// One block of the computer's audio output: interleaved 32-bit float samples. The memory is valid
// only for the duration of the handler call.
struct AudioSampleBuffer {
    double sampleRate = 0;
    int channels = 0;
    size_t frames = 0;
    const float* samples = nullptr;
};

// A running capture of the system audio output (on Linux: the default sink's monitor).
class SystemAudioStream {
public:
    using Completion = std::function<void(std::optional<Error>)>;
    virtual ~SystemAudioStream() = default;

    // Sample blocks are delivered one at a time on `queue`, not on the main queue: a block's memory lives
    // only for the handler call, and a block every few milliseconds would crowd the main queue.
    virtual std::optional<Error> addAudioOutput(DispatchQueue& queue,
                                                std::function<void(const AudioSampleBuffer&)> handler) = 0;
    // Completions arrive on the main queue, after the call has returned.
    virtual void startCapture(Completion completion) = 0;
    virtual void stopCapture(Completion completion) = 0;
};

class ScreenCapture {
public:
    virtual ~ScreenCapture() = default;

    // May the process capture the screen (and its audio) without asking?
    virtual bool preflightAccess() const = 0;
    // Asks the user; true when allowed.
    virtual bool requestAccess() = 0;
    // False where the platform has no system-audio capture at all.
    virtual bool isSupported() const = 0;
    // Finds what to capture and builds the stream; the completion arrives on the main queue.
    virtual void makeStream(std::function<void(Result<std::shared_ptr<SystemAudioStream>>)> completion) = 0;
};

}  // namespace vocle
