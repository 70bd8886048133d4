#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

// libavcodec driven straight: what our encoders are held against, and what reads their output.

namespace avCodecs {

struct Delete {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Context = std::unique_ptr<AVCodecContext, Delete>;
using Frame = std::unique_ptr<AVFrame, Delete>;
using Packet = std::unique_ptr<AVPacket, Delete>;

struct Coded {
    std::vector<unsigned char> bytes;
    long long decodeTime = 0;
    long long displayTime = 0;
};

/// A decoded picture as a number, so that two can be compared, with its time.
struct Picture {
    long long time = 0;
    std::uint64_t hash = 0;
};

struct Decoded {
    std::vector<Picture> pictures;  ///< in display order
    std::vector<float> sound;       ///< of the first channel
    bool clean = true;              ///< the decoder had nothing to complain about
    int width = 0;
    int height = 0;
    int delay = 0;  ///< pictures that the stream says it reorders by
};

inline std::uint64_t HashOf(const AVFrame& frame) {
    std::uint64_t hash = 1469598103934665603u;
    for (int plane = 0; plane < 3 && frame.data[plane]; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        for (int y = 0; y < frame.height >> shift; ++y) {
            const uint8_t* row =
                frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane];
            for (int x = 0; x < frame.width >> shift; ++x) hash = (hash ^ row[x]) * 1099511628211u;
        }
    }
    return hash;
}

/// Decodes it all. `description` is what decoders need beforehand, as a container would keep it.
inline Decoded Decode(AVCodecID codec, const std::vector<unsigned char>& description,
                      const std::vector<Coded>& coded) {
    Decoded result;
    const AVCodec* decoder = avcodec_find_decoder(codec);
    const Context context(avcodec_alloc_context3(decoder));
    context->err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM | AV_EF_BUFFER;
    context->thread_count = 1;
    context->log_level_offset = 24;
    if (!description.empty()) {
        context->extradata =
            static_cast<uint8_t*>(av_mallocz(description.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(context->extradata, description.data(), description.size());
        context->extradata_size = static_cast<int>(description.size());
    }
    result.clean = avcodec_open2(context.get(), decoder, nullptr) >= 0;
    const Frame frame(av_frame_alloc());
    const auto fetch = [&] {
        while (avcodec_receive_frame(context.get(), frame.get()) >= 0) {
            if (frame->nb_samples > 0) {
                const auto* first = reinterpret_cast<const float*>(frame->extended_data[0]);
                result.sound.insert(result.sound.end(), first, first + frame->nb_samples);
            } else {
                result.pictures.push_back({frame->pts, HashOf(*frame)});
            }
        }
    };
    for (const Coded& one : coded) {
        const Packet packet(av_packet_alloc());
        av_new_packet(packet.get(), static_cast<int>(one.bytes.size()));
        std::memcpy(packet->data, one.bytes.data(), one.bytes.size());
        packet->dts = one.decodeTime;
        packet->pts = one.displayTime;
        if (avcodec_send_packet(context.get(), packet.get()) < 0) result.clean = false;
        fetch();
    }
    avcodec_send_packet(context.get(), nullptr);
    fetch();
    result.width = context->width;
    result.height = context->height;
    result.delay = context->has_b_frames;
    return result;
}

/// How libx264 is driven.
struct X264 {
    int width = 0;
    int height = 0;
    AVRational rate{30000, 1001};
    int bFrames = 0;
    int keyFrameInterval = 30;
    int threads = 1;
    long long bitRate = 0;  ///< 0: constant quality
    const char* preset = "veryfast";
};

inline Context OpenX264(const X264& settings) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    Context context(avcodec_alloc_context3(codec));
    context->log_level_offset = 24;
    context->width = settings.width;
    context->height = settings.height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->framerate = settings.rate;
    context->time_base = {settings.rate.den, settings.rate.num};
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->thread_count = settings.threads;
    context->max_b_frames = settings.bFrames;
    context->gop_size = settings.keyFrameInterval;
    context->bit_rate = settings.bitRate;
    context->rc_max_rate = settings.bitRate;
    context->rc_buffer_size = static_cast<int>(settings.bitRate);
    av_opt_set(context->priv_data, "preset", settings.preset, 0);
    av_opt_set(context->priv_data, "profile", "high", 0);
    av_opt_set(context->priv_data, "b-pyramid", "none", 0);
    av_opt_set(context->priv_data, "x264-params", "force-cfr=1", 0);
    if (settings.bitRate == 0) av_opt_set(context->priv_data, "crf", "23", 0);
    if (avcodec_open2(context.get(), codec, nullptr) < 0) context.reset();
    return context;
}

/// A frame that points into an I420 picture without gaps, which outlives it.
inline Frame WrapI420(const unsigned char* pixels, int width, int height, long long number) {
    Frame frame(av_frame_alloc());
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = width;
    frame->height = height;
    frame->pts = number;
    auto* data = const_cast<unsigned char*>(pixels);
    const std::ptrdiff_t luma = static_cast<std::ptrdiff_t>(width) * height;
    frame->data[0] = data;
    frame->data[1] = data + luma;
    frame->data[2] = data + luma + luma / 4;
    frame->linesize[0] = width;
    frame->linesize[1] = frame->linesize[2] = width / 2;
    return frame;
}

/// Encodes all pictures, and gives them in decode order with the times of their place.
inline std::vector<Coded> EncodeX264(const X264& settings,
                                     const std::vector<std::vector<unsigned char>>& pictures,
                                     std::vector<unsigned char>& description) {
    std::vector<Coded> coded;
    const Context context = OpenX264(settings);
    if (!context) return coded;
    description.assign(context->extradata, context->extradata + context->extradata_size);
    const Packet packet(av_packet_alloc());
    const auto fetch = [&] {
        while (avcodec_receive_packet(context.get(), packet.get()) >= 0) {
            coded.push_back(
                {{packet->data, packet->data + packet->size}, packet->dts, packet->pts});
            av_packet_unref(packet.get());
        }
    };
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const Frame frame = WrapI420(pictures[i].data(), settings.width, settings.height,
                                     static_cast<long long>(i));
        avcodec_send_frame(context.get(), frame.get());
        fetch();
    }
    avcodec_send_frame(context.get(), nullptr);
    fetch();
    return coded;
}

/// Pictures that move: soft shapes and a little grain, a function of place and number alone.
inline std::vector<unsigned char> MovingI420(int width, int height, int number) {
    const std::size_t luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<unsigned char> picture(luma * 3 / 2);
    std::vector<double> across;
    for (int x = 0; x < width; ++x) across.push_back(60 * std::sin((x + 4 * number) / 17.0));
    for (int y = 0; y < height; ++y) {
        const double down = 125 + 40 * std::cos((y - 2 * number) / 13.0);
        for (int x = 0; x < width; ++x) {
            const unsigned int grain = (static_cast<unsigned int>(x) * 374761393u ^
                                        static_cast<unsigned int>(y) * 668265263u ^
                                        static_cast<unsigned int>(number) * 974634777u) *
                                       2246822519u;
            picture[static_cast<std::size_t>(y * width + x)] = static_cast<unsigned char>(
                down + across[static_cast<std::size_t>(x)] + static_cast<double>(grain >> 30));
        }
    }
    for (std::size_t i = luma; i < picture.size(); ++i) {
        const auto x = static_cast<double>(i % static_cast<std::size_t>(width / 2));
        picture[i] = static_cast<unsigned char>(128 + 40 * std::sin((x + number) / 11.0));
    }
    return picture;
}

}  // namespace avCodecs
