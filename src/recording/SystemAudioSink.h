#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/screen_capture.h"

typedef struct sf_private_tag SNDFILE;

namespace vocle {

// The system-audio file and the last level. Blocks arrive on the system-audio queue; the main queue
// reads the level and closes the file once the stream has stopped. The file is opened with the
// format of the first block.
class SystemAudioSink {
  public:
    // `silenced` is asked per block: while it answers true, silence is written in place of the samples.
    SystemAudioSink(std::filesystem::path target, std::function<bool()> silenced);
    ~SystemAudioSink();
    SystemAudioSink(const SystemAudioSink&) = delete;
    SystemAudioSink& operator=(const SystemAudioSink&) = delete;

    void handle(const AudioSampleBuffer& buffer);
    // Completes the file on disk; later blocks are dropped.
    void close();
    bool isOpen();

    const std::filesystem::path& target() const { return target_; }
    // dB of the last block written, -60 before the first.
    float lastAveragePower() const { return lastAveragePower_.load(); }

  private:
    const std::filesystem::path target_;
    const std::function<bool()> silenced_;
    std::atomic<float> lastAveragePower_{-60.0f};

    std::mutex mutex_;
    SNDFILE* file_ = nullptr;
    double sampleRate_ = 0;
    int channels_ = 0;
    bool closed_ = false;
    std::vector<float> silence_;
};

}  // namespace vocle
