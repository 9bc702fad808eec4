#include "speech/AudioDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <cstring>
#include <memory>
#include <string>

#include "media/Ffmpeg.h"

namespace vocle::server {

AudioFormat detectAudioFormat(std::string_view b) {
    if (b.size() >= 12 && b.substr(0, 4) == "RIFF" && b.substr(8, 4) == "WAVE") return AudioFormat::Wav;
    if (b.size() >= 12 && b.substr(4, 4) == "ftyp") return AudioFormat::Mpeg4;
    return AudioFormat::Unknown;
}

namespace {

struct MemoryReader {
    std::string_view data;
    int64_t position = 0;
};

int readPacket(void* opaque, uint8_t* buffer, int size) {
    auto* r = static_cast<MemoryReader*>(opaque);
    const int64_t left = static_cast<int64_t>(r->data.size()) - r->position;
    if (left <= 0) return AVERROR_EOF;
    const int n = static_cast<int>(std::min<int64_t>(left, size));
    std::memcpy(buffer, r->data.data() + r->position, static_cast<size_t>(n));
    r->position += n;
    return n;
}

int64_t seekTo(void* opaque, int64_t offset, int whence) {
    auto* r = static_cast<MemoryReader*>(opaque);
    const auto size = static_cast<int64_t>(r->data.size());
    if (whence & AVSEEK_SIZE) return size;
    int64_t target = 0;
    switch (whence & ~AVSEEK_FORCE) {
        case SEEK_SET:
            target = offset;
            break;
        case SEEK_CUR:
            target = r->position + offset;
            break;
        case SEEK_END:
            target = size + offset;
            break;
        default:
            return -1;
    }
    if (target < 0 || target > size) return -1;
    r->position = target;
    return target;
}

}  // namespace

std::vector<int16_t> decodeToSpeechPcm(std::string_view bytes, double maxSeconds) {
    const AudioFormat format = detectAudioFormat(bytes);
    if (format == AudioFormat::Unknown) {
        throw UnsupportedAudio("Unsupported audio format: send WAV or AAC in an MPEG-4 (.m4a) container");
    }
    MemoryReader reader{bytes};
    constexpr int kBufferSize = 64 * 1024;
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    media::IoContextPtr io(
        avio_alloc_context(buffer, kBufferSize, 0, &reader, readPacket, nullptr, seekTo));
    if (!io) {
        av_free(buffer);
        throw std::runtime_error("Out of memory");
    }
    AVFormatContext* rawFormat = avformat_alloc_context();
    rawFormat->pb = io.get();
    rawFormat->flags |= AVFMT_FLAG_CUSTOM_IO;
    const AVInputFormat* input = av_find_input_format(format == AudioFormat::Wav ? "wav" : "mov");
    if (int rc = avformat_open_input(&rawFormat, nullptr, input, nullptr); rc < 0) {
        throw CorruptAudio("The audio could not be read: " + media::errorText(rc));
    }
    media::InputFormatPtr formatContext(rawFormat);
    if (int rc = avformat_find_stream_info(formatContext.get(), nullptr); rc < 0) {
        throw CorruptAudio("The audio could not be read: " + media::errorText(rc));
    }
    const int streamIndex = av_find_best_stream(formatContext.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (streamIndex < 0) throw CorruptAudio("The file has no audio track");
    AVStream* stream = formatContext->streams[streamIndex];
    const AVCodecID codecId = stream->codecpar->codec_id;
    if (format == AudioFormat::Mpeg4 && codecId != AV_CODEC_ID_AAC) {
        throw UnsupportedAudio(std::string("Unsupported audio codec in MPEG-4: ") +
                               avcodec_get_name(codecId) + " (send AAC)");
    }
    const AVCodec* codec = avcodec_find_decoder(codecId);
    if (!codec) throw UnsupportedAudio(std::string("Unsupported audio codec: ") + avcodec_get_name(codecId));
    media::CodecContextPtr decoder(avcodec_alloc_context3(codec));
    if (avcodec_parameters_to_context(decoder.get(), stream->codecpar) < 0 ||
        avcodec_open2(decoder.get(), codec, nullptr) < 0) {
        throw CorruptAudio("The audio decoder could not be opened");
    }
    if (decoder->sample_rate <= 0 || decoder->ch_layout.nb_channels <= 0) {
        throw CorruptAudio("The audio has no valid sample rate or channel count");
    }
    // A forged header rate (gigahertz) makes the resampler build filters for minutes.
    if (media::exceedsMaxSampleRate(decoder->sample_rate)) {
        throw CorruptAudio("The audio's sample rate (" + std::to_string(decoder->sample_rate) +
                           " Hz) is above the " + std::to_string(media::kMaxSourceSampleRate) + " Hz supported");
    }

    SwrContext* rawSwr = nullptr;
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    if (swr_alloc_set_opts2(&rawSwr, &mono, AV_SAMPLE_FMT_S16, kSpeechSampleRate, &decoder->ch_layout,
                            decoder->sample_fmt, decoder->sample_rate, 0, nullptr) < 0 ||
        swr_init(rawSwr) < 0) {
        swr_free(&rawSwr);
        throw CorruptAudio("The audio cannot be converted to 16 kHz mono");
    }
    media::ResamplerPtr swr(rawSwr);
    media::FramePtr frame(av_frame_alloc());
    media::PacketPtr packet(av_packet_alloc());

    const size_t maxSamples = static_cast<size_t>(maxSeconds * kSpeechSampleRate);
    std::vector<int16_t> pcm;
    auto convert = [&](const uint8_t** data, int count) {
        const int room = swr_get_out_samples(swr.get(), count);
        if (room < 0) throw CorruptAudio("Audio conversion failed");
        const size_t offset = pcm.size();
        pcm.resize(offset + static_cast<size_t>(room));
        uint8_t* out = reinterpret_cast<uint8_t*>(pcm.data() + offset);
        const int produced = swr_convert(swr.get(), &out, room, data, count);
        if (produced < 0) throw CorruptAudio("Audio conversion failed");
        pcm.resize(offset + static_cast<size_t>(produced));
        if (pcm.size() > maxSamples) {
            throw CorruptAudio("The recording is longer than the server accepts (" +
                               std::to_string(static_cast<int>(maxSeconds)) + " s)");
        }
    };
    auto drain = [&] {
        for (;;) {
            const int rc = avcodec_receive_frame(decoder.get(), frame.get());
            if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return;
            if (rc < 0) throw CorruptAudio("The audio could not be decoded: " + media::errorText(rc));
            convert(const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
            av_frame_unref(frame.get());
        }
    };
    for (;;) {
        const int rc = av_read_frame(formatContext.get(), packet.get());
        if (rc == AVERROR_EOF) break;
        if (rc < 0) {
            // A truncated tail still leaves usable audio; only a file that yields nothing is an error.
            if (pcm.empty()) throw CorruptAudio("The audio could not be read: " + media::errorText(rc));
            break;
        }
        if (packet->stream_index == streamIndex) {
            const int sent = avcodec_send_packet(decoder.get(), packet.get());
            av_packet_unref(packet.get());
            if (sent < 0 && sent != AVERROR(EAGAIN)) {
                if (sent == AVERROR_INVALIDDATA) continue;  // one damaged packet; keep the rest
                throw CorruptAudio("The audio could not be decoded: " + media::errorText(sent));
            }
            drain();
        } else {
            av_packet_unref(packet.get());
        }
    }
    avcodec_send_packet(decoder.get(), nullptr);
    drain();
    convert(nullptr, 0);  // flush the resampler's delay line
    return pcm;
}

}  // namespace vocle::server
