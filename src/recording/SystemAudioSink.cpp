#include "recording/SystemAudioSink.h"

#include <sndfile.h>

#include "foundation/Log.h"
#include "recording/LevelMeter.h"

namespace vocle {

SystemAudioSink::SystemAudioSink(std::filesystem::path target, std::function<bool()> silenced)
    : target_(std::move(target)), silenced_(std::move(silenced)) {}

SystemAudioSink::~SystemAudioSink() {
    close();
}

void SystemAudioSink::close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    if (file_) sf_close(file_);
    file_ = nullptr;
}

bool SystemAudioSink::isOpen() {
    std::lock_guard lock(mutex_);
    return file_ != nullptr;
}

void SystemAudioSink::handle(const AudioSampleBuffer& buffer) {
    if (buffer.channels <= 0 || buffer.sampleRate <= 0 || !buffer.samples) return;
    std::lock_guard lock(mutex_);
    if (closed_) return;
    if (channels_ == 0) {
        sampleRate_ = buffer.sampleRate;
        channels_ = buffer.channels;
    }
    if (!file_) {
        SF_INFO info{};
        info.samplerate = static_cast<int>(sampleRate_);
        info.channels = channels_;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        file_ = sf_open(target_.c_str(), SFM_WRITE, &info);
        if (!file_) {
            log("SC audio write error: ", sf_strerror(nullptr));
            return;
        }
        log("📄 SC: Opened audio file for writing at ", target_.string());
    }
    if (buffer.channels != channels_ || buffer.sampleRate != sampleRate_) {
        log("SC audio write error: the stream changed its format to ", buffer.channels, " channels at ",
            buffer.sampleRate, " Hz");
        return;
    }
    const float* samples = buffer.samples;
    if (silenced_ && silenced_()) {
        silence_.assign(buffer.frames * static_cast<size_t>(channels_), 0.0f);
        samples = silence_.data();
    }
    lastAveragePower_.store(LevelMeter::meanSquareDb(samples, buffer.frames, channels_));
    const auto written = sf_writef_float(file_, samples, static_cast<sf_count_t>(buffer.frames));
    if (written != static_cast<sf_count_t>(buffer.frames)) log("SC audio write error: ", sf_strerror(file_));
}

}  // namespace vocle
