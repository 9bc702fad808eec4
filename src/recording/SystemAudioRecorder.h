#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "foundation/DispatchQueue.h"
#include "foundation/Error.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "platform/screen_capture.h"

namespace vocle {

class SystemAudioController;
class SystemAudioSink;

// The system-audio stream and its file writer. Sets the stream up, starts and stops it, and reports
// on the main queue; the life-cycle decisions stay with the engine. Main queue only.
class SystemAudioRecorder {
  public:
    using Completion = std::function<void(std::optional<Error>)>;
    struct StartCallbacks {
        std::function<bool()> isCancelled;         // asked once the stream has been made
        std::function<void(const Error&)> failed;  // making or wiring the stream failed
        Completion started;                        // the start completion, on the main queue
    };

    SystemAudioRecorder(MainQueue& mainQueue, ScreenCapture& screenCapture,
                        SystemAudioController& systemAudio, DispatchQueue& sampleQueue);
    ~SystemAudioRecorder();

    // Samples go to `target`, silenced while a sound effect plays.
    void start(std::filesystem::path target, StartCallbacks callbacks);
    // Stops the stream; `done` runs on the main queue. The stream and file stay until release().
    void stop(Completion done);
    // Drops the stream and closes the file, which completes it on disk.
    void release();
    // A stream that started after a cancel: stopped without waiting, then released.
    void dropLate();

    bool hasStream() const { return stream_ != nullptr; }
    // The file being written, when the writer has it open.
    std::optional<std::filesystem::path> openFile() const;
    // The last block's level, while a stream exists.
    std::optional<float> level() const;

  private:
    MainQueue& mainQueue_;
    ScreenCapture& screenCapture_;
    SystemAudioController& systemAudio_;
    DispatchQueue& sampleQueue_;
    std::shared_ptr<SystemAudioStream> stream_;
    // Written by the sample handler on the sample queue, released on the main queue.
    std::shared_ptr<SystemAudioSink> sink_;
    OwnerToken token_;
};

}  // namespace vocle
