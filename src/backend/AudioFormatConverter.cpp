#include "backend/AudioFormatConverter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <memory>
#include <mutex>
#include <sstream>

#include "backend/DecimalText.h"
#include "foundation/Log.h"
#include "media/Ffmpeg.h"

namespace vocle {

namespace {

using Error = AudioFormatConverter::ConversionError;

constexpr int kFallbackSampleRate = 44100;

// Reads the source through our own I/O so that a header claiming a sample rate of 0 can be read as
// 44 100 Hz instead of being refused by the demuxer.
class SourceFile {
  public:
    explicit SourceFile(const std::filesystem::path& path) : file_(std::fopen(path.c_str(), "rb")) {
        if (file_) findZeroSampleRate();
    }
    ~SourceFile() {
        if (file_) std::fclose(file_);
    }
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;

    bool isOpen() const { return file_ != nullptr; }

    static int read(void* opaque, uint8_t* buffer, int size) {
        auto* self = static_cast<SourceFile*>(opaque);
        const long start = std::ftell(self->file_);
        const size_t got = std::fread(buffer, 1, static_cast<size_t>(size), self->file_);
        if (got == 0) return AVERROR_EOF;
        if (self->patchOffset_ >= 0) {
            for (long i = 0; i < 4; ++i) {
                const long at = self->patchOffset_ + i - start;
                if (at >= 0 && at < static_cast<long>(got)) buffer[at] = self->patch_[static_cast<size_t>(i)];
            }
        }
        return static_cast<int>(got);
    }

    static int64_t seek(void* opaque, int64_t offset, int whence) {
        auto* self = static_cast<SourceFile*>(opaque);
        if (whence & AVSEEK_SIZE) {
            const long here = std::ftell(self->file_);
            std::fseek(self->file_, 0, SEEK_END);
            const long size = std::ftell(self->file_);
            std::fseek(self->file_, here, SEEK_SET);
            return size;
        }
        if (std::fseek(self->file_, static_cast<long>(offset), whence & ~AVSEEK_FORCE) != 0) return -1;
        return std::ftell(self->file_);
    }

  private:
    static uint32_t le32(const unsigned char* p) {
        return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    }

    void findZeroSampleRate() {
        std::array<unsigned char, 4096> head{};
        const size_t n = std::fread(head.data(), 1, head.size(), file_);
        std::rewind(file_);
        if (n < 12 || std::memcmp(head.data(), "RIFF", 4) != 0 ||
            std::memcmp(head.data() + 8, "WAVE", 4) != 0)
            return;
        size_t pos = 12;
        while (pos + 8 <= n) {
            const uint32_t size = le32(head.data() + pos + 4);
            if (std::memcmp(head.data() + pos, "fmt ", 4) == 0) {
                const size_t rateAt = pos + 8 + 4;
                if (size >= 16 && rateAt + 4 <= n && le32(head.data() + rateAt) == 0) {
                    patchOffset_ = static_cast<long>(rateAt);
                    const uint32_t rate = kFallbackSampleRate;
                    patch_ = {uint8_t(rate), uint8_t(rate >> 8), uint8_t(rate >> 16), uint8_t(rate >> 24)};
                }
                return;
            }
            pos += 8 + size + (size & 1);
        }
    }

    std::FILE* file_;
    long patchOffset_ = -1;
    std::array<uint8_t, 4> patch_{};
};

std::string fixed(double value, int decimals) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(decimals) << value;
    return out.str();
}

uintmax_t sizeOr0(const std::filesystem::path& path) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    return ec ? 0 : size;
}

}  // namespace

int AudioFormatConverter::bitRateForSampleRate(double sampleRate) {
    if (sampleRate < 18000) return 48000;
    if (sampleRate < 26000) return 64000;
    if (sampleRate < 38000) return 96000;
    return 128000;
}

int AudioFormatConverter::encoderSampleRate(int sourceRate) {
    static constexpr int rates[] = {7350,  8000,  11025, 12000, 16000, 22050, 24000,
                                    32000, 44100, 48000, 64000, 88200, 96000};
    for (int rate : rates) {
        if (rate >= sourceRate) return rate;
    }
    return 96000;
}

bool AudioFormatConverter::convertToMP3(const std::filesystem::path& inputURL,
                                        const std::filesystem::path& outputURL) {
    // Failures reach the caller as ConversionError; FFmpeg's own chatter would only clutter the output.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_FATAL); });
    log("🔄 Converting audio from WAV to AAC (128kbps mono)...");
    const auto started = std::chrono::steady_clock::now();

    // Open and probe the source.
    SourceFile source(inputURL);
    if (!source.isOpen()) throw Error::invalidInputFile();
    constexpr int kIoBufferSize = 64 * 1024;
    auto* ioBuffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
    media::IoContextPtr io(avio_alloc_context(
        ioBuffer, kIoBufferSize, 0, &source, &SourceFile::read, nullptr, &SourceFile::seek));
    if (!io) {
        av_free(ioBuffer);
        throw Error::invalidInputFile();
    }
    AVFormatContext* rawIn = avformat_alloc_context();
    rawIn->pb = io.get();
    rawIn->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (avformat_open_input(&rawIn, nullptr, nullptr, nullptr) < 0)
        throw Error::invalidInputFile();  // frees rawIn
    media::InputFormatPtr in(rawIn);
    if (avformat_find_stream_info(in.get(), nullptr) < 0) throw Error::invalidInputFile();

    {
        std::error_code ec;
        std::filesystem::remove(outputURL, ec);  // a stale output is replaced; failing to remove is not fatal
    }

    const int streamIndex = av_find_best_stream(in.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (streamIndex < 0) throw Error::conversionFailed("No audio track found in source asset");
    AVStream* stream = in->streams[streamIndex];

    // A track without a single sample is as good as no track.
    media::PacketPtr packet(av_packet_alloc());
    int readStatus;
    while ((readStatus = av_read_frame(in.get(), packet.get())) >= 0 && packet->stream_index != streamIndex) {
        av_packet_unref(packet.get());
    }
    if (readStatus == AVERROR_EOF) throw Error::conversionFailed("No audio track found in source asset");
    if (readStatus < 0) throw Error::conversionFailed(media::errorText(readStatus));

    const int declaredRate = stream->codecpar->sample_rate;
    // A forged header rate (gigahertz) would keep the resampler building filters for minutes; such a
    // file goes up as it is and the backend answers for it.
    if (media::exceedsMaxSampleRate(declaredRate)) {
        throw Error::conversionFailed("Unsupported source sample rate: " + std::to_string(declaredRate) + " Hz");
    }
    const double sampleRate = declaredRate > 0 ? declaredRate : kFallbackSampleRate;
    const int bitRate = bitRateForSampleRate(sampleRate);
    log("🎛 Detected source sample rate: ", decimalText(sampleRate), " Hz; using AAC bitrate: ", bitRate,
        " bps");

    // Reader side: the decoder.
    const AVCodec* decoderCodec = avcodec_find_decoder(stream->codecpar->codec_id);
    media::CodecContextPtr decoder(avcodec_alloc_context3(decoderCodec));
    if (!decoderCodec || !decoder || avcodec_parameters_to_context(decoder.get(), stream->codecpar) < 0 ||
        avcodec_open2(decoder.get(), decoderCodec, nullptr) < 0) {
        throw Error::conversionFailed("Cannot add audio track to reader");
    }
    if (decoder->sample_rate <= 0) decoder->sample_rate = static_cast<int>(sampleRate);
    AVChannelLayout inLayout{};
    if (decoder->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC ||
        av_channel_layout_check(&decoder->ch_layout) == 0) {
        av_channel_layout_default(&inLayout, std::max(1, decoder->ch_layout.nb_channels));
    } else {
        av_channel_layout_copy(&inLayout, &decoder->ch_layout);
    }

    // Writer side: mono AAC-LC into an ".m4a" with the index at the front.
    const int outRate = encoderSampleRate(static_cast<int>(sampleRate));
    const AVCodec* encoderCodec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    media::CodecContextPtr encoder(avcodec_alloc_context3(encoderCodec));
    AVFormatContext* rawOut = nullptr;
    avformat_alloc_output_context2(&rawOut, nullptr, "ipod", outputURL.c_str());
    media::OutputFormatPtr out(rawOut);
    AVStream* outStream = out ? avformat_new_stream(out.get(), nullptr) : nullptr;
    if (!encoderCodec || !encoder || !outStream)
        throw Error::conversionFailed("Cannot add audio input to writer");
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = outRate;
    av_channel_layout_default(&encoder->ch_layout, 1);
    encoder->bit_rate = bitRate;
    encoder->profile = FF_PROFILE_AAC_LOW;
    encoder->time_base = AVRational{1, outRate};
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (avcodec_open2(encoder.get(), encoderCodec, nullptr) < 0 ||
        avcodec_parameters_from_context(outStream->codecpar, encoder.get()) < 0) {
        throw Error::conversionFailed("Cannot add audio input to writer");
    }
    outStream->time_base = encoder->time_base;

    if (int rc = avio_open(&out->pb, outputURL.c_str(), AVIO_FLAG_WRITE); rc < 0) {
        throw Error::conversionFailed(media::errorText(rc));
    }
    AVDictionary* muxOptions = nullptr;
    av_dict_set(&muxOptions, "movflags", "+faststart", 0);
    const int headerStatus = avformat_write_header(out.get(), &muxOptions);
    av_dict_free(&muxOptions);
    if (headerStatus < 0) throw Error::conversionFailed(media::errorText(headerStatus));

    // Mix down to mono float planar at the encoder's rate.
    SwrContext* rawSwr = nullptr;
    swr_alloc_set_opts2(&rawSwr, &encoder->ch_layout, AV_SAMPLE_FMT_FLTP, outRate, &inLayout,
                        decoder->sample_fmt, decoder->sample_rate, 0, nullptr);
    media::ResamplerPtr swr(rawSwr);
    av_channel_layout_uninit(&inLayout);
    if (!swr || swr_init(swr.get()) < 0) throw Error::conversionFailed("Cannot add audio track to reader");

    const int frameSize = encoder->frame_size > 0 ? encoder->frame_size : 1024;
    media::AudioFifoPtr fifo(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, 1, frameSize * 4));
    media::FramePtr decoded(av_frame_alloc());
    media::FramePtr chunk(av_frame_alloc());
    media::PacketPtr encodedPacket(av_packet_alloc());
    int64_t nextPts = 0;
    std::vector<float> converted;

    auto appendFailed = [](int rc) {
        return Error::conversionFailed(rc < 0 ? media::errorText(rc) : std::string("Failed to append audio sample"));
    };
    auto drainEncoder = [&] {
        int rc;
        while ((rc = avcodec_receive_packet(encoder.get(), encodedPacket.get())) >= 0) {
            encodedPacket->stream_index = outStream->index;
            av_packet_rescale_ts(encodedPacket.get(), encoder->time_base, outStream->time_base);
            if (int w = av_interleaved_write_frame(out.get(), encodedPacket.get()); w < 0)
                throw appendFailed(w);
        }
        if (rc != AVERROR(EAGAIN) && rc != AVERROR_EOF) throw appendFailed(rc);
    };
    auto encodeFrom = [&](int samples) {
        chunk->nb_samples = samples;
        chunk->format = AV_SAMPLE_FMT_FLTP;
        chunk->sample_rate = outRate;
        av_channel_layout_default(&chunk->ch_layout, 1);
        if (av_frame_get_buffer(chunk.get(), 0) < 0) throw appendFailed(0);
        av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(chunk->data), samples);
        chunk->pts = nextPts;
        nextPts += samples;
        int rc = avcodec_send_frame(encoder.get(), chunk.get());
        av_frame_unref(chunk.get());
        if (rc < 0) throw appendFailed(rc);
        drainEncoder();
    };
    auto pushConverted = [&](const uint8_t** data, int count) {
        const int capacity = swr_get_out_samples(swr.get(), count);
        if (capacity <= 0 && count > 0) return;
        converted.resize(static_cast<size_t>(std::max(capacity, 1)));
        auto* outPlane = reinterpret_cast<uint8_t*>(converted.data());
        const int got = swr_convert(swr.get(), &outPlane, capacity, data, count);
        if (got < 0) throw appendFailed(got);
        if (got > 0) av_audio_fifo_write(fifo.get(), reinterpret_cast<void**>(&outPlane), got);
        while (av_audio_fifo_size(fifo.get()) >= frameSize) encodeFrom(frameSize);
    };
    auto drainDecoder = [&] {
        int rc;
        while ((rc = avcodec_receive_frame(decoder.get(), decoded.get())) >= 0) {
            pushConverted(const_cast<const uint8_t**>(decoded->extended_data), decoded->nb_samples);
            av_frame_unref(decoded.get());
        }
        if (rc != AVERROR(EAGAIN) && rc != AVERROR_EOF) throw appendFailed(rc);
    };

    // The copy loop: packet by packet until the source ends.
    do {
        if (packet->stream_index == streamIndex) {
            int rc = avcodec_send_packet(decoder.get(), packet.get());
            if (rc < 0 && rc != AVERROR_INVALIDDATA) throw appendFailed(rc);
            drainDecoder();
        }
        av_packet_unref(packet.get());
        readStatus = av_read_frame(in.get(), packet.get());
    } while (readStatus >= 0);
    if (readStatus != AVERROR_EOF) throw Error::conversionFailed(media::errorText(readStatus));

    avcodec_send_packet(decoder.get(), nullptr);
    drainDecoder();
    pushConverted(nullptr, 0);  // resampler tail
    while (av_audio_fifo_size(fifo.get()) > 0)
        encodeFrom(std::min(frameSize, av_audio_fifo_size(fifo.get())));
    if (int rc = avcodec_send_frame(encoder.get(), nullptr); rc < 0) throw appendFailed(rc);
    drainEncoder();
    if (int rc = av_write_trailer(out.get()); rc < 0) throw Error::conversionFailed(media::errorText(rc));
    avio_closep(&out->pb);

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const uintmax_t inputBytes = sizeOr0(inputURL);
    const uintmax_t outputBytes = sizeOr0(outputURL);
    const double ratio = inputBytes > 0 ? double(outputBytes) / double(inputBytes) * 100.0 : 0.0;
    log("✅ Audio conversion completed in ", fixed(seconds, 2), "s");
    log("📦 File size: ", inputBytes, " bytes → ", outputBytes, " bytes (compression: ", fixed(ratio, 1),
        "%)");
    return true;
}

}  // namespace vocle
