#include "PixelPlan.h"

#include <gtest/gtest.h>
#include <string>

#include "PixelReference.h"
#include "PixelTestPicture.h"

using namespace Quillon::Orb;
using namespace Quillon::Orb::Testing;

namespace {

constexpr PixelColour kColours[] = {{PixelMatrix::Bt601, PixelRange::Limited},
                                    {PixelMatrix::Bt601, PixelRange::Full},
                                    {PixelMatrix::Bt709, PixelRange::Limited},
                                    {PixelMatrix::Bt709, PixelRange::Full}};

std::string text_of(unsigned int code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(code >> shift);
    return text;
}

std::string text_of(const PixelColour& colour) {
    return std::string(colour.matrix == PixelMatrix::Bt601 ? "601" : "709") +
           (colour.range == PixelRange::Full ? " full" : " limited");
}

std::string text_of(const PixelRequest& request) {
    return text_of(request.from) + " " + text_of(request.fromColour) + " -> " +
           text_of(request.to) + " " + text_of(request.toColour) + ", " +
           std::to_string(request.width) + " x " + std::to_string(request.height) + ", scan " +
           std::to_string(static_cast<int>(request.scan));
}

/// The largest distance in codes between what came out and the reference.
int worst_error(const PixelRequest& request, TestPicture& from, TestPicture& to) {
    const Reference::Picture wanted = Reference::Convert(
        request, Reference::ReadCodes(from.Format(), from.Image(), request.width, request.height));
    const Reference::Picture got =
        Reference::ReadCodes(to.Format(), to.Image(), request.width, request.height);
    double worst = 0.0;
    for (int c = 0; c < Reference::ComponentCount(to.Format()); ++c) {
        EXPECT_EQ(got.c[c].values.size(), wanted.c[c].values.size());
        for (std::size_t i = 0; i < got.c[c].values.size(); ++i) {
            worst = std::max(worst, std::abs(got.c[c].values[i] - wanted.c[c].values[i]));
        }
    }
    return static_cast<int>(worst);
}

/// Runs one conversion and says what is wrong with it; an empty text if nothing is.
std::string complaint_about(const PixelRequest& request, Fill fill, unsigned int seed) {
    TestPicture from(request.from, request.width, request.height, seed % 3);
    TestPicture to(request.to, request.width, request.height, (seed + 1) % 3);
    from.FillWith(fill, seed);
    const TestPicture before = from;
    const auto plan = PixelPlan::Make(request);
    if (!plan) return "no plan for " + text_of(request);
    plan->Convert(from.Image(), to.Image());
    if (!to.GuardsHold()) return "written outside the picture: " + text_of(request);
    if (!from.SameBytes(before)) return "the source has changed: " + text_of(request);
    const int error = worst_error(request, from, to);
    if (error > 1) return std::to_string(error) + " codes off: " + text_of(request);
    return "";
}

struct Shape {
    int width;
    int height;
    PixelScan scan;
};

/// Both odd and even, below and above the widest vector, with rests of every kind.
constexpr Shape kShapes[] = {
    {67, 5, PixelScan::Progressive},  {65, 7, PixelScan::Interlaced},
    {34, 5, PixelScan::TopField},     {33, 4, PixelScan::BottomField},
    {130, 4, PixelScan::Progressive}, {38, 6, PixelScan::Interlaced},
    {1, 1, PixelScan::Progressive},   {2, 2, PixelScan::Interlaced},
    {3, 3, PixelScan::Interlaced},
};
constexpr int kAllShapes = sizeof kShapes / sizeof kShapes[0];
constexpr int kFewShapes = 2;  // of pictures that say nothing new about sizes

class EveryPair : public testing::TestWithParam<unsigned int> {};

/// All targets of one source, in the first `shapes` shapes.
void check_all(unsigned int from, Fill fill, int shapes) {
    int count = 0;
    const unsigned int* codes = AllPixelFormats(count);
    unsigned int seed = 0;
    for (int i = 0; i < count; ++i) {
        for (const PixelColour& fromColour : kColours) {
            for (const PixelColour& toColour : kColours) {
                for (int s = 0; s < shapes; ++s) {
                    const Shape& shape = kShapes[s];
                    const PixelRequest request{from,       codes[i], shape.width, shape.height,
                                               fromColour, toColour, shape.scan};
                    const std::string complaint = complaint_about(request, fill, ++seed);
                    ASSERT_EQ(complaint, "");
                }
            }
        }
    }
}

TEST_P(EveryPair, IsWithinOneCodeOnLegalInput) {
    check_all(GetParam(), Fill::Legal, kAllShapes);
}

TEST_P(EveryPair, IsWithinOneCodeOnAnyBytesAndClamps) {
    check_all(GetParam(), Fill::Random, kAllShapes);
}

TEST_P(EveryPair, IsWithinOneCodeOnRamps) {
    check_all(GetParam(), Fill::Ramp, kFewShapes);
}

TEST_P(EveryPair, ClampsTheExtremes) {
    check_all(GetParam(), Fill::Extremes, kFewShapes);
}

std::vector<unsigned int> all_formats() {
    int count = 0;
    const unsigned int* codes = AllPixelFormats(count);
    return {codes, codes + count};
}

INSTANTIATE_TEST_SUITE_P(PixelPlan, EveryPair, testing::ValuesIn(all_formats()),
                         [](const auto& format) { return text_of(format.param); });

PixelRequest request_of(unsigned int from, unsigned int to, int width, int height) {
    PixelRequest request;
    request.from = from;
    request.to = to;
    request.width = width;
    request.height = height;
    return request;
}

void convert(const PixelRequest& request, TestPicture& from, TestPicture& to) {
    PixelPlan::Make(request)->Convert(from.Image(), to.Image());
}

/// One field of an image, as an image.
PixelImage field_of(const PixelImage& image, int parity) {
    PixelImage field;
    for (int i = 0; i < 3; ++i) {
        if (!image.planes[i]) continue;
        field.planes[i] = image.planes[i] + image.strides[i] * parity;
        field.strides[i] = 2 * image.strides[i];
    }
    return field;
}

TEST(PixelPlan, AnInterlacedFrameIsConvertedAsItsTwoFields) {
    const unsigned int pairs[][2] = {{'UYVY', 'I420'}, {'I420', 'UYVY'}, {'BGRA', 'NV12'},
                                     {'NV12', 'BGRA'}, {'I422', 'YV12'}, {'I420', 'I210'}};
    for (const auto& [from, to] : pairs) {
        PixelRequest request = request_of(from, to, 50, 16);
        TestPicture source(from, 50, 16);
        source.FillWith(Fill::Random, 5);
        TestPicture whole(to, 50, 16);
        request.scan = PixelScan::Interlaced;
        convert(request, source, whole);

        TestPicture apart(to, 50, 16);
        request.height = 8;
        request.scan = PixelScan::TopField;
        PixelPlan::Make(request)->Convert(field_of(source.Image(), 0), field_of(apart.Image(), 0));
        request.scan = PixelScan::BottomField;
        PixelPlan::Make(request)->Convert(field_of(source.Image(), 1), field_of(apart.Image(), 1));
        EXPECT_TRUE(whole.SameBytes(apart)) << text_of(request);
    }
}

TEST(PixelPlan, FieldsOfAnInterlacedFrameDoNotMix) {
    // The top field is red, the bottom field blue. By frame, each chroma line would be of both.
    TestPicture bgra('BGRA', 16, 8);
    const PixelImage image = bgra.Image();
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 16; ++x) {
            const unsigned char pixel[4] = {static_cast<unsigned char>(y & 1 ? 255 : 0), 0,
                                            static_cast<unsigned char>(y & 1 ? 0 : 255), 255};
            std::memcpy(image.planes[0] + image.strides[0] * y + 4 * x, pixel, 4);
        }
    }
    TestPicture yuv('I420', 16, 8);
    PixelRequest request = request_of('BGRA', 'I420', 16, 8);
    request.fromColour.range = PixelRange::Full;
    request.scan = PixelScan::Interlaced;
    convert(request, bgra, yuv);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(yuv.Image().planes[1][yuv.Image().strides[1] * k], k & 1 ? 240 : 102);
        EXPECT_EQ(yuv.Image().planes[2][yuv.Image().strides[2] * k], k & 1 ? 118 : 240);
    }
}

TEST(PixelPlan, GreyStaysGreyInEveryMatrixAndRange) {
    TestPicture bgra('BGRA', 256, 1);
    for (int x = 0; x < 256; ++x) {
        std::memset(bgra.Image().planes[0] + 4 * x, x, 3);
        bgra.Image().planes[0][4 * x + 3] = 255;
    }
    for (const PixelColour& colour : kColours) {
        TestPicture yuv('I422', 256, 1);
        PixelRequest request = request_of('BGRA', 'I422', 256, 1);
        request.fromColour.range = PixelRange::Full;
        request.toColour = colour;
        convert(request, bgra, yuv);
        for (int x = 0; x < 128; ++x) {
            ASSERT_EQ(yuv.Image().planes[1][x], 128) << text_of(colour);
            ASSERT_EQ(yuv.Image().planes[2][x], 128) << text_of(colour);
        }
        const bool full = colour.range == PixelRange::Full;
        EXPECT_EQ(yuv.Image().planes[0][0], full ? 0 : 16);
        EXPECT_EQ(yuv.Image().planes[0][255], full ? 255 : 235);
    }
}

TEST(PixelPlan, SmallFormatsComeBackUnchanged) {
    for (const unsigned int code : {'RV16', 'RGB2', 'RV24'}) {
        TestPicture small(code, 256, 256);
        small.FillWith(Fill::Random, 3);
        if (code == 'RV16') {  // every pixel there is
            for (int i = 0; i < 65536; ++i) {
                unsigned char* pixel = small.Image().planes[0] + 2 * i;
                pixel[0] = static_cast<unsigned char>(i);
                pixel[1] = static_cast<unsigned char>(i >> 8);
            }
        }
        TestPicture bgra('BGRA', 256, 256);
        convert(request_of(code, 'BGRA', 256, 256), small, bgra);
        TestPicture back(code, 256, 256);
        convert(request_of('BGRA', code, 256, 256), bgra, back);
        EXPECT_TRUE(small.SameBytes(back)) << text_of(code);
    }
}

TEST(PixelPlan, TenBitsBringEightBackUnchanged) {
    for (const PixelRange range : {PixelRange::Limited, PixelRange::Full}) {
        TestPicture eight('UYVY', 70, 4);
        eight.FillWith(Fill::Ramp, 1);
        PixelRequest request = request_of('UYVY', kPixelI210, 70, 4);
        request.fromColour.range = request.toColour.range = range;
        TestPicture ten(kPixelI210, 70, 4);
        convert(request, eight, ten);
        std::swap(request.from, request.to);
        TestPicture back('UYVY', 70, 4);
        convert(request, ten, back);
        EXPECT_TRUE(eight.SameBytes(back));
    }
}

TEST(PixelPlan, WordsBeyondTenBitsCountAsTheLargest) {
    TestPicture ten(kPixelI210, 40, 2);
    for (int plane = 0; plane < 3; ++plane) {
        std::memset(ten.Image().planes[plane], 0xff, ten.Image().strides[plane] * 2);
    }
    TestPicture eight('I422', 40, 2);
    convert(request_of(kPixelI210, 'I422', 40, 2), ten, eight);
    EXPECT_EQ(eight.Image().planes[0][39], 255);
    EXPECT_EQ(eight.Image().planes[1][0], 255);
}

TEST(PixelPlan, AlphaIsKeptBetweenBgraAndElseOpaque) {
    TestPicture from('BGRA', 70, 3);
    from.FillWith(Fill::Random, 9);
    PixelRequest request = request_of('BGRA', 'BGRA', 70, 3);
    request.fromColour.range = PixelRange::Full;
    TestPicture to('BGRA', 70, 3);
    convert(request, from, to);
    for (int x = 0; x < 70; ++x) {
        ASSERT_EQ(from.Image().planes[0][4 * x + 3], to.Image().planes[0][4 * x + 3]);
    }
    for (const unsigned int code : {'UYVY', 'I420', 'GREY', 'RV24', 'RV16', 'RGB2'}) {
        TestPicture other(code, 70, 3);
        other.FillWith(Fill::Random, 2);
        convert(request_of(code, 'BGRA', 70, 3), other, to);
        for (int x = 0; x < 70; ++x) ASSERT_EQ(to.Image().planes[0][4 * x + 3], 255);
    }
}

TEST(PixelPlan, RefusesWhatIsNotAPicture) {
    EXPECT_EQ(PixelPlan::Make(request_of('h264', 'I420', 16, 16)), nullptr);
    EXPECT_EQ(PixelPlan::Make(request_of('I420', 'apcn', 16, 16)), nullptr);
    EXPECT_EQ(PixelPlan::Make(request_of('I420', 'BGRA', 0, 16)), nullptr);
    EXPECT_EQ(PixelPlan::Make(request_of('I420', 'BGRA', 16, -1)), nullptr);
}

}  // namespace
