#include "PixelZimg.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 16;
constexpr int kRowBytes = 256;
constexpr int kRim = 4;  // columns and rows at the ends, where zimg goes on in a way of its own

/// Three planes of 64-byte rows, and one of BGRA for those that read it.
struct Planes {
    alignas(64) unsigned char bytes[4][kHeight * kRowBytes] = {};

    PixelImage Image() {
        PixelImage image;
        for (int i = 0; i < 3; ++i) {
            image.planes[i] = bytes[i];
            image.strides[i] = kRowBytes;
        }
        return image;
    }
    PixelImage Bgra() {
        PixelImage image;
        image.planes[0] = bytes[3];
        image.strides[0] = kRowBytes;
        return image;
    }
    PixelImage ImageOf(const PixelFormat& format) {
        return format.code == 'BGRA' ? Bgra() : Image();
    }

    /// From planes of red, green and blue to BGRA.
    void Join() {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                for (int i = 0; i < 3; ++i) {
                    bytes[3][y * kRowBytes + 4 * x + 2 - i] = bytes[i][y * kRowBytes + x];
                }
            }
        }
    }
    void Part() {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                for (int i = 0; i < 3; ++i) {
                    bytes[i][y * kRowBytes + x] = bytes[3][y * kRowBytes + 4 * x + 2 - i];
                }
            }
        }
    }
};

int code_at(const PixelFormat& format, const unsigned char* plane, int x, int y) {
    const unsigned char* at = plane + y * kRowBytes + x * (format.bits == 10 ? 2 : 1);
    return format.bits == 10 ? at[0] | at[1] << 8 : at[0];
}

/// The largest distance from zimg's picture, away from the rim.
int distance(const PixelFormat& format, const Planes& a, const Planes& b) {
    int worst = 0;
    for (int i = 0; i < (format.family == PixelFamily::Grey ? 1 : 3); ++i) {
        const int width = i ? format.ChromaWidth(kWidth) : kWidth;
        const int height = i ? format.ChromaHeight(kHeight) : kHeight;
        for (int y = kRim; y < height - kRim; ++y) {
            for (int x = kRim; x < width - kRim; ++x) {
                worst = std::max(worst, std::abs(code_at(format, a.bytes[i], x, y) -
                                                 code_at(format, b.bytes[i], x, y)));
            }
        }
    }
    return worst;
}

void fill(const PixelFormat& format, Planes& planes) {
    std::minstd_rand random(4);
    const int unit = format.bits == 10 ? 4 : 1;
    for (auto& plane : planes.bytes) {
        for (int i = 0; i < kHeight * kRowBytes; i += unit == 4 ? 2 : 1) {
            const int code = 16 * unit + static_cast<int>(random() >> 8) % (219 * unit + 1);
            plane[i] = static_cast<unsigned char>(code);
            if (unit == 4) plane[i + 1] = static_cast<unsigned char>(code >> 8);
        }
    }
    if (format.code == 'BGRA') planes.Join();
}

struct Case {
    unsigned int from;
    PixelColour fromColour;
    unsigned int to;
    PixelColour toColour;
};

constexpr PixelColour k601{PixelMatrix::Bt601, PixelRange::Limited};
constexpr PixelColour k709{PixelMatrix::Bt709, PixelRange::Limited};
constexpr PixelColour k601Full{PixelMatrix::Bt601, PixelRange::Full};
constexpr PixelColour k709Full{PixelMatrix::Bt709, PixelRange::Full};

// Where zimg's filter is ours: going up, and across going down. Going down it takes four rows for
// a chroma row where we take two, so that 4:2:0 out of more is left to the reference; and another
// matrix it gives to chroma after having doubled it, which blurs, so only 4:4:4 compares there.
constexpr Case kCases[] = {
    {'I420', k709, 'I422', k709},         {'I420', k709, kPixelI210, k709},
    {'I420', k601, kPixelI410, k601},     {'I422', k709, kPixelI410, k709},
    {kPixelI410, k709, 'I422', k709},     {kPixelI410, k709, kPixelI210, k709},
    {'I422', k709, kPixelI210, k709},     {kPixelI210, k709, 'I422', k709},
    {'I422', k709, 'I422', k709Full},     {'I422', k601Full, 'I422', k601},
    {kPixelI410, k601, kPixelI410, k709}, {kPixelI410, k709Full, kPixelI410, k601},
    {'I420', k601Full, 'I420', k601},     {'I420', k709, 'I422', k709Full},
    {'GREY', k709Full, 'GREY', k709},     {'BGRA', k709Full, 'I422', k709},
    {'BGRA', k601Full, 'I422', k601},     {'BGRA', k709Full, 'I422', k709Full},
    {'BGRA', k709Full, kPixelI210, k709}, {'BGRA', k709Full, kPixelI410, k709},
    {'BGRA', k601Full, 'GREY', k601Full}, {'I422', k709, 'BGRA', k709Full},
    {'I420', k709, 'BGRA', k709Full},     {'I420', k601, 'BGRA', k601Full},
    {'I420', k601Full, 'BGRA', k601Full}, {kPixelI210, k709, 'BGRA', k709Full},
    {kPixelI410, k709, 'BGRA', k709Full},
};

TEST(PixelZimg, AgreesWithinOneCode) {
    for (const Case& c : kCases) {
        const PixelRequest request{
            c.from, c.to, kWidth, kHeight, c.fromColour, c.toColour, PixelScan::Progressive};
        const PixelFormat& from = *FindPixelFormat(c.from);
        const PixelFormat& to = *FindPixelFormat(c.to);
        const auto source = std::make_unique<Planes>();
        const auto ours = std::make_unique<Planes>();
        const auto theirs = std::make_unique<Planes>();
        fill(from, *source);
        PixelPlan::Make(request)->Convert(source->ImageOf(from), ours->ImageOf(to));
        if (to.code == 'BGRA') ours->Part();
        const auto zimg = ZimgConversion::Make(request);
        ASSERT_TRUE(zimg);
        ASSERT_TRUE(zimg->Run(source->Image(), theirs->Image()));
        EXPECT_LE(distance(to, *ours, *theirs), 1) << "case " << &c - kCases;
    }
}

}  // namespace
