#include "tarn/writers/orbConversions.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "orb/CPixelDataReference.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "tarn/foundation/tnMediaRecord.h"

using namespace Quillon::Orb;

namespace {

struct Mapping {
    int raster;
    unsigned int format;
    int back;
};

const Mapping kMappings[] = {
    {'2vuy', 'UYVY', '2vuy'},
    {'yuvs', 'YUYV', 'yuvs'},
    {'Grgb', 'BGRA', 'rgba'},
    {'RGBA', 'BGRA', 'rgba'},
    {'rgb ', 'BGRA', 'rgba'},
    {'rgba', 'BGRA', 'rgba'},
    {'I420', 'I420', 'I420'},
    {'IMC4', 'I420', 'I420'},
    {'NV12', 'NV12', 'NV12'},
    {'YM16', 'I422', 0},
    {'YV12', 'YV12', 'YV12'},
    {'gry8', 'GREY', 'gry8'},
    {'rgb2', 'RV24', 'rgb2'},
    {'rgb6', 'RV16', 'rgb6'},
    {'rgb8', 'RGB2', 'rgb8'},
    {0, 0, 0},
    {'BGRA', 0, 0},
    {'UYVY', 0, 0},
    {-1, 0, 0},
};

TEST(RasterMapping, IsManyToOneAndNotItsOwnInverse) {
    for (const Mapping& mapping : kMappings) {
        EXPECT_EQ(RasterTypeToOrbVideoFormat(mapping.raster), mapping.format);
        EXPECT_EQ(OrbVideoFormatToRasterType(mapping.format), mapping.back);
    }
    EXPECT_EQ(OrbVideoFormatToRasterType('YV16'), 0);
    EXPECT_EQ(OrbVideoFormatToRasterType('h264'), 0);
}

tnMediaRecord record_of(int width, int height) {
    tnMediaRecord record(TN_MEDIA_VIDEO);
    record.fColourspace.SetInt32('2vuy');
    record.fWidth.SetInt32(width);
    record.fHeight.SetInt32(height);
    record.SetInt64('tmsc', 30000);
    record.SetUInt64('dura', 1001);
    return record;
}

TEST(RecordToProperties, CarriesEverythingOver) {
    tnMediaRecord record = record_of(1440, 1080);
    record.fFieldOrder.SetInt32(2);
    record.SetInt32('tnSQ', 1920);
    record.fColorSpace.SetInt32('r709');
    record.fNominalRange.SetInt32('full');
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetFormat(), static_cast<unsigned int>('UYVY'));
    EXPECT_EQ(properties->GetWidth(), 1440);
    EXPECT_EQ(properties->GetHeight(), 1080);
    EXPECT_EQ(properties->GetTimescale(), 30000);
    EXPECT_EQ(properties->GetFrameDuration(), 1001);
    EXPECT_EQ(properties->GetFieldOrder(), 2);
    EXPECT_EQ(properties->GetPixelAspectRatio().numerator, 1920);
    EXPECT_EQ(properties->GetPixelAspectRatio().denominator, 1440) << "not reduced";
    EXPECT_TRUE(properties->GetColorSpace() == ColorSpace::BT709);
    EXPECT_EQ(properties->GetVideoRange(), 2);
}

TEST(RecordToProperties, SquarePixelsWithoutASquareWidth) {
    for (const int square : {0, -5, 640}) {
        tnMediaRecord record = record_of(640, 480);
        if (square) record.SetInt32('tnSQ', square);
        RObject<CVideoProperties> properties;
        ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
        EXPECT_EQ(properties->GetPixelAspectRatio().numerator, 1);
        EXPECT_EQ(properties->GetPixelAspectRatio().denominator, 1);
    }
    tnMediaRecord record = record_of(0, 480);
    record.SetInt32('tnSQ', 1920);
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetPixelAspectRatio().numerator, 1) << "there is no width to divide by";
    EXPECT_EQ(properties->GetPixelAspectRatio().denominator, 1);
}

TEST(RecordToProperties, WorksOutTheFrameDurationFromTheRate) {
    const struct {
        long long timescale;
        float rate;
        long long duration;
    } rows[] = {
        {30000, 29.97f, 1001}, {24000, 23.98f, 1000},  // 1000.8: rounded down
        {25, 25.0f, 1},        {25, 50.0f, 0},        {30000, -0.0f, 0},     {30000, 0.0f, 0},
        {0, 0.0f, 0},          {0, 25.0f, 0},         {30000, HUGE_VALF, 0}, {30000, NAN, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.timescale << " at " << row.rate);
        tnMediaRecord record = record_of(640, 480);
        record.SetInt64('tmsc', row.timescale);
        record.SetUInt64('dura', 0);
        record.SetFloat('mfps', row.rate);
        RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
        properties->SetFrameDuration(4711);
        ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
        EXPECT_EQ(properties->GetFrameDuration(), row.duration);

        record.SetUInt64('dura', 7);
        ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
        EXPECT_EQ(properties->GetFrameDuration(), 7) << "a duration leaves the rate unasked";
    }
}

TEST(RecordToProperties, NeitherADurationNorARateLeavesTheDurationUnknown) {
    tnMediaRecord record = record_of(640, 480);
    record.RemoveID('dura');
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFrameDuration(4711);
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetFrameDuration(), 0);
}

TEST(RecordToProperties, ALengthBeyondAllTimeIsTheLongestOne) {
    tnMediaRecord record = record_of(16, 16);
    record.RemoveID('dura');
    record.SetInt64('tmsc', std::numeric_limits<long long>::max());
    record.SetFloat('mfps', 1e-10f);
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetFrameDuration(), std::numeric_limits<long long>::max());
}

TEST(RecordToProperties, KnowsThreeFieldOrders) {
    const int cases[][2] = {{0, 1}, {1, 1}, {2, 2}, {3, 3}, {5, 1}, {-1, 1}};
    for (const auto& [given, expected] : cases) {
        tnMediaRecord record = record_of(16, 16);
        record.fFieldOrder.SetInt32(given);
        RObject<CVideoProperties> properties;
        ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
        EXPECT_EQ(properties->GetFieldOrder(), expected);
    }
}

TEST(RecordToProperties, TellsTheTwoKindsOf601ByTheRate) {
    tnMediaRecord record = record_of(720, 576);
    record.fColorSpace.SetInt32('r601');
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_TRUE(properties->GetColorSpace() == ColorSpace::BT601N);
    record.SetInt64('tmsc', 25);
    record.SetUInt64('dura', 1);
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_TRUE(properties->GetColorSpace() == ColorSpace::BT601P);
}

TEST(RecordToProperties, LeavesInAReusedObjectWhatTheRecordDoesNotSay) {
    tnMediaRecord record = record_of(16, 16);
    record.fNominalRange.SetInt32('full');
    record.fColorSpace.SetInt32('r709');
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    const CVideoProperties* before = properties.Get();
    ASSERT_TRUE(MediaRecordToVideoProperties(record_of(32, 16), properties));
    EXPECT_EQ(properties.Get(), before);
    EXPECT_EQ(properties->GetVideoRange(), 2);
    EXPECT_TRUE(properties->GetColorSpace() == ColorSpace::BT709);
    EXPECT_EQ(properties->GetWidth(), 32);

    record.fNominalRange.SetInt32('limt');
    ASSERT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetVideoRange(), 1);
}

TEST(RecordToProperties, StopsAtTheFirstValueThatIsRefused) {
    RObject<CVideoProperties> properties;
    EXPECT_FALSE(MediaRecordToVideoProperties(record_of(640, -1), properties));
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->GetWidth(), 640) << "what was set before stays";
    EXPECT_EQ(properties->GetTimescale(), 0);

    EXPECT_FALSE(MediaRecordToVideoProperties(record_of(-1, 480), properties));
    EXPECT_EQ(properties->GetWidth(), 640);
    EXPECT_EQ(properties->GetHeight(), 0);

    tnMediaRecord record = record_of(320, 240);
    record.SetInt64('tmsc', -1);
    record.fNominalRange.SetInt32('full');
    EXPECT_FALSE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetHeight(), 240);
    EXPECT_EQ(properties->GetFrameDuration(), 0);

    record.SetInt64('tmsc', 30000);
    record.SetUInt64('dura', 1ull << 63);
    record.fFieldOrder.SetInt32(2);
    EXPECT_FALSE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetTimescale(), 30000);
    EXPECT_EQ(properties->GetFieldOrder(), 1);
    EXPECT_EQ(properties->GetVideoRange(), 1);

    record.SetUInt64('dura', 0);
    record.SetFloat('mfps', -25.0f);
    EXPECT_FALSE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetFrameDuration(), 0);

    record.SetUInt64('dura', (1ull << 63) - 1);
    EXPECT_TRUE(MediaRecordToVideoProperties(record, properties));
    EXPECT_EQ(properties->GetFieldOrder(), 2);
}

TEST(PropertiesToRecord, CarriesEverythingBack) {
    const RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat('I420');
    properties->SetWidth(1920);
    properties->SetHeight(1080);
    properties->SetTimescale(60000);
    properties->SetFrameDuration(1001);
    properties->SetFieldOrder(3);
    properties->SetColorSpace(ColorSpace::BT601P);
    properties->SetVideoRange(1);
    tnMediaRecord record;
    VideoPropertiesToMediaRecord(properties.Get(), record);
    EXPECT_EQ(record.fType.AsInt32(0), static_cast<int>(TN_MEDIA_VIDEO));
    EXPECT_EQ(record.fColourspace.AsInt32(0), 'I420');
    EXPECT_EQ(record.fWidth.AsInt32(0), 1920);
    EXPECT_EQ(record.fHeight.AsInt32(0), 1080);
    EXPECT_EQ(record.AsInt64('tmsc', 0), 60000);
    EXPECT_EQ(record.AsUInt64('dura', 0), 1001u);
    EXPECT_FLOAT_EQ(record.AsFloat('mfps', 0), 60000.0f / 1001.0f);
    EXPECT_EQ(record.fFieldOrder.AsInt32(0), 3);
    EXPECT_EQ(record.fColorSpace.AsInt32(0), 'r601');
    EXPECT_EQ(record.fNominalRange.AsInt32(0), 'limt');
    EXPECT_EQ(record.fBytesPerRow.AsInt32(0), 1920);
}

TEST(PropertiesToRecord, NamesEachColourRangeAndFieldOrderAnew) {
    const struct {
        ColorSpace colour;
        int matrix;
        int range;
        int rangeName;
        int order;
    } rows[] = {
        {ColorSpace::BT709, 'r709', 2, 'full', 2},
        {ColorSpace::BT601N, 'r601', 1, 'limt', 1},
        {ColorSpace::BT601P, 'r601', 2, 'full', 3},
    };
    tnMediaRecord record;
    for (const auto& row : rows) {
        const RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
        properties->SetColorSpace(row.colour);
        properties->SetVideoRange(row.range);
        properties->SetFieldOrder(row.order);
        VideoPropertiesToMediaRecord(properties.Get(), record);
        EXPECT_EQ(record.fColorSpace.AsInt32(0), row.matrix);
        EXPECT_EQ(record.fNominalRange.AsInt32(0), row.rangeName);
        EXPECT_EQ(record.fFieldOrder.AsInt32(0), row.order) << "whatever it was before";
    }
}

TEST(PropertiesToRecord, KeepsTheRateWhereTimeIsUnknown) {
    const RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat('I422');
    tnMediaRecord record;
    record.SetFloat('mfps', 25.0f);
    record.fColorSpace.SetInt32('r709');
    VideoPropertiesToMediaRecord(properties.Get(), record);
    EXPECT_FLOAT_EQ(record.AsFloat('mfps', 0), 25.0f);
    EXPECT_EQ(record.AsInt64('tmsc', -1), 0);
    EXPECT_EQ(record.fColourspace.AsInt32(-1), 0) << "there is no raster type of that format";
    EXPECT_EQ(record.fColorSpace.AsInt32(0), 'r709') << "an unknown colour leaves it";
    VideoPropertiesToMediaRecord('YM16', properties.Get(), record);
    EXPECT_EQ(record.fColourspace.AsInt32(0), 'YM16');
}

TEST(CpuSample, HasTheShapeOfItsProperties) {
    RObject<CVideoProperties> properties;
    ASSERT_TRUE(MediaRecordToVideoProperties(record_of(64, 32), properties));
    RObject<CVideoSample> sample;
    ASSERT_TRUE(CreateCPUVideoSample(sample, properties.Get()).Succeeded());
    EXPECT_EQ(sample->GetTime(), 0);
    EXPECT_EQ(sample->GetDuration(), 1);
    const RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->GetLength(), 128 * 32);
    EXPECT_EQ(pixels->GetStride(), 128);
    EXPECT_EQ(pixels->GetWidth(), 64);
    EXPECT_EQ(pixels->GetHeight(), 32);
}

TEST(CpuSample, RefusesAShapeWithoutSizeAndLeavesTheHandle) {
    RObject<CVideoSample> sample(new CVideoSample(nullptr));
    const CVideoSample* before = sample.Get();
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, nullptr)), ResultNullPointer::kCode);
    RObject<CVideoProperties> properties;
    MediaRecordToVideoProperties(record_of(0, 32), properties);
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())),
              ResultInvalidArgument::kCode);
    MediaRecordToVideoProperties('h264', record_of(64, 32), properties);
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())),
              ResultInvalidArgument::kCode)
        << "an encoded format has no rows";
    MediaRecordToVideoProperties(record_of(64, 0), properties);
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())),
              ResultInvalidArgument::kCode);
    MediaRecordToVideoProperties('BGRA', record_of(40000, 40000), properties);
    ASSERT_GE(properties->GetStride(1), 1);
    EXPECT_EQ(static_cast<int>(CreateCPUVideoSample(sample, properties.Get())),
              ResultInvalidArgument::kCode)
        << "more bytes than can be counted";
    EXPECT_EQ(sample.Get(), before);
}

}  // namespace
