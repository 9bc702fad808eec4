#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

// What the client's converter and mixer and the server's decoder share about FFmpeg: owning handles,
// error text and the highest plausible sample rate.
namespace vocle::media {

// Professional audio tops out at 768 kHz; a header claiming more is forged, and the resampler would
// spend minutes building filters for it.
inline constexpr int kMaxSourceSampleRate = 768000;
bool exceedsMaxSampleRate(long long rate);

// av_strerror's text for an FFmpeg error code.
std::string errorText(int code);

struct InputFormatDeleter {
    void operator()(AVFormatContext* c) const;
};
// An output context: closes its file, then frees it.
struct OutputFormatDeleter {
    void operator()(AVFormatContext* c) const;
};
struct CodecContextDeleter {
    void operator()(AVCodecContext* c) const;
};
struct PacketDeleter {
    void operator()(AVPacket* p) const;
};
struct FrameDeleter {
    void operator()(AVFrame* f) const;
};
struct ResamplerDeleter {
    void operator()(SwrContext* s) const;
};
struct AudioFifoDeleter {
    void operator()(AVAudioFifo* f) const;
};
// A custom I/O context: frees its buffer with it.
struct IoContextDeleter {
    void operator()(AVIOContext* c) const;
};

using InputFormatPtr = std::unique_ptr<AVFormatContext, InputFormatDeleter>;
using OutputFormatPtr = std::unique_ptr<AVFormatContext, OutputFormatDeleter>;
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerDeleter>;
using AudioFifoPtr = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;
using IoContextPtr = std::unique_ptr<AVIOContext, IoContextDeleter>;

}  // namespace vocle::media
