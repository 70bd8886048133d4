#include "VideoShape.h"

#include <gtest/gtest.h>
#include <limits>

#include "orb/RObject.h"

namespace Quillon::Orb {
namespace {

RObject<CVideoProperties> properties_of(int width, int height) {
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat('I420');
    properties->SetWidth(width);
    properties->SetHeight(height);
    return properties;
}

TEST(VideoShape, FrameRatesOfClocksBecomeTheUsualOnes) {
    struct {
        long long timescale, duration;
        Rational<int> rate;
    } const table[] = {
        {30000, 1001, {30000, 1001}}, {10000000, 333667, {30000, 1001}},
        {10000000, 333333, {30, 1}},  {10000000, 166833, {60000, 1001}},
        {90000, 3600, {25, 1}},       {1000000, 41708, {24000, 1001}},
        {1000, 33, {1000, 33}},       {10, 1, {10, 1}},
        {26780, 1000, {1339, 50}},    {1, 4, {1, 4}},
    };
    for (const auto& row : table) {
        RObject<CVideoProperties> properties = properties_of(2, 2);
        properties->SetTimescale(row.timescale);
        properties->SetFrameDuration(row.duration);
        EXPECT_EQ(NominalFrameRate(*properties), row.rate) << row.timescale << "/" << row.duration;
    }
}

TEST(VideoShape, ARateStandsInForAMissingDuration) {
    RObject<CVideoProperties> properties = properties_of(2, 2);
    EXPECT_EQ(NominalFrameRate(*properties), (Rational<int>{30, 1}));
    properties->SetFrameRate({3000, 100});
    EXPECT_EQ(NominalFrameRate(*properties), (Rational<int>{30, 1}));
    properties->SetFrameRate({24, 1});
    EXPECT_EQ(NominalFrameRate(*properties), (Rational<int>{24, 1}));
    properties->SetFrameRate({30000, 0});
    EXPECT_EQ(NominalFrameRate(*properties), (Rational<int>{30, 1}));
    properties->SetFrameRate({-5, -1});
    EXPECT_EQ(NominalFrameRate(*properties), (Rational<int>{30, 1}));
}

TEST(VideoShape, HugeTermsAreBroughtIntoInts) {
    RObject<CVideoProperties> properties = properties_of(2, 2);
    properties->SetTimescale(1LL << 61);
    properties->SetFrameDuration((1LL << 60) + 1);
    const Rational<int> rate = NominalFrameRate(*properties);
    EXPECT_NEAR(static_cast<double>(rate.numerator) / rate.denominator, 2.0, 1e-6);

    properties->SetFrameDuration(std::numeric_limits<long long>::max());
    const Rational<int> slow = NominalFrameRate(*properties);
    EXPECT_NEAR(static_cast<double>(slow.numerator) / slow.denominator, 0.25, 1e-6);
}

TEST(VideoShape, WhatThePropertiesSayIsRead) {
    const unsigned int formats[] = {'NV12', 'I420'};
    RObject<CVideoProperties> properties = properties_of(1920, 1080);
    properties->SetPixelAspectRatio({40, 30});
    properties->SetFieldOrder(CVideoProperties::kBottomFieldFirst);
    properties->SetColorSpace(ColorSpace::BT601P);
    properties->SetVideoRange(CVideoProperties::kFullRange);
    VideoShape shape;
    ASSERT_EQ(ReadVideoShape(properties.Get(), formats, 2, shape), 0);
    EXPECT_EQ(shape.format, static_cast<unsigned int>('I420'));
    EXPECT_EQ(shape.width, 1920);
    EXPECT_EQ(shape.height, 1080);
    EXPECT_EQ(shape.pixelAspect, (Rational<int>{4, 3}));
    EXPECT_TRUE(shape.IsInterlaced());
    EXPECT_FALSE(shape.IsTopFieldFirst());
    EXPECT_EQ(shape.colour, ColorSpace::BT601P);
    EXPECT_TRUE(shape.fullRange);
}

TEST(VideoShape, AFormatThatIsNotListedMeansTheFirst) {
    const unsigned int formats[] = {'NV12', 'I420'};
    RObject<CVideoProperties> properties = properties_of(16, 16);
    properties->SetFormat('BGRA');
    properties->SetPixelAspectRatio({0, 0});
    VideoShape shape;
    ASSERT_EQ(ReadVideoShape(properties.Get(), formats, 2, shape), 0);
    EXPECT_EQ(shape.format, static_cast<unsigned int>('NV12'));
    EXPECT_EQ(shape.pixelAspect, (Rational<int>{1, 1}));
}

TEST(VideoShape, SizesThatNoPictureHasAreRefused) {
    const unsigned int formats[] = {'NV12'};
    VideoShape shape;
    EXPECT_TRUE(ReadVideoShape(nullptr, formats, 1, shape).Failed());
    const int sizes[][2] = {{0, 1}, {1, 0}, {16385, 1}, {1, 16385}, {1 << 30, 1 << 30}};
    for (const auto& size : sizes) {
        EXPECT_TRUE(
            ReadVideoShape(properties_of(size[0], size[1]).Get(), formats, 1, shape).Failed());
    }
    EXPECT_EQ(ReadVideoShape(properties_of(16384, 1).Get(), formats, 1, shape), 0);
}

}  // namespace
}  // namespace Quillon::Orb
