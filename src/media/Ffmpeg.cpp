#include "media/Ffmpeg.h"

namespace vocle::media {

bool exceedsMaxSampleRate(long long rate) {
    return rate > kMaxSourceSampleRate;
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

void InputFormatDeleter::operator()(AVFormatContext* c) const {
    avformat_close_input(&c);
}

void OutputFormatDeleter::operator()(AVFormatContext* c) const {
    if (c->pb) avio_closep(&c->pb);
    avformat_free_context(c);
}

void CodecContextDeleter::operator()(AVCodecContext* c) const {
    avcodec_free_context(&c);
}

void PacketDeleter::operator()(AVPacket* p) const {
    av_packet_free(&p);
}

void FrameDeleter::operator()(AVFrame* f) const {
    av_frame_free(&f);
}

void ResamplerDeleter::operator()(SwrContext* s) const {
    swr_free(&s);
}

void AudioFifoDeleter::operator()(AVAudioFifo* f) const {
    av_audio_fifo_free(f);
}

void IoContextDeleter::operator()(AVIOContext* c) const {
    av_freep(&c->buffer);
    avio_context_free(&c);
}

}  // namespace vocle::media
