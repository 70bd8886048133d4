#include "tarn/foundation/tnRasterType.h"

#include <gtest/gtest.h>

namespace {

struct Expected {
    int fType;
    int fBits;
    int fActiveOf10;  // active bytes of a row of 10 pixels
    int fRowsOf10;
    bool fYUV;
    bool fPlanar;
};

constexpr Expected kExpected[] = {
    {'2vuy', 16, 20, 10, true, false},  {'yuvs', 16, 20, 10, true, false},
    {'I420', 12, 10, 15, true, true},   {'IMC4', 12, 10, 15, true, true},
    {'NV12', 12, 10, 15, true, true},   {'YV12', 12, 10, 15, true, true},
    {'YM16', 16, 20, 10, true, true},   {'gry8', 8, 10, 10, false, false},
    {'rgb8', 8, 10, 10, false, false},  {'rgb6', 16, 20, 10, false, false},
    {'rgb2', 24, 30, 10, false, false}, {'rgb ', 32, 40, 10, false, false},
    {'rgba', 32, 40, 10, false, false}, {'RGBA', 32, 40, 10, false, false},
    {'Grgb', 32, 40, 10, false, false}, {'BGRA', 0, 0, 10, false, false},
    {'UYVY', 0, 0, 10, false, false},   {'I422', 0, 0, 10, false, false},
    {0, 0, 0, 10, false, false},        {-1, 0, 0, 10, false, false},
};

TEST(tnRasterType, EveryCodeHasItsSizes) {
    for (const Expected& expected : kExpected) {
        SCOPED_TRACE(expected.fType);
        EXPECT_EQ(tnRasterType::BitsPerPixel(expected.fType), expected.fBits);
        EXPECT_EQ(tnRasterType::ActiveBytesPerRow(10, expected.fType), expected.fActiveOf10);
        EXPECT_EQ(tnRasterType::RowCount(10, expected.fType), expected.fRowsOf10);
        EXPECT_EQ(tnRasterType::IsYUVFormat(expected.fType), expected.fYUV);
        EXPECT_EQ(tnRasterType::IsPlanarFormat(expected.fType), expected.fPlanar);
    }
}

TEST(tnRasterType, PaddedPitchOfTheLumaPlaneFor420) {
    EXPECT_EQ(tnRasterType::BytesPerRow(1920, 'I420', false), 1920);
    EXPECT_EQ(tnRasterType::BytesPerRow(1000, 'I420', false), 1024);
    EXPECT_EQ(tnRasterType::BytesPerRow(1000, 'I420', true), 1024);
    EXPECT_EQ(tnRasterType::BytesPerRow(1030, 'I420', true), 1152);
    EXPECT_EQ(tnRasterType::BytesPerRow(1030, 'I420', false), 1088);
}

TEST(tnRasterType, PaddedPitchOfPackedLayouts) {
    EXPECT_EQ(tnRasterType::BytesPerRow(1920, '2vuy', false), 3840);
    EXPECT_EQ(tnRasterType::BytesPerRow(1921, 'rgb2', false), 5824);
    EXPECT_EQ(tnRasterType::BytesPerRow(1, 'gry8', false), 64);
    EXPECT_EQ(tnRasterType::BytesPerRow(1, 'gry8', true), 128);
    EXPECT_EQ(tnRasterType::BytesPerRow(0, 'rgba', false), 0);
    EXPECT_EQ(tnRasterType::BytesPerRow(1920, 'YM16', false), 3840);
}

TEST(tnRasterType, UnknownCodeHasNoPitch) {
    for (const int width : {0, 1, 63, 1920}) {
        EXPECT_EQ(tnRasterType::BytesPerRow(width, 'BGRA', false), 0);
        EXPECT_EQ(tnRasterType::BytesPerRow(width, 'BGRA', true), 0);
    }
}

TEST(tnRasterType, PitchOfAComponentIsRoundedUp) {
    EXPECT_EQ(tnRasterType::BytesPerRowComponent(64, 1, false), 64);
    EXPECT_EQ(tnRasterType::BytesPerRowComponent(65, 1, false), 128);
    EXPECT_EQ(tnRasterType::BytesPerRowComponent(64, 1, true), 128);
    EXPECT_EQ(tnRasterType::BytesPerRowComponent(100, 3, false), 320);
    EXPECT_EQ(tnRasterType::BytesPerRowComponent(100, 3, true), 384);
}

TEST(tnRasterType, RowsOf420AreRoundedDown) {
    EXPECT_EQ(tnRasterType::RowCount(1080, 'I420'), 1620);
    EXPECT_EQ(tnRasterType::RowCount(1081, 'NV12'), 1621);
    EXPECT_EQ(tnRasterType::RowCount(-3, 'NV12'), -4);  // signed, toward zero
    EXPECT_EQ(tnRasterType::RowCount(1080, 'YM16'), 1080);
    EXPECT_TRUE(tnRasterType::IsPlanarFormat('YM16'));
}

}  // namespace
