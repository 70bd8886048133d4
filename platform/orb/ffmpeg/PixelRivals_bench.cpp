#include <libyuv.h>
#include <memory>

#include "PixelRivals.h"
#include "PixelZimg.h"

extern "C" {
#include <libavutil/log.h>
#include <libswscale/swscale.h>
}

namespace Quillon::Orb::Rivals {

namespace {

// ---- libyuv

using Image = const PixelImage&;

struct LibyuvEntry {
    unsigned int from;
    unsigned int to;
    void (*run)(Image f, Image t, int w, int h, const PixelColour& yuv);
};

// Arguments of a picture as libyuv counts them.
#define P1(i) (i).planes[0], (i).strides[0]
#define P2(i) P1(i), (i).planes[1], (i).strides[1]
#define P3(i) P2(i), (i).planes[2], (i).strides[2]
#define W1(i) reinterpret_cast<uint16_t*>((i).planes[0]), (i).strides[0] / 2
#define W3(i)                                                              \
    W1(i), reinterpret_cast<uint16_t*>((i).planes[1]), (i).strides[1] / 2, \
        reinterpret_cast<uint16_t*>((i).planes[2]), (i).strides[2] / 2

#define ENTRY(from, to, function, f, t)                                    \
    {                                                                      \
        from, to, [](Image a, Image b, int w, int h, const PixelColour&) { \
            libyuv::function(f(a), t(b), w, h);                            \
        }                                                                  \
    }

#define TO_RGB(from, function, f, to)                                          \
    {                                                                          \
        from, to, [](Image a, Image b, int w, int h, const PixelColour& yuv) { \
            libyuv::function(f(a), P1(b), constants_of(yuv), w, h);            \
        }                                                                      \
    }

const libyuv::YuvConstants* constants_of(const PixelColour& yuv) {
    const bool full = yuv.range == PixelRange::Full;
    if (yuv.matrix == PixelMatrix::Bt601) {
        return full ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
    }
    return full ? &libyuv::kYuvF709Constants : &libyuv::kYuvH709Constants;
}

const LibyuvEntry kLibyuv[] = {
    ENTRY('UYVY', 'I420', UYVYToI420, P1, P3),
    ENTRY('UYVY', 'NV12', UYVYToNV12, P1, P2),
    ENTRY('UYVY', 'I422', UYVYToI422, P1, P3),
    ENTRY('UYVY', 'GREY', UYVYToY, P1, P1),
    ENTRY('YUYV', 'I420', YUY2ToI420, P1, P3),
    ENTRY('YUYV', 'NV12', YUY2ToNV12, P1, P2),
    ENTRY('YUYV', 'I422', YUY2ToI422, P1, P3),
    ENTRY('YUYV', 'GREY', YUY2ToY, P1, P1),
    ENTRY('I420', 'UYVY', I420ToUYVY, P3, P1),
    ENTRY('I420', 'YUYV', I420ToYUY2, P3, P1),
    ENTRY('I420', 'NV12', I420ToNV12, P3, P2),
    ENTRY('I420', 'I422', I420ToI422, P3, P3),
    ENTRY('I420', 'YV12', I420Copy, P3, P3),
    ENTRY('NV12', 'I420', NV12ToI420, P2, P3),
    ENTRY('I422', 'UYVY', I422ToUYVY, P3, P1),
    ENTRY('I422', 'YUYV', I422ToYUY2, P3, P1),
    ENTRY('I422', 'I420', I422ToI420, P3, P3),
    ENTRY('I422', 'YV16', I422Copy, P3, P3),
    ENTRY('I422', 'I210', I422ToI210, P3, W3),
    ENTRY('I210', 'I422', I210ToI422, W3, P3),
    ENTRY('I210', 'I420', I210ToI420, W3, P3),
    ENTRY('BGRA', 'I420', ARGBToI420, P1, P3),
    ENTRY('BGRA', 'NV12', ARGBToNV12, P1, P2),
    ENTRY('BGRA', 'I422', ARGBToI422, P1, P3),
    ENTRY('BGRA', 'UYVY', ARGBToUYVY, P1, P1),
    ENTRY('BGRA', 'YUYV', ARGBToYUY2, P1, P1),
    ENTRY('BGRA', 'GREY', ARGBToI400, P1, P1),
    ENTRY('BGRA', 'RV24', ARGBToRGB24, P1, P1),
    ENTRY('BGRA', 'RV16', ARGBToRGB565, P1, P1),
    ENTRY('RV24', 'BGRA', RGB24ToARGB, P1, P1),
    ENTRY('RV16', 'BGRA', RGB565ToARGB, P1, P1),
    ENTRY('RV24', 'I420', RGB24ToI420, P1, P3),
    ENTRY('RV16', 'I420', RGB565ToI420, P1, P3),
    ENTRY('UYVY', 'BGRA', UYVYToARGB, P1, P1),
    ENTRY('YUYV', 'BGRA', YUY2ToARGB, P1, P1),
    TO_RGB('I420', I420ToARGBMatrix, P3, 'BGRA'),
    TO_RGB('I422', I422ToARGBMatrix, P3, 'BGRA'),
    TO_RGB('NV12', NV12ToARGBMatrix, P2, 'BGRA'),
    TO_RGB('GREY', I400ToARGBMatrix, P1, 'BGRA'),
    TO_RGB('I420', I420ToRGB24Matrix, P3, 'RV24'),
    TO_RGB('NV12', NV12ToRGB24Matrix, P2, 'RV24'),
    TO_RGB('I420', I420ToRGB565Matrix, P3, 'RV16'),
    TO_RGB('I422', I422ToRGB565Matrix, P3, 'RV16'),
    {'I210', 'BGRA',
     [](Image a, Image b, int w, int h, const PixelColour& yuv) {
         libyuv::I210ToARGBMatrix(W3(a), P1(b), constants_of(yuv), w, h);
     }},
    {'UYVY', 'YUYV',
     [](Image a, Image b, int w, int h, const PixelColour&) {
         // Pairs of bytes swapped: its only such function works on halves of 'RGBA' rows.
         static const uint8_t kSwap[16] = {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14};
         libyuv::ARGBShuffle(P1(a), P1(b), kSwap, w / 2, h);
     }},
};

#undef ENTRY
#undef TO_RGB

// ---- libswscale

struct SwsFormat {
    unsigned int code;
    AVPixelFormat format;
    bool swapped;
};

constexpr SwsFormat kSwsFormats[] = {
    {'UYVY', AV_PIX_FMT_UYVY422, false},     {'YUYV', AV_PIX_FMT_YUYV422, false},
    {'I420', AV_PIX_FMT_YUV420P, false},     {'YV12', AV_PIX_FMT_YUV420P, false},
    {'NV12', AV_PIX_FMT_NV12, false},        {'I422', AV_PIX_FMT_YUV422P, false},
    {'YV16', AV_PIX_FMT_YUV422P, false},     {'BGRA', AV_PIX_FMT_BGRA, false},
    {'GREY', AV_PIX_FMT_GRAY8, false},       {'RV24', AV_PIX_FMT_BGR24, false},
    {'RV16', AV_PIX_FMT_RGB565LE, false},    {'RGB2', AV_PIX_FMT_RGB8, false},
    {'I210', AV_PIX_FMT_YUV422P10LE, false}, {'I410', AV_PIX_FMT_YUV444P10LE, false},
};

AVPixelFormat sws_format(unsigned int code) {
    for (const SwsFormat& entry : kSwsFormats) {
        if (entry.code == code) return entry.format;
    }
    return AV_PIX_FMT_NONE;
}

int sws_matrix(PixelMatrix matrix) {
    return matrix == PixelMatrix::Bt709 ? SWS_CS_ITU709 : SWS_CS_ITU601;
}

// ---- zimg

/// Red, green and blue as zimg counts them: three planes that lie within the rows of the picture.
PixelImage as_planes(const PixelFormat& format, const PixelImage& image) {
    if (format.family != PixelFamily::Rgb) return image;
    PixelImage planes;
    for (int i = 0; i < 3; ++i) {
        planes.planes[i] = image.planes[0] + i * image.strides[0] / 4;
        planes.strides[i] = image.strides[0];
    }
    return planes;
}

// ---- the plain loop

constexpr int kHalf = 1 << 14;

/// 15-bit gains of BT.709 limited.
__attribute__((target("avx2"))) void plain_rows(const unsigned char* __restrict row0,
                                                const unsigned char* __restrict row1,
                                                unsigned char* __restrict y0,
                                                unsigned char* __restrict y1,
                                                unsigned char* __restrict u,
                                                unsigned char* __restrict v, int width) {
    for (int x = 0; x < width; ++x) {
        const unsigned char* p = row0 + 4 * x;
        y0[x] = static_cast<unsigned char>(
            (p[0] * 2032 + p[1] * 20127 + p[2] * 5983 + (16 << 15) + kHalf) >> 15);
    }
    for (int x = 0; x < width; ++x) {
        const unsigned char* p = row1 + 4 * x;
        y1[x] = static_cast<unsigned char>(
            (p[0] * 2032 + p[1] * 20127 + p[2] * 5983 + (16 << 15) + kHalf) >> 15);
    }
    for (int x = 0; x < width / 2; ++x) {
        const unsigned char* p = row0 + 8 * x;
        const unsigned char* q = row1 + 8 * x;
        const int b = p[0] + p[4] + q[0] + q[4];
        const int g = p[1] + p[5] + q[1] + q[5];
        const int r = p[2] + p[6] + q[2] + q[6];
        u[x] = static_cast<unsigned char>(
            (b * 14392 - g * 11094 - r * 3298 + (128 << 17) + 4 * kHalf) >> 17);
        v[x] = static_cast<unsigned char>(
            (r * 14392 - g * 13073 - b * 1319 + (128 << 17) + 4 * kHalf) >> 17);
    }
}

}  // namespace

void Silence() {
    av_log_set_level(AV_LOG_FATAL);
}

Conversion Libyuv(const PixelRequest& request) {
    const bool toYuv = FindPixelFormat(request.to)->family != PixelFamily::Rgb;
    const PixelColour colour = toYuv ? request.toColour : request.fromColour;
    for (const LibyuvEntry& entry : kLibyuv) {
        if (entry.from != request.from || entry.to != request.to) continue;
        return [run = entry.run, request, colour](Image from, Image to) {
            run(from, to, request.width, request.height, colour);
        };
    }
    return {};
}

Conversion Swscale(const PixelRequest& request, Telling telling) {
    int flags = SWS_BICUBIC;
    if (telling == Telling::Told) flags = SWS_POINT | SWS_ACCURATE_RND;
    if (telling == Telling::ToldAndAccurate) {
        flags = SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
    }
    const std::shared_ptr<SwsContext> context(
        sws_getContext(request.width, request.height, sws_format(request.from), request.width,
                       request.height, sws_format(request.to), flags, nullptr, nullptr, nullptr),
        sws_freeContext);
    if (!context) return {};
    if (telling != Telling::Untold) {
        sws_setColorspaceDetails(context.get(),
                                 sws_getCoefficients(sws_matrix(request.fromColour.matrix)),
                                 request.fromColour.range == PixelRange::Full,
                                 sws_getCoefficients(sws_matrix(request.toColour.matrix)),
                                 request.toColour.range == PixelRange::Full, 0, 1 << 16, 1 << 16);
    }
    return [context, height = request.height](Image from, Image to) {
        sws_scale(context.get(), from.planes, from.strides, 0, height, to.planes, to.strides);
    };
}

Conversion Zimg(const PixelRequest& request) {
    const std::shared_ptr<ZimgConversion> zimg = ZimgConversion::Make(request);
    if (!zimg) return {};
    const PixelFormat& from = *FindPixelFormat(request.from);
    const PixelFormat& to = *FindPixelFormat(request.to);
    return
        [zimg, &from, &to](Image a, Image b) { zimg->Run(as_planes(from, a), as_planes(to, b)); };
}

Conversion PlainLoop(const PixelRequest& request) {
    const PixelColour limited709{PixelMatrix::Bt709, PixelRange::Limited};
    if (request.from != 'BGRA' || request.to != 'I420' || request.toColour != limited709) return {};
    if (!__builtin_cpu_supports("avx2")) return {};
    return [request](Image from, Image to) {
        for (int y = 0; y + 1 < request.height; y += 2) {
            plain_rows(from.planes[0] + from.strides[0] * y,
                       from.planes[0] + from.strides[0] * (y + 1), to.planes[0] + to.strides[0] * y,
                       to.planes[0] + to.strides[0] * (y + 1),
                       to.planes[1] + to.strides[1] * (y / 2),
                       to.planes[2] + to.strides[2] * (y / 2), request.width);
        }
    };
}

}  // namespace Quillon::Orb::Rivals
