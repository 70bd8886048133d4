#pragma once

// For tests and benchmarks of the video compressors: pictures to put in, and what comes out read
// back by libavcodec's decoders.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "orb/CComponentInventory.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcDataReference.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/CVideoCompressor.h"
#include "orb/VideoFormat.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "AvSupport.h"

namespace Quillon::Orb::TestKit {

struct Source {
    unsigned int format = 'I420';
    int width = 192;
    int height = 128;
    long long timescale = 30000;
    long long frameDuration = 1001;
    int fieldOrder = CVideoProperties::kProgressive;
    ColorSpace colour = ColorSpace::BT709;
    int range = CVideoProperties::kLimitedRange;
    Rational<int> pixelAspect{1, 1};

    RObject<CVideoProperties> Properties() const {
        RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
        properties->SetFormat(format);
        properties->SetWidth(width);
        properties->SetHeight(height);
        properties->SetTimescale(timescale);
        properties->SetFrameDuration(frameDuration);
        properties->SetFieldOrder(fieldOrder);
        properties->SetColorSpace(colour);
        properties->SetVideoRange(range);
        properties->SetPixelAspectRatio(pixelAspect);
        return properties;
    }
};

/// Code values of a moving picture at a place of the full frame: soft shapes, some texture, all of
/// it a pure function of the place and the picture's number. Interlaced sources move by field. The
/// curves are computed once a picture: tests draw thousands, and are not optimised.
class Scene {
public:
    Scene(const Source& source, int number) : fSource(source), fNumber(number) {
        for (const int field : {0, 1}) {
            const double t = number + 0.5 * field;
            Curves& curves = fCurves[field];
            for (int x = 0; x <= source.width; ++x) {
                curves.across.push_back(125 + 60 * std::sin((x + 4 * t) / 17.0));
            }
            for (int y = 0; y <= source.height; ++y) {
                curves.down.push_back(40 * std::cos((y - 2 * t) / 13.0));
            }
            for (int i = 0; i <= source.width + source.height; ++i) {
                curves.rising.push_back(static_cast<int>(128 + 50 * std::sin((i + 3 * t) / 41.0)));
                curves.falling.push_back(
                    static_cast<int>(128 + 50 * std::cos((i - source.height - 3 * t) / 37.0)));
            }
        }
    }

    int luma(int x, int y) const {
        const unsigned int hash =
            (static_cast<unsigned int>(x) * 374761393u ^ static_cast<unsigned int>(y) * 668265263u ^
             static_cast<unsigned int>(fNumber) * 974634777u) *
            2246822519u;
        const Curves& curves = curves_at(y);
        return static_cast<int>(at(curves.across, x) + at(curves.down, y)) +
               static_cast<int>(hash >> 30) - 1;
    }
    int u(int x, int y) const { return at(curves_at(y).rising, x + y); }
    int v(int x, int y) const { return at(curves_at(y).falling, x - y + fSource.height); }

private:
    struct Curves {
        std::vector<double> across;
        std::vector<double> down;
        std::vector<int> rising;
        std::vector<int> falling;
    };

    template <class Value>
    static Value at(const std::vector<Value>& curve, int place) {
        return curve[static_cast<std::size_t>(place)];
    }

    const Curves& curves_at(int y) const {
        if (fSource.fieldOrder == CVideoProperties::kProgressive) return fCurves[0];
        const bool second = (y & 1) == (fSource.fieldOrder == CVideoProperties::kTopFieldFirst);
        return fCurves[second ? 1 : 0];
    }

    const Source& fSource;
    int fNumber;
    Curves fCurves[2];
};

inline unsigned char byte_of(int value) {
    return static_cast<unsigned char>(value);
}

/// Fills a block of the format's natural layout.
inline void draw(const Source& source, int number, int stride, unsigned char* data) {
    const Scene scene(source, number);
    PixelLayout layout;
    VideoFormat::GetLayout(source.format, source.width, source.height, stride,
                           std::numeric_limits<long long>::max(), layout);
    const auto row = [&](int plane, int y) {
        return data + layout.planes[plane].offset +
               static_cast<long long>(y) * layout.planes[plane].stride;
    };
    for (int y = 0; y < source.height; ++y) {
        unsigned char* line = row(0, y);
        for (int x = 0; x < source.width; ++x) {
            switch (source.format) {
                case 'UYVY':
                case 'YUYV': {
                    const int first = source.format == 'UYVY';
                    line[2 * x + first] = byte_of(scene.luma(x, y));
                    const int even = x & ~1;
                    line[2 * x + 1 - first] = byte_of(x & 1 ? scene.v(even, y) : scene.u(even, y));
                    break;
                }
                case 'BGRA':
                    line[4 * x] = byte_of(scene.u(x, y));
                    line[4 * x + 1] = byte_of(scene.luma(x, y));
                    line[4 * x + 2] = byte_of(scene.v(x, y));
                    line[4 * x + 3] = byte_of(x);
                    break;
                default:
                    line[x] = byte_of(scene.luma(x, y));
            }
        }
    }
    if (layout.planeCount == 1) return;
    const bool swapped = source.format == 'YV12' || source.format == 'YV16';
    const bool biplanar = layout.planeCount == 2;
    const int vertical = layout.planes[1].rows < source.height ? 2 : 1;
    for (int y = 0; y < layout.planes[1].rows; ++y) {
        for (int x = 0; x < (source.width + 1) / 2; ++x) {
            const unsigned char u = byte_of(scene.u(2 * x, vertical * y));
            const unsigned char v = byte_of(scene.v(2 * x, vertical * y));
            if (biplanar) {
                row(1, y)[2 * x] = u;
                row(1, y)[2 * x + 1] = v;
            } else {
                row(swapped ? 2 : 1, y)[x] = u;
                row(swapped ? 1 : 2, y)[x] = v;
            }
        }
    }
}

inline RObject<CVideoSample> MakeSample(const Source& source, int number, long long time,
                                        long long duration, int extraStride = 0) {
    const int stride = VideoFormat::GetStride(source.format, source.width, 1) + extraStride;
    const int length =
        VideoFormat::GetSampleLength(source.format, source.width, source.height, stride);
    RObject<CByteArray> bytes(new CByteArray(length, 1));
    draw(source, number, stride, bytes->GetData());
    RObject<CPixelBufferDataReference> pixels(
        new CPixelBufferDataReference(bytes.Get(), source.width, source.height, stride));
    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    sample->SetTime(time);
    sample->SetDuration(duration);
    sample->SetDataReference(pixels.Get());
    return sample;
}

inline RObject<CVideoSample> MakeSample(const Source& source, int number) {
    return MakeSample(source, number, number * source.frameDuration, source.frameDuration);
}

inline RObject<CVideoCompressor> MakeCompressor(unsigned int code) {
    return RObject<CVideoCompressor>(
        CComponentInventory<CComponentFactory<CVideoCompressor>>::CreateInstance(code));
}

using Samples = std::vector<RObject<CVideoSample>>;

inline Result FetchReady(CVideoCompressor& compressor, Samples& out) {
    for (;;) {
        RObject<CVideoSample> sample;
        Result result = compressor.ReceiveSample(sample);
        if (result.Failed() || !sample) return result;
        out.push_back(std::move(sample));
    }
}

/// Puts `count` pictures through a compressor that has begun, those of `keys` with the hint, and
/// drains it.
inline Samples Encode(CVideoCompressor& compressor, const Source& source, int count,
                      const std::vector<int>& keys = {}) {
    Samples out;
    for (int i = 0; i < count; ++i) {
        RObject<CVideoSample> sample = MakeSample(source, i);
        for (const int key : keys) {
            if (key == i) sample->SetHint(CMediaSample::kHintKeyFrame);
        }
        if (compressor.ProcessSample(sample.Get()).Failed()) return out;
        if (FetchReady(compressor, out).Failed()) return out;
    }
    if (compressor.ProcessSample(nullptr).Succeeded()) FetchReady(compressor, out);
    return out;
}

/// The bytes of an encoded sample as a decoder wants them; H.264 behind start codes.
inline std::vector<unsigned char> BytesOf(const CVideoSample& sample) {
    RObject<CMemoryDataReference> memory(sample.GetDataReference<CMemoryDataReference>());
    RObject<CMpeg4AvcDataReference> avc(sample.GetDataReference<CMpeg4AvcDataReference>());
    if (avc) avc->ToDataReference('h264', nullptr, memory.Receive());
    if (!memory) return {};
    RObject<CByteArray> bytes(memory->GetByteArray());
    return {bytes->GetData(), bytes->GetData() + bytes->GetLength()};
}

inline AVCodecID CodecOf(unsigned int format) {
    switch (VideoFormat::GetCanonicalFormat(format)) {
        case 'h264':
            return AV_CODEC_ID_H264;
        case 'ap  ':
            return AV_CODEC_ID_PRORES;
        case 'jpeg':
            return AV_CODEC_ID_MJPEG;
        default:
            return AV_CODEC_ID_MPEG2VIDEO;
    }
}

/// What a decoder made of the samples: the pictures in display order, and the decoder itself, which
/// knows what the stream said.
struct Decoded {
    AvContext context;
    std::vector<AvFrame> frames;
    bool clean = true;  // no error from the first to the last packet
};

inline Decoded Decode(const CVideoProperties& properties, const Samples& samples) {
    Decoded decoded;
    const AVCodec* codec = avcodec_find_decoder(CodecOf(properties.GetFormat()));
    decoded.context.reset(avcodec_alloc_context3(codec));
    AVCodecContext& context = *decoded.context;
    context.log_level_offset = 24;
    context.err_recognition = AV_EF_EXPLODE | AV_EF_BITSTREAM;
    context.thread_count = 1;
    context.codec_tag = __builtin_bswap32(properties.GetFormat());
    RObject<CDecoderSpecificProperties> specific(properties.GetExtension('mspe'));
    RObject<CByteArray> info;
    if (specific) specific->GetDecoderInfo(info);
    if (info) {
        const std::size_t size = static_cast<std::size_t>(info->GetLength());
        context.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
        std::memcpy(context.extradata, info->GetData(), size);
        context.extradata_size = info->GetLength();
    }
    decoded.clean = avcodec_open2(&context, codec, nullptr) >= 0;
    const auto fetch = [&] {
        for (;;) {
            AvFrame frame(av_frame_alloc());
            if (avcodec_receive_frame(&context, frame.get()) < 0) return;
            decoded.frames.push_back(std::move(frame));
        }
    };
    RObject<CMpeg4AvcProperties> avc(
        static_cast<CMpeg4AvcProperties*>(properties.GetExtension('h264')));
    for (const RObject<CVideoSample>& sample : samples) {
        std::vector<unsigned char> bytes = BytesOf(*sample);
        RObject<CMpeg4AvcDataReference> unit(sample->GetDataReference<CMpeg4AvcDataReference>());
        if (unit && avc) {
            RObject<CMemoryDataReference> memory;
            unit->ToDataReference('avc1', avc.Get(), memory.Receive());
            RObject<CByteArray> array(memory->GetByteArray());
            bytes.assign(array->GetData(), array->GetData() + array->GetLength());
        }
        AvPacket packet(av_packet_alloc());
        av_new_packet(packet.get(), static_cast<int>(bytes.size()));
        std::memcpy(packet->data, bytes.data(), bytes.size());
        packet->pts = sample->GetTime() + sample->GetCompositionOffset();
        packet->dts = sample->GetTime();
        if (avcodec_send_packet(&context, packet.get()) < 0) decoded.clean = false;
        fetch();
    }
    avcodec_send_packet(&context, nullptr);
    fetch();
    return decoded;
}

/// Where a picture is measured: from a place to the last column and row, every `rowStep`th row.
struct Area {
    int left = 0;
    int top = 0;
    int rowStep = 1;
};

/// A sample of a decoded picture on the scale of 8 bits.
inline double value_at(const AVFrame& frame, int plane, int x, int y) {
    const int bits = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format))->comp[0].depth;
    const unsigned char* line =
        frame.data[plane] + static_cast<long long>(y) * frame.linesize[plane];
    return bits > 8 ? std::ldexp(reinterpret_cast<const unsigned short*>(line)[x], 8 - bits)
                    : line[x];
}

inline double psnr_of(double squares, long long count) {
    return 10 * std::log10(255.0 * 255.0 / (squares / static_cast<double>(count) + 1e-9));
}

/// PSNR in dB of a decoded picture's luma against the source's picture `number`.
inline double LumaPsnr(const AVFrame& frame, const Source& source, int number, Area area = {}) {
    const Scene scene{source, number};
    double sum = 0;
    long long count = 0;
    for (int y = area.top; y < source.height; y += area.rowStep) {
        for (int x = area.left; x < source.width; ++x, ++count) {
            const double off = value_at(frame, 0, x, y) - scene.luma(x, y);
            sum += off * off;
        }
    }
    return psnr_of(sum, count);
}

/// The same of the worse of U and V, of a picture that has both.
inline double ChromaPsnr(const AVFrame& frame, const Source& source, int number) {
    const AVPixFmtDescriptor& format =
        *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const int stepX = 1 << format.log2_chroma_w;
    const int stepY = 1 << format.log2_chroma_h;
    const Scene scene{source, number};
    double sums[2] = {};
    long long count = 0;
    for (int y = 0; y < source.height; y += stepY) {
        for (int x = 0; x < source.width; x += stepX, ++count) {
            const double u = value_at(frame, 1, x / stepX, y / stepY) - scene.u(x, y);
            const double v = value_at(frame, 2, x / stepX, y / stepY) - scene.v(x, y);
            sums[0] += u * u;
            sums[1] += v * v;
        }
    }
    return psnr_of(std::max(sums[0], sums[1]), count);
}

}  // namespace Quillon::Orb::TestKit
