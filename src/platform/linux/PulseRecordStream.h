#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"
#include "platform/linux/PulseConnection.h"

namespace vocle {

// A float32 record stream on one source (or "@DEFAULT_MONITOR@") at the source's own rate and channel
// count. Blocks arrive on the PulseAudio loop thread.
class PulseRecordStream {
  public:
    using OnData = std::function<void(const float* interleaved, size_t frames, int channels, double rate)>;
    using Completion = std::function<void(std::optional<Error>)>;

    PulseRecordStream(PulseConnection& pulse, std::string device, OnData onData);
    ~PulseRecordStream();
    PulseRecordStream(const PulseRecordStream&) = delete;
    PulseRecordStream& operator=(const PulseRecordStream&) = delete;

    // `started` is called once, on the loop thread (or at once on a set-up error), when the stream
    // runs or has failed.
    void start(Completion started);
    void stop();
    bool isRunning() const { return running_.load(); }
    // Set when the stream died while running (the device went away, the server quit).
    std::optional<Error> failure() const;

  private:
    static void stateChanged(pa_stream* s, void* userdata);
    static void readable(pa_stream* s, size_t nbytes, void* userdata);
    void disconnectLocked();

    PulseConnection& pulse_;
    std::string device_;
    OnData onData_;
    pa_stream* stream_ = nullptr;
    Completion started_;
    std::atomic<bool> running_{false};
    mutable std::mutex failureMutex_;
    std::optional<Error> failure_;
    std::vector<float> silence_;
};

}  // namespace vocle
