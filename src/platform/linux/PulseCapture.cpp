#include "platform/linux/PulseCapture.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <mutex>

#include "platform/linux/PulseRecordStream.h"

namespace vocle {

namespace {

constexpr const char* kDomain = "PulseAudio";

// What the record stream and the file output share; written on the loop thread.
struct OutputState {
    std::mutex mutex;
    std::vector<float> channelDb;
    bool hasData = false;
    bool hasInput = false;
    SNDFILE* file = nullptr;
    std::optional<Error> writeError;
    std::function<std::optional<Error>()> streamFailure;
    CaptureFileOutput::SampleTap tap;

    void consume(const float* samples, size_t frames, int channels, double rate) {
        std::lock_guard lock(mutex);
        channelDb.assign(static_cast<size_t>(channels), -120.0f);
        for (int c = 0; c < channels && frames > 0; ++c) {
            double sq = 0;
            for (size_t i = 0; i < frames; ++i) sq += samples[i * channels + c] * samples[i * channels + c];
            const double ms = sq / static_cast<double>(frames);
            channelDb[c] = static_cast<float>(std::max(10.0 * std::log10(std::max(ms, 1e-12)), -120.0));
        }
        hasData = true;
        if (file && frames > 0) {
            if (sf_writef_float(file, samples, static_cast<sf_count_t>(frames)) !=
                static_cast<sf_count_t>(frames))
                writeError = Error{"Vocle.AudioFile", sf_error(file), sf_strerror(file)};
            if (tap) tap(samples, frames, channels, rate);
        }
    }
};

class PulseFileOutput final : public CaptureFileOutput {
  public:
    explicit PulseFileOutput(MainQueue& mainQueue) : mainQueue_(mainQueue) {}

    std::shared_ptr<OutputState> state = std::make_shared<OutputState>();
    int rate = 48000;
    int channels = 1;

    std::vector<CaptureConnection> connections() const override {
        std::lock_guard lock(state->mutex);
        CaptureConnection c;
        if (state->hasData) c.channelAveragePowerDb = state->channelDb;
        return {c};
    }

    void startRecording(const std::filesystem::path& file, DidFinish didFinish) override {
        didFinish_ = std::move(didFinish);
        std::lock_guard lock(state->mutex);
        if (!state->hasInput) {
            recording_ = true;  // nothing will be written; stop reports why
            return;
        }
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = channels;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        state->file = sf_open(file.c_str(), SFM_WRITE, &info);
        if (!state->file) {
            state->writeError = Error{"Vocle.AudioFile", sf_error(nullptr),
                                      "Could not write " + file.string() + ": " + sf_strerror(nullptr)};
            return;
        }
        sf_command(state->file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        recording_ = true;
    }

    bool isRecording() const override { return recording_; }

    bool setSampleTap(SampleTap tap) override {
        std::lock_guard lock(state->mutex);
        state->tap = std::move(tap);
        return true;
    }

    void stopRecording() override {
        std::optional<Error> error;
        {
            std::lock_guard lock(state->mutex);
            if (state->file) sf_close(state->file);
            state->file = nullptr;
            state->tap = nullptr;
            error = state->writeError;
            if (!state->hasInput) {
                error = Error{kDomain, PA_ERR_NOENTITY, "No microphone was available to record from"};
            }
        }
        if (!error && state->streamFailure) error = state->streamFailure();
        recording_ = false;
        if (auto f = std::exchange(didFinish_, nullptr)) mainQueue_.post([f, error] { f(error); });
    }

  private:
    MainQueue& mainQueue_;
    bool recording_ = false;
    DidFinish didFinish_;
};

class PulseCaptureSession final : public CaptureSession {
  public:
    explicit PulseCaptureSession(PulseConnection& pulse) : pulse_(pulse) {}

    std::optional<Error> createInput(const CaptureDevice& device) override {
        auto sources = pulse_.sources();
        if (!sources.ok()) return sources.error();
        for (const auto& s : sources.value()) {
            if (s.name == device.uid) {
                pending_ = s;
                return std::nullopt;
            }
        }
        return Error{kDomain, PA_ERR_NOENTITY, "No such microphone: " + device.uid};
    }
    bool addInput() override {
        if (!pending_) return false;
        input_ = pending_;
        return true;
    }
    bool addOutput(std::shared_ptr<CaptureFileOutput> output) override {
        auto pulseOutput = std::dynamic_pointer_cast<PulseFileOutput>(output);
        if (!pulseOutput) return false;
        output_ = pulseOutput;
        return true;
    }
    void removeAll() override {
        stopRunning();
        input_.reset();
        output_.reset();
    }
    void startRunning() override {
        if (running_) return;
        running_ = true;
        if (!input_ || !output_) return;
        auto state = output_->state;
        output_->rate = static_cast<int>(input_->sampleFormat.rate);
        output_->channels = input_->sampleFormat.channels;
        {
            std::lock_guard lock(state->mutex);
            state->hasInput = true;
        }
        stream_ = std::make_shared<PulseRecordStream>(
            pulse_, input_->name, [state](const float* s, size_t frames, int channels, double rate) {
                state->consume(s, frames, channels, rate);
            });
        std::weak_ptr<PulseRecordStream> weak = stream_;
        state->streamFailure = [weak]() -> std::optional<Error> {
            if (auto s = weak.lock()) return s->failure();
            return std::nullopt;
        };
        stream_->start([state](std::optional<Error> error) {
            if (!error) return;
            std::lock_guard lock(state->mutex);
            state->writeError = error;
        });
    }
    void stopRunning() override {
        running_ = false;
        if (stream_) stream_->stop();
    }
    bool isRunning() const override { return running_; }

  private:
    PulseConnection& pulse_;
    std::optional<PulseConnection::Source> pending_;
    std::optional<PulseConnection::Source> input_;
    std::shared_ptr<PulseFileOutput> output_;
    std::shared_ptr<PulseRecordStream> stream_;
    bool running_ = false;
};

}  // namespace

InputAvailability PulseCapture::inputAvailability() const {
    if (pulse_.ensureConnected()) return InputAvailability::noSoundServer;
    auto sources = pulse_.sources();
    if (!sources.ok()) return InputAvailability::noSoundServer;
    for (const auto& s : sources.value())
        if (!s.isMonitor) return InputAvailability::available;
    return InputAvailability::noInputDevice;
}

std::vector<CaptureDevice> PulseCapture::devices() const {
    std::vector<CaptureDevice> list;
    auto sources = pulse_.sources();
    if (!sources.ok()) return list;
    for (const auto& s : sources.value())
        if (!s.isMonitor) list.push_back({s.name, s.description});
    return list;
}

std::optional<CaptureDevice> PulseCapture::device(const std::string& uid) const {
    auto sources = pulse_.sources();
    if (!sources.ok()) return std::nullopt;
    for (const auto& s : sources.value())
        if (s.name == uid) return CaptureDevice{s.name, s.description};
    return std::nullopt;
}

std::optional<CaptureDevice> PulseCapture::defaultDevice() const {
    auto info = pulse_.serverInfo();
    if (!info.ok() || info.value().defaultSource.empty()) return std::nullopt;
    // With no microphone left the servers fall back to a sink's monitor as the default source (PipeWire
    // at once); that is the speakers, not a microphone.
    auto sources = pulse_.sources();
    if (!sources.ok()) return std::nullopt;
    for (const auto& s : sources.value())
        if (s.name == info.value().defaultSource && !s.isMonitor) return CaptureDevice{s.name, s.description};
    return std::nullopt;
}

std::shared_ptr<CaptureSession> PulseCapture::makeSession() {
    return std::make_shared<PulseCaptureSession>(pulse_);
}

std::shared_ptr<CaptureFileOutput> PulseCapture::makeFileOutput() {
    return std::make_shared<PulseFileOutput>(mainQueue_);
}

}  // namespace vocle
