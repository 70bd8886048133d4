#include "orb/ffmpeg/AacCompressor.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include "orb/BlockPool.h"
#include "orb/CComponentInventory.h"
#include "orb/CDecoderSpecificProperties.h"
#include "orb/ffmpeg/swrFormat.h"
#include "orb/filterSupport.h"
#include "spar/trace.h"

namespace Quillon::Orb {
namespace {

constexpr int kQuieter = 24;  // the encoder's own messages stay below what is printed
constexpr int kDefaultBitRate = 128000;
constexpr int kMostChannels = 8;
constexpr float kLoudest = 16;  // where 1 is what a file of whole numbers can hold

/// Values of CoreAudioCompressor::RateControlMethod.
enum RateControl { kConstant = 0, kAverage = 1, kVariableWithinLimits = 2, kVariable = 3 };

/// The arrangement that AAC has for a number of channels, as a mask; 0 where it has none.
std::uint64_t layout_of(int channels) {
    constexpr std::uint64_t kLayouts[] = {
        0,
        AV_CH_LAYOUT_MONO,
        AV_CH_LAYOUT_STEREO,
        AV_CH_LAYOUT_SURROUND,
        AV_CH_LAYOUT_4POINT0,
        AV_CH_LAYOUT_5POINT0_BACK,
        AV_CH_LAYOUT_5POINT1_BACK,
        0,
        AV_CH_LAYOUT_7POINT1,
    };
    return channels >= 0 && channels <= kMostChannels ? kLayouts[channels] : 0;
}

bool is_floating(const PcmFormat& format) {
    return format.kind == PcmFormat::Kind::Float32 || format.kind == PcmFormat::Kind::Float64;
}

/// The encoder refuses a whole packet for one number that is none, or is beyond all measure. Such
/// a number becomes silence or the loudest sound instead.
void make_encodable(float* samples, int count) {
    for (int i = 0; i < count; ++i) {
        if (std::fabs(samples[i]) <= kLoudest) continue;
        samples[i] = std::isfinite(samples[i]) ? std::copysign(kLoudest, samples[i]) : 0.0f;
    }
}

bool has_rate(const AVCodec& codec, int rate) {
    const int* known = codec.supported_samplerates;
    while (*known != 0 && *known != rate) ++known;
    return *known != 0;
}

}  // namespace

struct AacCompressor::Encoder {
    ~Encoder() {
        swr_free(&splitter);
        av_packet_free(&packet);
        av_frame_free(&frame);
        avcodec_free_context(&context);
    }

    const PcmFormat* format = nullptr;
    AVCodecContext* context = nullptr;
    AVFrame* frame = nullptr;  // being filled
    AVPacket* packet = nullptr;
    SwrContext* splitter = nullptr;  // interleaved PCM to planes of floats
    int filled = 0;                  // frames in `frame`
    long long framesIn = 0;
    long long framesOut = 0;  // in packets, with the priming
    long long missing = 0;    // frames that could not be encoded, and will be silence
};

AacCompressor::AacCompressor() : CAudioCompressor(kCode) {
    DeclareInt(CodeBookProperty::AudioCompressor::BitRate, kDefaultBitRate, 8000, 4000000);
    DeclareInt(CodeBookProperty::CoreAudioCompressor::RateControlMethod, kConstant, kConstant,
               kVariable);
}

AacCompressor::~AacCompressor() = default;

CValueList<unsigned int>* AacCompressor::GetOutputFormats() {
    return new CValueList<unsigned int>{'mp4a'};
}

Result AacCompressor::AcceptProperty(const PropertyName& name, const PropertyValue& value) {
    if (name == CodeBookProperty::CoreAudioCompressor::RateControlMethod &&
        value.integer == kVariableWithinLimits) {
        return ResultNotSupported("it has no variable rate within limits");
    }
    return CAudioCompressor::AcceptProperty(name, value);
}

Result AacCompressor::Begin() {
    fEncoder.reset();
    fReady.Clear();
    const CAudioProperties* input = Input();
    if (!input) return ResultNullPointer("'caac': no input properties");
    auto encoder = std::make_unique<Encoder>();
    Result result = open(*encoder, *input);
    if (result.Failed()) {
        zTrace("{}; format {}, {} channels, {} Hz, {} bits a second\n", result.GetMessage(),
               four_text(input->GetFormat()), input->GetChannels(), input->GetSampleRate(),
               GetInt(CodeBookProperty::AudioCompressor::BitRate));
        return result;
    }
    result = describe_output(*encoder, *input);
    if (result.Failed()) return result;
    fEncoder = std::move(encoder);
    return ResultOK();
}

Result AacCompressor::open(Encoder& encoder, const CAudioProperties& input) {
    encoder.format = PcmFormat::Find(input.GetFormat());
    if (!encoder.format) return ResultNotSupported("'caac': no such PCM format");
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (!codec) return ResultNotSupported("'caac': this libavcodec has no AAC encoder");
    const std::uint64_t layout = layout_of(input.GetChannels());
    if (layout == 0) return ResultNotSupported("'caac': no such number of channels");
    if (!has_rate(*codec, input.GetSampleRate()))
        return ResultNotSupported("'caac': no such sample rate");

    AVCodecContext* context = encoder.context = avcodec_alloc_context3(codec);
    encoder.frame = av_frame_alloc();
    encoder.packet = av_packet_alloc();
    if (!context || !encoder.frame || !encoder.packet)
        return ResultOutOfMemory("'caac': no memory");
    context->log_level_offset = kQuieter;
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->sample_rate = input.GetSampleRate();
    context->time_base = {1, input.GetSampleRate()};
    av_channel_layout_from_mask(&context->ch_layout, layout);
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    context->bit_rate = GetInt(CodeBookProperty::AudioCompressor::BitRate);
    if (GetInt(CodeBookProperty::CoreAudioCompressor::RateControlMethod) == kVariable) {
        // The encoder's quality 1 comes to about 64 kbit/s a channel.
        const double quality =
            static_cast<double>(context->bit_rate) / (64000.0 * input.GetChannels());
        context->flags |= AV_CODEC_FLAG_QSCALE;
        context->global_quality = std::max(1, static_cast<int>(quality * FF_QP2LAMBDA));
    }
    if (avcodec_open2(context, codec, nullptr) < 0) {
        return ResultNotSupported("'caac': the encoder does not open");
    }

    encoder.frame->format = context->sample_fmt;
    encoder.frame->sample_rate = context->sample_rate;
    encoder.frame->nb_samples = context->frame_size;
    av_channel_layout_copy(&encoder.frame->ch_layout, &context->ch_layout);
    swr_alloc_set_opts2(&encoder.splitter, &context->ch_layout, AV_SAMPLE_FMT_FLTP,
                        context->sample_rate, &context->ch_layout, swr_format_of(*encoder.format),
                        context->sample_rate, 0, nullptr);
    if (av_frame_get_buffer(encoder.frame, 0) < 0 || !encoder.splitter ||
        swr_init(encoder.splitter) < 0) {
        return ResultOutOfMemory("'caac': no memory");
    }
    return ResultOK();
}

Result AacCompressor::describe_output(const Encoder& encoder, const CAudioProperties& input) {
    const AVCodecContext& context = *encoder.context;
    RObject<CAudioProperties> output(new CAudioProperties(&input));
    RObject<CDecoderSpecificProperties> decoder(new CDecoderSpecificProperties);
    RObject<CByteArray> info(new CByteArray(context.extradata, context.extradata_size));
    if (!output || !decoder || !info) return ResultOutOfMemory();
    decoder->SetDecoderInfo(info.Get());
    output->SetFormat('mp4a');
    output->SetBitsPerSample(16);  // what sound files say of compressed sound
    output->SetBytesPerPacket(0);
    output->SetFramesPerPacket(context.frame_size);
    output->SetPrimingFrames(context.initial_padding);
    output->SetBitRate(static_cast<int>(context.bit_rate));
    output->SetExtension('mspe', decoder.Get());
    UpdateOutputProperties(output.Detach());
    return ResultOK();
}

Result AacCompressor::End() {
    return fEncoder ? drain() : Result(ResultOK());
}

Result AacCompressor::PutSample(int, CMediaSample* sample) {
    if (!fEncoder) return ResultError("'caac': a sample before Begin or after the end");
    if (!sample) return drain();
    const AudioBlock block(*sample);
    if (!block.IsValid()) return ResultNullPointer("'caac': a sample without data");
    const PcmFormat& format = *fEncoder->format;
    const int channels = fEncoder->context->ch_layout.nb_channels;
    const int frames = block.Frames(channels * format.bytes);
    const Result result = fill_missing();
    if (result.Failed()) {
        fEncoder->missing += frames;
        return result;
    }
    if (!format.swapped) return fill(block.Data(), frames);
    const std::size_t samples =
        static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels);
    const Block straight(samples * static_cast<std::size_t>(format.bytes));
    if (!straight) {
        fEncoder->missing += frames;
        return ResultOutOfMemory();
    }
    SwapSampleBytes(block.Data(), straight.Get(), samples, format.bytes);
    return fill(straight.Get(), frames);
}

/// Silence where something failed: what comes behind keeps its place in time.
Result AacCompressor::fill_missing() {
    return fill(nullptr, std::exchange(fEncoder->missing, 0));
}

/// Takes `frames` interleaved frames apart into the encoder's frame, and encodes whenever that is
/// full. Null is silence. What a failure leaves behind is missing.
Result AacCompressor::fill(const unsigned char* data, long long frames) {
    Encoder& encoder = *fEncoder;
    const int channels = encoder.context->ch_layout.nb_channels;
    const int wanted = encoder.context->frame_size;
    Result result = ResultOK();
    while (frames > 0 && result.Succeeded()) {
        const int count = static_cast<int>(std::min<long long>(frames, wanted - encoder.filled));
        result = take_apart(data, count);
        if (result.Failed()) break;
        if (data) {
            data += static_cast<std::size_t>(count) *
                    static_cast<std::size_t>(channels * encoder.format->bytes);
        }
        frames -= count;
        encoder.filled += count;
        if (encoder.filled == wanted) result = encode_frame();
    }
    encoder.missing += frames;
    return result;
}

/// Puts `count` frames behind those that the encoder's frame has already.
Result AacCompressor::take_apart(const unsigned char* data, int count) {
    Encoder& encoder = *fEncoder;
    const int channels = encoder.context->ch_layout.nb_channels;
    if (av_frame_make_writable(encoder.frame) < 0) return ResultOutOfMemory();
    if (!data) {
        av_samples_set_silence(encoder.frame->extended_data, encoder.filled, count, channels,
                               AV_SAMPLE_FMT_FLTP);
        return ResultOK();
    }
    unsigned char* planes[kMostChannels];
    for (int i = 0; i < channels; ++i) {
        planes[i] = encoder.frame->extended_data[i] +
                    static_cast<std::size_t>(encoder.filled) * sizeof(float);
    }
    if (swr_convert(encoder.splitter, planes, count, &data, count) != count) {
        return ResultError("'caac': the PCM could not be taken apart");
    }
    for (int i = 0; i < channels && is_floating(*encoder.format); ++i) {
        make_encodable(reinterpret_cast<float*>(planes[i]), count);
    }
    return ResultOK();
}

/// Frames that were not encoded, or whose packet is lost, are missing.
Result AacCompressor::encode_frame() {
    Encoder& encoder = *fEncoder;
    const int frames = std::exchange(encoder.filled, 0);
    encoder.frame->nb_samples = frames;
    encoder.frame->pts = encoder.framesIn;
    Result result = ResultOK();
    if (avcodec_send_frame(encoder.context, encoder.frame) < 0) {
        result = ResultError("'caac': the encoder refused a frame");
    } else {
        result = receive_packets();
    }
    if (result.Failed()) {
        encoder.missing += frames;
    } else {
        encoder.framesIn += frames;
    }
    return result;
}

/// Packets lie end to end and stop where the sound does, whatever the encoder makes of times behind
/// a frame that failed.
Result AacCompressor::receive_packets() {
    Encoder& encoder = *fEncoder;
    for (;;) {
        const int status = avcodec_receive_packet(encoder.context, encoder.packet);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return ResultOK();
        if (status < 0) return ResultError("'caac': the encoder failed");
        const long long left =
            encoder.framesIn + encoder.context->initial_padding - encoder.framesOut;
        const long long duration = std::min<long long>(encoder.packet->duration, left);
        Result result = ResultOK();
        if (duration > 0) {
            result = fReady.AddPacket(encoder.packet->data, encoder.packet->size, encoder.framesOut,
                                      duration);
        }
        av_packet_unref(encoder.packet);
        if (result.Failed()) return result;
        encoder.framesOut += duration;
    }
}

Result AacCompressor::drain() {
    Result result = fill_missing();
    if (result.Succeeded() && fEncoder->filled > 0) result = encode_frame();
    if (fEncoder->framesIn > 0) {
        avcodec_send_frame(fEncoder->context, nullptr);
        const Result drained = receive_packets();
        if (result.Succeeded()) result = drained;
    }
    fEncoder.reset();
    return result;
}

Result AacCompressor::GetSample(int, RObject<CMediaSample>& sample) {
    return fReady.Take(sample);
}

void RegisterAacCompressor() {
    using Factory = CSimpleComponentFactory<CAudioCompressor, AacCompressor>;
    RObject<Factory> factory(new Factory(AacCompressor::kCode));
    CComponentInventory<CComponentFactory<CAudioCompressor>>::GetSingleton().Add(factory.Get());
}

}  // namespace Quillon::Orb
