#include "platform/linux/PulseRecordStream.h"

namespace vocle {

namespace {
constexpr const char* kDomain = "PulseAudio";
}

PulseRecordStream::PulseRecordStream(PulseConnection& pulse, std::string device, OnData onData)
    : pulse_(pulse), device_(std::move(device)), onData_(std::move(onData)) {}

PulseRecordStream::~PulseRecordStream() {
    stop();
}

void PulseRecordStream::start(Completion started) {
    if (auto e = pulse_.ensureConnected()) return started(*e);

    // The stream takes the device's own format, so nothing is resampled on the way.
    pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32NE, 48000, 2};
    std::string lookFor = device_;
    if (device_ == "@DEFAULT_MONITOR@") {
        // The server names the monitor: "<sink>.monitor" by custom only.
        auto info = pulse_.serverInfo();
        if (!info.ok()) return started(info.error());
        auto sinks = pulse_.sinks();
        if (!sinks.ok()) return started(sinks.error());
        lookFor.clear();
        for (const auto& s : sinks.value())
            if (s.name == info.value().defaultSink) lookFor = s.monitorSource;
        if (lookFor.empty())
            return started(
                Error{kDomain, PA_ERR_NOENTITY,
                      "No output device to record from (default: " + info.value().defaultSink + ")"});
    }
    auto sources = pulse_.sources();
    if (!sources.ok()) return started(sources.error());
    bool found = false;
    for (const auto& s : sources.value()) {
        if (s.name == lookFor) {
            sampleFormat.rate = s.sampleFormat.rate;
            sampleFormat.channels = s.sampleFormat.channels;
            found = true;
        }
    }
    if (!found) {
        return started(Error{kDomain, PA_ERR_NOENTITY, "No such audio source: " + lookFor});
    }

    PulseConnection::Lock lock(pulse_);
    disconnectLocked();
    stream_ = pa_stream_new(pulse_.context(), "Vocle recording", &sampleFormat, nullptr);
    if (!stream_) return started(pulse_.error("Could not create the record stream"));
    started_ = std::move(started);
    pa_stream_set_state_callback(stream_, stateChanged, this);
    pa_stream_set_read_callback(stream_, readable, this);
    pa_buffer_attr attr{};
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.fragsize =
        static_cast<uint32_t>(pa_usec_to_bytes(20'000, &sampleFormat));  // 20 ms blocks for the meter
    // Never moved: when the device goes away both servers carry a stream to whatever input is left,
    // a sink's monitor when no microphone remains, so a "microphone" recording would go on with what
    // the speakers play. Pinned, the stream ends with its device.
    const auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE);
    if (pa_stream_connect_record(stream_, lookFor.c_str(), &attr, flags) < 0) {
        auto e = pulse_.error("Could not start recording from " + lookFor);
        disconnectLocked();
        if (auto f = std::exchange(started_, nullptr)) f(e);
    }
}

void PulseRecordStream::stop() {
    PulseConnection::Lock lock(pulse_);
    disconnectLocked();
}

void PulseRecordStream::disconnectLocked() {
    running_ = false;
    if (!stream_) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_read_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(stream_);
    stream_ = nullptr;
    started_ = nullptr;
}

std::optional<Error> PulseRecordStream::failure() const {
    std::lock_guard lock(failureMutex_);
    return failure_;
}

void PulseRecordStream::stateChanged(pa_stream* s, void* userdata) {
    auto* self = static_cast<PulseRecordStream*>(userdata);
    const auto state = pa_stream_get_state(s);
    if (state == PA_STREAM_READY) {
        self->running_ = true;
        if (auto f = std::exchange(self->started_, nullptr)) f(std::nullopt);
    } else if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
        const bool wasRunning = self->running_.exchange(false);
        const int code = pa_context_errno(pa_stream_get_context(s));
        Error e{kDomain, code ? code : PA_ERR_KILLED,
                std::string("The audio device stopped delivering sound: ") +
                    pa_strerror(code ? code : PA_ERR_KILLED)};
        if (auto f = std::exchange(self->started_, nullptr)) {
            f(e);
        } else if (wasRunning) {
            std::lock_guard lock(self->failureMutex_);
            self->failure_ = e;
        }
    }
}

void PulseRecordStream::readable(pa_stream* s, size_t, void* userdata) {
    auto* self = static_cast<PulseRecordStream*>(userdata);
    const pa_sample_spec* sampleFormat = pa_stream_get_sample_spec(s);
    for (;;) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(s, &data, &bytes) < 0 || bytes == 0) return;
        if (self->onData_) {
            const size_t frames = bytes / (sizeof(float) * sampleFormat->channels);
            if (data) {
                self->onData_(static_cast<const float*>(data), frames, sampleFormat->channels,
                              sampleFormat->rate);
            } else {
                // A hole in the stream becomes silence, so the file keeps the recording's timing.
                self->silence_.assign(frames * sampleFormat->channels, 0.0f);
                self->onData_(self->silence_.data(), frames, sampleFormat->channels, sampleFormat->rate);
            }
        }
        pa_stream_drop(s);
    }
}

}  // namespace vocle
