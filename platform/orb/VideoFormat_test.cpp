#include "orb/VideoFormat.h"

#include <gtest/gtest.h>

#include "orb/CVideoProperties.h"
#include "orb/RObject.h"

namespace Quillon::Orb {
namespace {

TEST(VideoFormat, FamiliesHaveOneName) {
    for (const unsigned int format : {'apco', 'apcs', 'apcn', 'apch', 'ap4h'}) {
        EXPECT_EQ(static_cast<unsigned>('ap  '), VideoFormat::GetCanonicalFormat(format));
    }
    EXPECT_EQ(static_cast<unsigned>('h264'), VideoFormat::GetCanonicalFormat('avc1'));
    EXPECT_EQ(static_cast<unsigned>('h264'), VideoFormat::GetCanonicalFormat('h264'));
    for (const unsigned int format : {'jpeg', 'mp2v', 'UYVY', 'XYZ '}) {
        EXPECT_EQ(format, VideoFormat::GetCanonicalFormat(format));
    }
}

struct Shape {
    unsigned int format;
    int width, height;
    int stride, length;
};

class Strides : public testing::TestWithParam<Shape> {};

TEST_P(Strides, AgreeWithTheRowArithmeticOfFrames) {
    const Shape& shape = GetParam();
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat(shape.format);
    properties->SetWidth(shape.width);
    properties->SetHeight(shape.height);
    EXPECT_EQ(shape.stride, properties->GetStride(1));
    EXPECT_EQ(shape.length, properties->GetSampleLength(1));
    PixelLayout layout;
    EXPECT_EQ(0, VideoFormat::GetLayout(shape.format, shape.width, shape.height, shape.stride,
                                        shape.length, layout));
    EXPECT_EQ(shape.length, layout.length);
    EXPECT_EQ(shape.stride, layout.planes[0].stride);
}

INSTANTIATE_TEST_SUITE_P(
    VideoFormat, Strides,
    testing::Values(
        // even sizes: width times bytes, planes packed end to end
        Shape{'UYVY', 1920, 1080, 3840, 3840 * 1080}, Shape{'YUYV', 1920, 1080, 3840, 3840 * 1080},
        Shape{'I420', 1920, 1080, 1920, 1920 * 1620}, Shape{'YV12', 1920, 1080, 1920, 1920 * 1620},
        Shape{'NV12', 1920, 1080, 1920, 1920 * 1620}, Shape{'I422', 1920, 1080, 1920, 1920 * 2160},
        Shape{'YV16', 1920, 1080, 1920, 1920 * 2160}, Shape{'BGRA', 1920, 1080, 7680, 7680 * 1080},
        Shape{'GREY', 1920, 1080, 1920, 1920 * 1080}, Shape{'RV24', 1920, 1080, 5760, 5760 * 1080},
        Shape{'RV16', 1920, 1080, 3840, 3840 * 1080}, Shape{'RGB2', 1920, 1080, 1920, 1920 * 1080},
        // odd sizes: a pair counts whole, chroma is rounded up
        Shape{'UYVY', 641, 481, 1284, 1284 * 481},
        Shape{'I420', 641, 481, 642, 642 * 481 + 2 * 321 * 241},
        Shape{'NV12', 641, 481, 642, 642 * 481 + 642 * 241},
        Shape{'I422', 641, 481, 642, 642 * 481 * 2}, Shape{'BGRA', 641, 481, 2564, 2564 * 481},
        Shape{'RV24', 641, 481, 1923, 1923 * 481}));

TEST(VideoFormat, WhatHasNoSizeGivesNone) {
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    EXPECT_EQ(0, properties->GetStride(1));
    properties->SetWidth(16);
    properties->SetHeight(16);
    properties->SetFormat('avc1');
    EXPECT_EQ(0, properties->GetStride(1));
    EXPECT_EQ(0, properties->GetSampleLength(1));
    properties->SetFormat('UYVY');
    EXPECT_EQ(32, properties->GetStride(1));
    properties->SetHeight(0);
    EXPECT_EQ(0, properties->GetSampleLength(1));
    properties->SetWidth(0x7FFFFFFF);
    EXPECT_EQ(0, properties->GetStride(1));
    EXPECT_EQ(0, VideoFormat::GetStride('UYVY', 16, 0));
    EXPECT_EQ(0, VideoFormat::GetSampleLength('BGRA', 30000, 30000, 120000));
}

TEST(VideoFormat, StrideRoundsUpToAnAlignment) {
    EXPECT_EQ(2048, VideoFormat::GetStride('NV12', 1930, 128));
    EXPECT_EQ(64, VideoFormat::GetStride('GREY', 1, 64));
}

TEST(VideoFormat, PlanesLieBehindEachOther) {
    PixelLayout layout;
    ASSERT_EQ(0, VideoFormat::GetLayout('YV12', 640, 480, 704, 704 * 720, layout));
    ASSERT_EQ(3, layout.planeCount);
    EXPECT_EQ(0, layout.planes[0].offset);
    EXPECT_EQ(704, layout.planes[0].stride);
    EXPECT_EQ(640, layout.planes[0].rowBytes);
    EXPECT_EQ(480, layout.planes[0].rows);
    EXPECT_EQ(704 * 480, layout.planes[1].offset);
    EXPECT_EQ(352, layout.planes[1].stride);
    EXPECT_EQ(320, layout.planes[1].rowBytes);
    EXPECT_EQ(240, layout.planes[1].rows);
    EXPECT_EQ(704 * 480 + 352 * 240, layout.planes[2].offset);
    ASSERT_EQ(0, VideoFormat::GetLayout('NV12', 640, 480, 704, 704 * 720, layout));
    ASSERT_EQ(2, layout.planeCount);
    EXPECT_EQ(704, layout.planes[1].stride);
    EXPECT_EQ(640, layout.planes[1].rowBytes);
    EXPECT_EQ(240, layout.planes[1].rows);
    ASSERT_EQ(0, VideoFormat::GetLayout('I422', 640, 480, 640, 640 * 960, layout));
    ASSERT_EQ(3, layout.planeCount);
    EXPECT_EQ(320, layout.planes[2].stride);
    EXPECT_EQ(480, layout.planes[2].rows);
}

TEST(VideoFormat, TightBuffersOfHostsAreRead) {
    PixelLayout layout;
    // 3 * 1081 / 2 = 1621 rows: the last chroma row is not there.
    ASSERT_EQ(0, VideoFormat::GetLayout('NV12', 1920, 1081, 1920, 1920 * 1621, layout));
    EXPECT_EQ(540, layout.planes[1].rows);
    ASSERT_EQ(0, VideoFormat::GetLayout('I420', 1920, 1081, 1920, 1920 * 1621, layout));
    EXPECT_EQ(540, layout.planes[1].rows);
    EXPECT_EQ(1920 * 1081 + 960 * 540, layout.planes[2].offset);
    // an odd pitch: the last chroma column is not there
    ASSERT_EQ(0, VideoFormat::GetLayout('I420', 641, 480, 641, 641 * 720, layout));
    EXPECT_EQ(320, layout.planes[1].stride);
    EXPECT_EQ(320, layout.planes[1].rowBytes);
    // planar 4:2:2 whose pitch spans the three planes of a row
    ASSERT_EQ(0, VideoFormat::GetLayout('I422', 640, 480, 1280, 1280 * 480, layout));
    EXPECT_EQ(640, layout.planes[0].stride);
    EXPECT_EQ(640 * 480, layout.planes[1].offset);
    // the last row of a wider pitch need not be whole
    EXPECT_EQ(0, VideoFormat::GetLayout('BGRA', 10, 2, 64, 64 + 40, layout));
}

TEST(VideoFormat, LayoutRefusesWhatDoesNotFit) {
    PixelLayout layout;
    EXPECT_EQ(ResultNotSupported::kCode, VideoFormat::GetLayout('avc1', 16, 16, 16, 4096, layout));
    EXPECT_EQ(ResultInvalidArgument::kCode,
              VideoFormat::GetLayout('UYVY', 16, 16, 31, 4096, layout));
    EXPECT_EQ(ResultInvalidArgument::kCode,
              VideoFormat::GetLayout('UYVY', 16, 16, 32, 32 * 16 - 1, layout));
    EXPECT_EQ(ResultInvalidArgument::kCode, VideoFormat::GetLayout('UYVY', 0, 16, 32, 512, layout));
    EXPECT_EQ(ResultInvalidArgument::kCode,
              VideoFormat::GetLayout('I420', 16, 16, 16, 16 * 24 - 1, layout));
    EXPECT_EQ(ResultInvalidArgument::kCode,
              VideoFormat::GetLayout('I422', 640, 480, 640, 640 * 959, layout));
}

}  // namespace
}  // namespace Quillon::Orb
