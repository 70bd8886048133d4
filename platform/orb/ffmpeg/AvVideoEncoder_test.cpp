#include "AvVideoEncoder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/filterSupport.h"
#include "orb/testSupport.h"

#include "EncoderTestKit.h"
#include "X264.h"

namespace Quillon::Orb {
namespace {

using namespace TestKit;

/// One way through each encoder.
struct Road {
    const char* name;
    unsigned int code;
    unsigned int output;
    unsigned int input;
    double psnr;        // dB that the luma keeps at least
    double chromaPsnr;  // and each chroma plane
};

const Road kRoads[] = {
    {"x264", 'h264', 'h264', 'I420', 34, 37},
    {"x264FromNv12", 'h264', 'avc1', 'NV12', 34, 37},
    {"x264FromYv12", 'h264', 'h264', 'YV12', 34, 37},
    {"PlatformH264", 'vtbx', 'h264', 'NV12', 34, 37},
    {"PlatformH264FromUyvy", 'vtbx', 'avc1', 'UYVY', 34, 37},
    {"PlatformH264FromI420", 'vtbx', 'h264', 'I420', 34, 37},
    {"PlatformH264FromYv16", 'vtbx', 'h264', 'YV16', 34, 37},
    {"ProResProxy", 'vtbx', 'apco', 'UYVY', 36, 48},
    {"ProResLt", 'vtbx', 'apcs', 'UYVY', 40, 54},
    {"ProRes", 'vtbx', 'apcn', 'YUYV', 43, 56},
    {"ProResHq", 'vtbx', 'apch', 'UYVY', 45, 58},
    {"ProResHqPlanar", 'vtbx', 'apch', 'I422', 45, 58},
    {"ProResHqFrom420", 'vtbx', 'apch', 'I420', 45, 51},
    {"ProRes4444", 'vtbx', 'ap4h', 'UYVY', 45, 56},
    {"MotionJpeg", 'mjpg', 'jpeg', 'I420', 38, 47},
    {"MotionJpeg422", 'mjpg', 'jpeg', 'I422', 38, 48},
    {"MotionJpegYv16", 'mjpg', 'jpeg', 'YV16', 38, 48},
    {"MotionJpegGrey", 'mjpg', 'jpeg', 'GREY', 38, 0},
    {"Mpeg2", 'mcm2', 'mp2v', 'I420', 34, 45},
    {"Mpeg2FromYv12", 'mcm2', 'mp2v', 'YV12', 34, 45},
};

class VideoEncoders : public testing::TestWithParam<Road> {
protected:
    Source MakeSource() const {
        Source source;
        source.format = GetParam().input;
        return source;
    }
    RObject<CVideoCompressor> Begun(const Source& source) const {
        RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
        if (!compressor) return compressor;
        EXPECT_EQ(compressor->SetOutputFormat(GetParam().output), 0);
        EXPECT_EQ(compressor->SetInputProperties(source.Properties().Get()), 0);
        Result begun = compressor->Begin();
        EXPECT_TRUE(begun.Succeeded()) << begun.GetMessage();
        return compressor;
    }
    RObject<CVideoProperties> Output(CVideoCompressor& compressor) const {
        return RObject<CVideoProperties>(compressor.GetOutputProperties(0));
    }
};

INSTANTIATE_TEST_SUITE_P(Roads, VideoEncoders, testing::ValuesIn(kRoads),
                         [](const auto& road) { return std::string(road.param.name); });

TEST_P(VideoEncoders, WhatGoesInComesOutOnceAndLooksLikeIt) {
    constexpr int kPictures = 40;
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    const Samples samples = Encode(*compressor, source, kPictures);
    ASSERT_EQ(samples.size(), kPictures);
    for (int i = 0; i < kPictures; ++i) {
        EXPECT_EQ(samples[i]->GetTime(), i * source.frameDuration);
        EXPECT_EQ(samples[i]->GetDuration(), source.frameDuration);
    }
    RObject<CVideoProperties> output = Output(*compressor);
    EXPECT_EQ(output->GetFormat(), GetParam().output);
    EXPECT_EQ(output->GetWidth(), source.width);
    EXPECT_EQ(output->GetTimescale(), source.timescale);

    const Decoded decoded = Decode(*output, samples);
    EXPECT_TRUE(decoded.clean);
    ASSERT_EQ(decoded.frames.size(), kPictures);
    for (int i = 0; i < kPictures; ++i) {
        EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), GetParam().psnr) << "picture " << i;
        if (source.format == 'GREY') continue;
        EXPECT_GE(ChromaPsnr(*decoded.frames[i], source, i), GetParam().chromaPsnr)
            << "picture " << i;
    }
    EXPECT_EQ(compressor->End(), 0);
}

TEST_P(VideoEncoders, EndLetsComeOutWhatIsInside) {
    constexpr int kPictures = 25;
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    for (int i = 0; i < kPictures; ++i) {
        ASSERT_EQ(compressor->PutSample(0, MakeSample(source, i).Get()), 0);
    }
    ASSERT_EQ(compressor->End(), 0);
    int count = 0;
    for (;;) {
        RObject<CMediaSample> sample;
        ASSERT_EQ(compressor->GetSample(0, sample), 0);
        if (!sample) break;
        EXPECT_EQ(sample->GetTime(), count * source.frameDuration);
        ++count;
    }
    EXPECT_EQ(count, kPictures);
    EXPECT_EQ(compressor->End(), 0);
}

TEST_P(VideoEncoders, BeginsAgainAfterEnd) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    EXPECT_TRUE(compressor->Begin().Failed());
    const Samples first = Encode(*compressor, source, 5);
    EXPECT_TRUE(compressor->ProcessSample(MakeSample(source, 5).Get()).Failed());
    EXPECT_EQ(compressor->ProcessSample(nullptr), 0);
    EXPECT_EQ(compressor->End(), 0);
    EXPECT_TRUE(compressor->ProcessSample(MakeSample(source, 5).Get()).Failed());
    ASSERT_EQ(compressor->Begin(), 0);
    const Samples second = Encode(*compressor, source, 5);
    ASSERT_EQ(first.size(), 5u);
    ASSERT_EQ(second.size(), 5u);
    EXPECT_EQ(second[0]->GetTime(), 0);
}

TEST_P(VideoEncoders, TimesMayJumpAndRepeat) {
    const long long times[] = {1000, 1000, 5, 90000, 90001, -7, 8, 9, 10, 11};
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    Samples samples;
    for (const long long time : times) {
        ASSERT_EQ(compressor->ProcessSample(MakeSample(source, 1, time, time + 3).Get()), 0);
        ASSERT_EQ(FetchReady(*compressor, samples), 0);
    }
    ASSERT_EQ(compressor->ProcessSample(nullptr), 0);
    ASSERT_EQ(FetchReady(*compressor, samples), 0);
    ASSERT_EQ(samples.size(), std::size(times));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        EXPECT_EQ(samples[i]->GetTime(), times[i]);
        EXPECT_EQ(samples[i]->GetDuration(), times[i] + 3);
    }
}

TEST_P(VideoEncoders, AHintMakesAKeyPicture) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    const Samples samples = Encode(*compressor, source, 14, {7});
    ASSERT_EQ(samples.size(), 14u);
    bool found = false;
    for (const RObject<CVideoSample>& sample : samples) {
        const long long shown = sample->GetTime() + sample->GetCompositionOffset();
        if (shown == 7 * source.frameDuration) {
            found = sample->GetPictureType() == CVideoSample::kKeyPicture;
        }
    }
    EXPECT_TRUE(found);
    const Decoded decoded = Decode(*Output(*compressor), samples);
    ASSERT_EQ(decoded.frames.size(), 14u);
    EXPECT_EQ(decoded.frames[7]->pict_type, AV_PICTURE_TYPE_I);
    EXPECT_TRUE(decoded.frames[7]->key_frame);
}

TEST_P(VideoEncoders, WidePitchesAreReadInPlace) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(compressor->ProcessSample(MakeSample(source, i, i, 1, 64).Get()), 0);
    }
    ASSERT_EQ(compressor->ProcessSample(nullptr), 0);
    Samples samples;
    ASSERT_EQ(FetchReady(*compressor, samples), 0);
    const Decoded decoded = Decode(*Output(*compressor), samples);
    ASSERT_EQ(decoded.frames.size(), 3u);
    EXPECT_GE(LumaPsnr(*decoded.frames[2], source, 2), GetParam().psnr);
}

TEST_P(VideoEncoders, WrongPicturesAreRefusedAndTheRestGoesOn) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    Source other = source;
    other.width = 64;
    RObject<CVideoSample> empty(new CVideoSample(nullptr));
    RObject<CByteArray> bytes(new CByteArray(100, 1));
    RObject<CPixelBufferDataReference> few(
        new CPixelBufferDataReference(bytes.Get(), source.width, source.height, source.width * 2));
    RObject<CVideoSample> small(new CVideoSample(nullptr));
    small->SetDataReference(few.Get());
    ASSERT_EQ(compressor->ProcessSample(MakeSample(source, 0).Get()), 0);
    EXPECT_EQ(compressor->ProcessSample(MakeSample(other, 0).Get()), ResultInvalidArgument::kCode);
    EXPECT_EQ(compressor->ProcessSample(empty.Get()), ResultInvalidArgument::kCode);
    EXPECT_EQ(compressor->ProcessSample(small.Get()), ResultInvalidArgument::kCode);
    ASSERT_EQ(compressor->ProcessSample(MakeSample(source, 1).Get()), 0);
    ASSERT_EQ(compressor->ProcessSample(nullptr), 0);
    Samples samples;
    ASSERT_EQ(FetchReady(*compressor, samples), 0);
    EXPECT_EQ(samples.size(), 2u);
}

TEST_P(VideoEncoders, ShapesWithoutSizeAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
    ASSERT_TRUE(compressor);
    ASSERT_EQ(compressor->SetOutputFormat(GetParam().output), 0);
    EXPECT_EQ(compressor->Begin(), ResultInvalidArgument::kCode);
    const int sizes[][2] = {{0, 240}, {320, 0}, {0, 0}, {100000, 240}, {320, 2000000000}};
    for (const auto& size : sizes) {
        Source source = MakeSource();
        source.width = size[0];
        source.height = size[1];
        compressor->SetInputProperties(source.Properties().Get());
        EXPECT_EQ(compressor->Begin(), ResultInvalidArgument::kCode) << size[0] << " x " << size[1];
    }
    Source source = MakeSource();
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->Begin(), 0);
}

TEST_P(VideoEncoders, TimeScaleAndRateMayBeAnything) {
    const long long scales[][2] = {{10000000, 333667}, {0, 0},   {1, 1},          {1000, 33},
                                   {1, 1000000},       {7, 100}, {4000000000, 7}, {90000, 3600}};
    for (const auto& scale : scales) {
        Source source = MakeSource();
        source.timescale = scale[0];
        source.frameDuration = scale[1];
        RObject<CVideoProperties> properties = source.Properties();
        if (scale[0] == 0) properties->SetFrameRate({30000, 0});
        RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
        compressor->SetOutputFormat(GetParam().output);
        compressor->SetInputProperties(properties.Get());
        Result begun = compressor->Begin();
        ASSERT_EQ(begun, 0) << scale[0] << "/" << scale[1] << ": " << begun.GetMessage();
        EXPECT_EQ(Encode(*compressor, source, 3).size(), 3u) << scale[0] << "/" << scale[1];
    }
}

TEST_P(VideoEncoders, AFormatThatIsNotTakenMeansTheFirstThatIs) {
    RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
    ASSERT_TRUE(compressor);
    compressor->SetOutputFormat(GetParam().output);
    RObject<CValueList<unsigned int>> formats(compressor->GetInputFormats());
    unsigned int first = 0;
    ASSERT_EQ(formats->GetValue(0, first), 0);
    Source source = MakeSource();
    RObject<CVideoProperties> properties = source.Properties();
    properties->SetFormat('RV24');
    compressor->SetInputProperties(properties.Get());
    ASSERT_EQ(compressor->Begin(), 0);
    source.format = first;
    const Samples samples = Encode(*compressor, source, 3);
    const Decoded decoded = Decode(*Output(*compressor), samples);
    ASSERT_EQ(decoded.frames.size(), 3u);
    EXPECT_GE(LumaPsnr(*decoded.frames[2], source, 2), GetParam().psnr);
}

TEST_P(VideoEncoders, UnknownPropertiesAndFormatsAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
    ASSERT_TRUE(compressor);
    EXPECT_TRUE(compressor->SetProperty(PropertyName("No::Such"), 1).Failed());
    EXPECT_TRUE(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, 1).Failed());
    EXPECT_TRUE(
        compressor->SetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, true)
            .Failed());
    EXPECT_TRUE(compressor->SetOutputFormat('VP90').Failed());
}

TEST_P(VideoEncoders, FailuresAreSaidAndARowOfThemOnce) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    RObject<CVideoSample> empty(new CVideoSample(nullptr));
    TraceCatcher trace;
    const auto fail = [&] {
        EXPECT_TRUE(compressor->ProcessSample(empty.Get()).Failed());
        RObject<CVideoSample> out;
        EXPECT_EQ(compressor->ReceiveSample(out), 0);
    };
    for (int i = 0; i < 5; ++i) fail();
    EXPECT_EQ(trace.Count(), 1);
    EXPECT_TRUE(trace.HasLineWith({four_text(GetParam().code).c_str(), "without pixels\n"}));
    ASSERT_EQ(compressor->ProcessSample(MakeSample(source, 0).Get()), 0);
    fail();
    EXPECT_EQ(trace.Count(), 2);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(compressor->Begin().Failed());
    EXPECT_EQ(trace.Count(), 5);
    EXPECT_TRUE(trace.HasLineWith({four_text(GetParam().code).c_str(), "begun already\n"}));
}

TEST_P(VideoEncoders, ASteadyStreamAsksForNoFreshBlocks) {
    const Source source = MakeSource();
    RObject<CVideoCompressor> compressor = Begun(source);
    ASSERT_TRUE(compressor);
    const auto run = [&](int from, int to) {
        for (int i = from; i < to; ++i) {
            // The same picture again and again, so that the encoded sizes repeat as well. Drawing
            // it anew is what keeps the pace: encoders on threads then hold about as many as
            // before.
            ASSERT_EQ(compressor->ProcessSample(MakeSample(source, 0, i, 1).Get()), 0);
            for (;;) {
                RObject<CVideoSample> sample;
                ASSERT_EQ(compressor->ReceiveSample(sample), 0);
                if (!sample) break;
            }
        }
    };
    run(0, 150);
    // Only about: threads that are starved let an encoder hold more than it ever did, which are
    // fresh blocks once. There is a most that it takes, so that few rounds can be of that kind. One
    // that loses or bypasses blocks asks for fresh ones in each.
    constexpr long long kMost = 3;
    long long fresh = kMost + 1;
    for (int round = 1; round <= 10 && fresh > kMost; ++round) {
        const long long before = BlockPool::Shared().GetCounts().fresh;
        run(150 * round, 150 * (round + 1));
        fresh = BlockPool::Shared().GetCounts().fresh - before;
    }
    EXPECT_LE(fresh, kMost);
}

struct FieldShape {
    const char* name;
    unsigned int code;
    unsigned int output;
    unsigned int input;
    int height;
    int fieldOrder;
    double psnr;
};

// Heights of which a picture, or each of its fields, ends within a row of blocks.
const FieldShape kFieldShapes[] = {
    {"ProRes1080i", 'vtbx', 'apch', 'UYVY', 1080, CVideoProperties::kTopFieldFirst, 55},
    {"ProRes486i", 'vtbx', 'apch', 'UYVY', 486, CVideoProperties::kBottomFieldFirst, 55},
    {"ProRes1080p", 'vtbx', 'apch', 'UYVY', 1080, CVideoProperties::kProgressive, 55},
    {"ProRes486p", 'vtbx', 'apch', 'UYVY', 486, CVideoProperties::kProgressive, 55},
    {"ProRes4444_1080i", 'vtbx', 'ap4h', 'UYVY', 1080, CVideoProperties::kTopFieldFirst, 55},
    {"Mpeg2_1080i", 'mcm2', 'mp2v', 'I420', 1080, CVideoProperties::kTopFieldFirst, 41},
    {"Mpeg2_486i", 'mcm2', 'mp2v', 'I420', 486, CVideoProperties::kBottomFieldFirst, 41},
    {"x264_1080i", 'h264', 'h264', 'I420', 1080, CVideoProperties::kTopFieldFirst, 39},
    {"x264_484i", 'h264', 'h264', 'I420', 484, CVideoProperties::kBottomFieldFirst, 39},
};

class FieldsOfOddLengths : public testing::TestWithParam<FieldShape> {};

INSTANTIATE_TEST_SUITE_P(Shapes, FieldsOfOddLengths, testing::ValuesIn(kFieldShapes),
                         [](const auto& shape) { return std::string(shape.param.name); });

TEST_P(FieldsOfOddLengths, LookLikeWhatWentInToTheirLastLines) {
    constexpr int kPictures = 4;
    Source source;
    source.format = GetParam().input;
    source.height = GetParam().height;
    source.fieldOrder = GetParam().fieldOrder;
    const RObject<CVideoCompressor> compressor = MakeCompressor(GetParam().code);
    ASSERT_TRUE(compressor);
    ASSERT_EQ(compressor->SetOutputFormat(GetParam().output), 0);
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    const Samples samples = Encode(*compressor, source, kPictures);
    const RObject<CVideoProperties> output(compressor->GetOutputProperties(0));
    const Decoded decoded = Decode(*output, samples);
    EXPECT_TRUE(decoded.clean);
    ASSERT_EQ(decoded.frames.size(), kPictures);
    for (int i = 0; i < kPictures; ++i) {
        const AVFrame& frame = *decoded.frames[i];
        ASSERT_EQ(frame.height, source.height);
        for (const int field : {0, 1}) {
            const Area whole{.top = field, .rowStep = 2};
            const Area last{.top = source.height - 16 + field, .rowStep = 2};
            EXPECT_GE(LumaPsnr(frame, source, i, whole), GetParam().psnr) << i << ' ' << field;
            EXPECT_GE(LumaPsnr(frame, source, i, last), GetParam().psnr) << i << ' ' << field;
        }
    }
}

/// An encoder whose pictures of some numbers, counted from 0 as they come out, are spoilt.
class SpoilingEncoder final : public AvVideoEncoder {
public:
    explicit SpoilingEncoder(std::vector<int> spoilt)
        : AvVideoEncoder('test'), fSpoilt(std::move(spoilt)) {}
    CValueList<unsigned int>* GetOutputFormats() override {
        return new CValueList<unsigned int>{'h264'};
    }

protected:
    Formats InputFormats() const override {
        static constexpr unsigned int kFormat = 'I420';
        return {&kFormat, 1};
    }
    unsigned int DefaultOutputFormat() const override { return 'h264'; }
    Result Open(const VideoShape& shape, AvOpenedEncoder& opened) override {
        return OpenX264(shape, X264Settings(), opened);
    }
    int FinishPacket(const AVCodecContext&, const AVPacket&, CByteArray& bytes) const override {
        const int number = fCameOut++;
        if (std::count(fSpoilt.begin(), fSpoilt.end(), number) > 0) bytes.Shorten(0);
        return CVideoSample::kKeyPicture;
    }

private:
    const std::vector<int> fSpoilt;
    mutable int fCameOut = 0;
};

TEST(AvVideoEncoder, PicturesBehindOneThatFailsComeOutAtTheEnd) {
    constexpr int kPictures = 25;
    TraceCatcher trace;
    const Source source;
    const RObject<SpoilingEncoder> encoder(new SpoilingEncoder({3, 4, 24}));
    encoder->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(encoder->Begin(), 0);
    for (int i = 0; i < kPictures; ++i) {
        ASSERT_EQ(encoder->ProcessSample(MakeSample(source, i).Get()), 0);
    }
    EXPECT_EQ(encoder->End(), ResultInvalidArgument::kCode);
    Samples samples;
    ASSERT_EQ(FetchReady(*encoder, samples), 0);
    ASSERT_EQ(samples.size(), kPictures - 3u);
    for (int i = 0; i < kPictures - 3; ++i) {
        const int number = i < 3 ? i : i + 2;
        EXPECT_EQ(samples[i]->GetTime(), number * source.frameDuration);
    }
    EXPECT_EQ(trace.Count(), 1);
}

}  // namespace
}  // namespace Quillon::Orb
