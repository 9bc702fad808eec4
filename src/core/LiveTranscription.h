#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/Error.h"

namespace vocle {

// 16 kHz mono 16-bit little-endian samples on their way from the capture thread to the main queue. The
// capture thread appends under a lock and nothing else: the main queue collects on its own schedule, so
// an audio block never costs a main-queue task.
class PcmBuffer {
  public:
    static constexpr int kSampleRate = 16000;

    // Any thread. Ignored once closed.
    void append(const int16_t* samples, size_t count);
    // Everything appended since the last take, as bytes.
    std::string take();
    // No more appends are kept; what is held is dropped when `discard`.
    void close(bool discard);
    // Samples appended in total.
    uint64_t appendedSamples() const;

  private:
    mutable std::mutex mutex_;
    std::string bytes_;
    uint64_t appended_ = 0;
    bool closed_ = false;
};

// One recording transcribed while it is captured. Main queue, apart from the buffer.
class LiveAudioStream {
  public:
    virtual ~LiveAudioStream() = default;
    // Where the capture thread puts the audio.
    virtual std::shared_ptr<PcmBuffer> buffer() const = 0;
    // The recording is complete in `audioFile`. The completion gets the transcript exactly once, on any
    // thread: from the stream, or from the file when the stream failed at any point.
    virtual void finish(const std::filesystem::path& audioFile,
                        std::function<void(Result<std::string>)> completion) = 0;
    // The recording was cancelled: the stream is dropped here and at the server.
    virtual void cancel() = 0;
};

// What the recording engine asks for a live transcription: the streaming uploader.
class LiveTranscriber {
  public:
    virtual ~LiveTranscriber() = default;
    // Null when live transcription is off. `onPartial` gets the best text so far, on the main queue.
    virtual std::shared_ptr<LiveAudioStream> openStream(const Mode& mode, const std::string& vocabWords,
                                                        const std::vector<Replacement>& replacements,
                                                        std::function<void(std::string)> onPartial) = 0;
};

}  // namespace vocle
