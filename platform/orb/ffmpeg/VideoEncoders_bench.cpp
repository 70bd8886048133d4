// Our video compressors beside bare libavcodec, 1080p, the same raw input and the same settings.
//
//   orb_ffmpeg_bench --benchmark_filter=Video --benchmark_repetitions=5
//                    --benchmark_enable_random_interleaving=true
//
// The argument is the number of threads. "items_per_second" are frames, by the clock on the wall,
// and "CPU" is the time that a frame costs the process; "dB" is the luma of the first pictures
// against the input, "Mbit" what a frame takes.

#include <benchmark/benchmark.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <cmath>

#include "BenchMaterial.h"
#include "EncoderTestKit.h"

namespace Quillon::Orb {
namespace {

using BenchMaterial::Clip;
using BenchMaterial::kHeight;
using BenchMaterial::kWidth;

constexpr int kJudged = 10;  // pictures that are decoded and compared
constexpr int kBitRate = 10000000;

Clip& clip_of(unsigned int format) {
    static std::vector<std::pair<unsigned int, std::unique_ptr<Clip>>> clips;
    for (auto& clip : clips) {
        if (clip.first == format) return *clip.second;
    }
    return *clips.emplace_back(format, std::make_unique<Clip>(format)).second;
}

/// What came out, as far as it is judged.
struct Judge {
    std::vector<std::vector<unsigned char>> packets;
    double bytes = 0;
    double count = 0;

    bool WantsMore() const { return packets.size() < 2 * kJudged; }
    void Count(std::size_t size) {
        bytes += static_cast<double>(size);
        ++count;
    }
    void Add(const unsigned char* data, std::size_t size) {
        if (WantsMore()) packets.emplace_back(data, data + size);
        Count(size);
    }
    void Report(benchmark::State& state, AVCodecID codec, const std::vector<unsigned char>& head,
                Clip& clip) const {
        state.SetItemsProcessed(state.iterations());
        state.counters["Mbit"] = bytes * 8e-6 / std::max(count, 1.0);
        state.counters["dB"] = Psnr(codec, head, clip);
        if (!clip.IsPhotograph()) state.SetLabel("synthetic pictures");
    }
    double Psnr(AVCodecID codec, const std::vector<unsigned char>& head, Clip& clip) const;
};

double Judge::Psnr(AVCodecID codec, const std::vector<unsigned char>& head, Clip& clip) const {
    const AVCodec* decoder = avcodec_find_decoder(codec);
    AvContext context(avcodec_alloc_context3(decoder));
    context->log_level_offset = 24;
    context->extradata =
        static_cast<uint8_t*>(av_mallocz(head.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, head.data(), head.size());
    context->extradata_size = static_cast<int>(head.size());
    if (avcodec_open2(context.get(), decoder, nullptr) < 0) return 0;
    double sum = 0;
    int seen = 0;
    const auto fetch = [&] {
        AvFrame frame(av_frame_alloc());
        for (; avcodec_receive_frame(context.get(), frame.get()) >= 0 && seen < kJudged; ++seen) {
            const int bits =
                av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format))->comp[0].depth;
            for (int y = 0; y < kHeight; ++y) {
                const unsigned char* row = frame->data[0] + 1LL * y * frame->linesize[0];
                for (int x = 0; x < kWidth; ++x) {
                    const double value =
                        bits > 8
                            ? std::ldexp(reinterpret_cast<const unsigned short*>(row)[x], 8 - bits)
                            : row[x];
                    const double off = value - clip.GetLuma(seen, x, y);
                    sum += off * off;
                }
            }
        }
    };
    for (const auto& coded : packets) {
        AvPacket packet(av_packet_alloc());
        av_new_packet(packet.get(), static_cast<int>(coded.size()));
        std::memcpy(packet->data, coded.data(), coded.size());
        avcodec_send_packet(context.get(), packet.get());
        fetch();
    }
    avcodec_send_packet(context.get(), nullptr);
    fetch();
    const double mean = sum / (std::max(seen, 1) * static_cast<double>(kWidth) * kHeight);
    return seen == 0 ? 0 : 10 * std::log10(255 * 255 / (mean + 1e-9));
}

// ---- ours

std::size_t length_of(const CVideoSample& sample) {
    RObject<CMpeg4AvcDataReference> avc(sample.GetDataReference<CMpeg4AvcDataReference>());
    if (!avc) {
        RObject<CLockedDataReference> locked(sample.GetLockedDataReference(CDataReference::kRead));
        return static_cast<std::size_t>(locked->GetLength());
    }
    RObject<CMpeg4AvcAccessUnit> unit(avc->GetAccessUnit());
    return static_cast<std::size_t>(unit->GetLength(4));
}

template <class SetUp>
void run_ours(benchmark::State& state, unsigned int code, unsigned int input, unsigned int output,
              SetUp setUp) {
    Clip& clip = clip_of(input);
    TestKit::Source source;
    source.format = input;
    source.width = kWidth;
    source.height = kHeight;
    source.timescale = 30;
    source.frameDuration = 1;
    RObject<CVideoCompressor> compressor = TestKit::MakeCompressor(code);
    compressor->SetOutputFormat(output);
    compressor->SetInputProperties(source.Properties().Get());
    setUp(*compressor);
    if (compressor->Begin().Failed()) return state.SkipWithError("would not begin");
    Judge judge;
    const auto fetch = [&] {
        for (;;) {
            RObject<CVideoSample> out;
            if (compressor->ReceiveSample(out).Failed() || !out) return;
            if (judge.WantsMore()) {
                const std::vector<unsigned char> bytes = TestKit::BytesOf(*out);
                judge.Add(bytes.data(), bytes.size());
            } else {
                judge.Count(length_of(*out));
            }
        }
    };
    long long number = 0;
    for (auto _ : state) {
        if (compressor->ProcessSample(clip.GetSample(number++).Get()).Failed()) break;
        fetch();
    }
    RObject<CVideoProperties> properties(compressor->GetOutputProperties(0));
    compressor->ProcessSample(nullptr);
    fetch();
    std::vector<unsigned char> head;
    RObject<CDecoderSpecificProperties> specific(properties->GetExtension('mspe'));
    RObject<CByteArray> info;
    if (specific) specific->GetDecoderInfo(info);
    if (info) {
        RObject<CMpeg4AvcDecoderConfiguration> avc(new CMpeg4AvcDecoderConfiguration());
        avc->Parse(info->GetData(), info->GetLength());
        for (const auto* sets :
             {&avc->GetSequenceParameterSets(), &avc->GetPictureParameterSets()}) {
            for (const auto& unit : *sets) {
                head.insert(head.end(), {0, 0, 0, 1});
                head.insert(head.end(), unit.begin(), unit.end());
            }
        }
    }
    judge.Report(state, TestKit::CodecOf(output), head, clip);
}

// ---- bare libavcodec

struct Bare {
    const char* encoder;
    AVPixelFormat pixels;
    unsigned int input;   ///< raw format of the clip
    bool scaled = false;  ///< the clip is brought into `pixels` by libswscale, as `ffmpeg` does
};

template <class SetUp>
void run_bare(benchmark::State& state, const Bare& bare, SetUp setUp) {
    Clip& clip = clip_of(bare.input);
    const AVCodec* codec = avcodec_find_encoder_by_name(bare.encoder);
    AvContext context(avcodec_alloc_context3(codec));
    context->width = kWidth;
    context->height = kHeight;
    context->pix_fmt = bare.pixels;
    context->time_base = {1, 30};
    context->framerate = {30, 1};
    context->log_level_offset = 24;
    AvOptions options;
    setUp(*context, options);
    if (avcodec_open2(context.get(), codec, options.Get()) < 0) {
        return state.SkipWithError("would not open");
    }
    SwsContext* scaler = nullptr;
    AvFrame scaled(av_frame_alloc());
    if (bare.scaled) {
        scaler = sws_getContext(kWidth, kHeight, AV_PIX_FMT_UYVY422, kWidth, kHeight, bare.pixels,
                                SWS_BICUBIC, nullptr, nullptr, nullptr);
    }
    AvPacket packet(av_packet_alloc());
    Judge judge;
    const auto fetch = [&] {
        while (avcodec_receive_packet(context.get(), packet.get()) >= 0) {
            judge.Add(packet->data, static_cast<std::size_t>(packet->size));
            av_packet_unref(packet.get());
        }
    };
    long long number = 0;
    for (auto _ : state) {
        AvFrame frame(av_frame_alloc());
        frame->format = bare.pixels;
        frame->width = kWidth;
        frame->height = kHeight;
        const PixelImage image = clip.GetImage(number);
        if (scaler) {
            av_frame_get_buffer(frame.get(), 0);
            sws_scale(scaler, image.planes, image.strides, 0, kHeight, frame->data,
                      frame->linesize);
        } else {
            for (int i = 0; i < 3; ++i) {
                frame->data[i] = image.planes[i];
                frame->linesize[i] = image.strides[i];
            }
            frame->buf[0] = av_buffer_create(
                frame->data[0], 1, [](void*, uint8_t*) {}, nullptr, AV_BUFFER_FLAG_READONLY);
        }
        frame->pts = number++;
        avcodec_send_frame(context.get(), frame.get());
        fetch();
    }
    avcodec_send_frame(context.get(), nullptr);
    fetch();
    sws_freeContext(scaler);
    const std::vector<unsigned char> head(context->extradata,
                                          context->extradata + context->extradata_size);
    judge.Report(state, context->codec_id, head,
                 clip_of(bare.input == kPixelI210 ? 'UYVY' : bare.input));
}

// ---- x264, as a writer of files sets it up: veryfast, 10 Mb/s, no B-frames

void VideoX264(benchmark::State& state) {
    namespace H264 = CodeBookProperty::H264Compressor;
    run_ours(state, 'h264', 'I420', 'h264', [&](CVideoCompressor& compressor) {
        compressor.SetProperty(H264::Threads, static_cast<int>(state.range(0)));
        compressor.SetProperty(H264::BitRate, kBitRate);
        compressor.SetProperty(H264::MaxKeyFrameInterval, 30);
    });
}

void VideoX264Bare(benchmark::State& state) {
    run_bare(state, {"libx264", AV_PIX_FMT_YUV420P, 'I420'},
             [&](AVCodecContext& context, AvOptions& options) {
                 context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
                 context.thread_count = static_cast<int>(state.range(0));
                 context.bit_rate = kBitRate;
                 context.rc_max_rate = kBitRate;
                 context.rc_buffer_size = kBitRate;
                 context.gop_size = 30;
                 context.max_b_frames = 0;
                 options.Set("preset", "veryfast");
                 options.Set("profile", "high");
                 options.Set("x264-params", "force-cfr=1");
             });
}

// ---- ProRes 422 HQ

void VideoProResHq(benchmark::State& state) {
    run_ours(state, 'vtbx', 'UYVY', 'apch', [&](CVideoCompressor& compressor) {
        compressor.SetProperty(CodeBookProperty::VideoCompressor::Threads,
                               static_cast<int>(state.range(0)));
    });
}

void prores_bare(benchmark::State& state, const Bare& bare, int quantiser) {
    run_bare(state, bare, [&](AVCodecContext& context, AvOptions&) {
        context.profile = 3;
        context.thread_count = static_cast<int>(state.range(0));
        if (quantiser == 0) return;
        context.flags |= AV_CODEC_FLAG_QSCALE;
        context.global_quality = FF_QP2LAMBDA * quantiser;
    });
}

void VideoProResHqBareFrom10Bits(benchmark::State& state) {
    prores_bare(state, {"prores_aw", AV_PIX_FMT_YUV422P10, kPixelI210}, 0);
}

void VideoProResHqBareWithSwscale(benchmark::State& state) {
    prores_bare(state, {"prores_aw", AV_PIX_FMT_YUV422P10, 'UYVY', true}, 0);
}

void VideoProResHqBareKostya(benchmark::State& state) {
    constexpr int kQuantiser = 6;  // about the same quality
    prores_bare(state, {"prores_ks", AV_PIX_FMT_YUV422P10, 'UYVY', true}, kQuantiser);
}

// ---- Motion JPEG

void VideoMotionJpeg(benchmark::State& state) {
    run_ours(state, 'mjpg', 'I420', 'jpeg', [&](CVideoCompressor& compressor) {
        compressor.SetProperty(CodeBookProperty::VideoCompressor::Threads,
                               static_cast<int>(state.range(0)));
        compressor.SetProperty(CodeBookProperty::JpegCompressor::Quality, 88);
    });
}

void VideoMotionJpegBare(benchmark::State& state) {
    constexpr int kQuantiser = 3;  // about the same quality
    run_bare(state, {"mjpeg", AV_PIX_FMT_YUVJ420P, 'I420'},
             [&](AVCodecContext& context, AvOptions&) {
                 context.thread_count = static_cast<int>(state.range(0));
                 context.flags |= AV_CODEC_FLAG_QSCALE;
                 context.global_quality = FF_QP2LAMBDA * kQuantiser;
             });
}

// ---- MPEG-2

void VideoMpeg2(benchmark::State& state) {
    run_ours(state, 'mcm2', 'I420', 'mp2v', [&](CVideoCompressor& compressor) {
        compressor.SetProperty(CodeBookProperty::VideoCompressor::Threads,
                               static_cast<int>(state.range(0)));
        compressor.SetProperty(CodeBookProperty::VideoCompressor::BitRate, 25000000);
    });
}

void VideoMpeg2Bare(benchmark::State& state) {
    run_bare(state, {"mpeg2video", AV_PIX_FMT_YUV420P, 'I420'},
             [&](AVCodecContext& context, AvOptions&) {
                 context.thread_count = static_cast<int>(state.range(0));
                 context.bit_rate = 25000000;
                 context.rc_max_rate = 25000000;
                 context.rc_buffer_size = 9781248;
                 context.gop_size = 15;
                 context.max_b_frames = 2;
             });
}

// A fixed number of pictures, so that both encode the same.
#define VIDEO_BENCHMARK(function, pictures) \
    BENCHMARK(function)                     \
        ->Arg(1)                            \
        ->Arg(2)                            \
        ->Iterations(pictures)              \
        ->MeasureProcessCPUTime()           \
        ->UseRealTime()                     \
        ->Unit(benchmark::kMillisecond)

VIDEO_BENCHMARK(VideoX264, 120);
VIDEO_BENCHMARK(VideoX264Bare, 120);
VIDEO_BENCHMARK(VideoProResHq, 40);
VIDEO_BENCHMARK(VideoProResHqBareFrom10Bits, 40);
VIDEO_BENCHMARK(VideoProResHqBareWithSwscale, 40);
VIDEO_BENCHMARK(VideoProResHqBareKostya, 40);
VIDEO_BENCHMARK(VideoMotionJpeg, 200);
VIDEO_BENCHMARK(VideoMotionJpegBare, 200);
VIDEO_BENCHMARK(VideoMpeg2, 120);
VIDEO_BENCHMARK(VideoMpeg2Bare, 120);

}  // namespace
}  // namespace Quillon::Orb
