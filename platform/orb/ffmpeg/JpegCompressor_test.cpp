#include "JpegCompressor.h"

#include <gtest/gtest.h>

#include "orb/ffmpeg/closedPicture.h"
#include "orb/testSupport.h"

#include "EncoderTestKit.h"

namespace Quillon::Orb {
namespace {

using namespace TestKit;
using CodeBookProperty::JpegCompressor::Quality;
using CodeBookProperty::VideoCompressor::Threads;

struct Stream {
    RObject<CVideoProperties> output;
    Samples samples;
};

Stream encode(const Source& source, int count, int quality, int threads) {
    Stream run;
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    EXPECT_EQ(compressor->SetProperty(Quality, quality), 0);
    EXPECT_EQ(compressor->SetProperty(Threads, threads), 0);
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->Begin(), 0);
    run.samples = Encode(*compressor, source, count);
    run.output = compressor->GetOutputProperties(0);
    return run;
}

/// The first entry of the first quantisation table.
int first_quantiser(const std::vector<unsigned char>& jpeg) {
    for (std::size_t i = 0; i + 5 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDB) return jpeg[i + 5];
    }
    return -1;
}

bool has_limited_range_comment(const std::vector<unsigned char>& jpeg) {
    const std::string text(jpeg.begin(), jpeg.end());
    return text.find(std::string("\xFF\xFE\0\x0C"
                                 "CS=ITU601",
                                 13)) != std::string::npos;
}

TEST(JpegCompressor, QualityIsTheScaleOfLibjpeg) {
    // The standard luma table begins with 16, which is scaled by 200 % - 2 * quality from 50 up
    // and by 5000 % / quality below.
    const int table[][2] = {{100, 1}, {98, 1}, {88, 4}, {75, 8}, {55, 14}, {50, 16}, {25, 32}};
    for (const auto& row : table) {
        Stream run = encode({}, 1, row[0], 1);
        ASSERT_EQ(run.samples.size(), 1u);
        EXPECT_EQ(first_quantiser(BytesOf(*run.samples[0])), row[1]) << "quality " << row[0];
    }
}

TEST(JpegCompressor, AnyNumberOfThreadsGivesTheSameBytesInOrder) {
    constexpr int kPictures = 40;
    const Stream alone = encode({}, kPictures, 80, 1);
    ASSERT_EQ(alone.samples.size(), kPictures);
    for (int threads = 2; threads <= 4; ++threads) {
        const Stream run = encode({}, kPictures, 80, threads);
        ASSERT_EQ(run.samples.size(), kPictures) << threads << " threads";
        for (int i = 0; i < kPictures; ++i) {
            EXPECT_EQ(run.samples[i]->GetTime(), alone.samples[i]->GetTime());
            EXPECT_EQ(BytesOf(*run.samples[i]), BytesOf(*alone.samples[i]));
        }
    }
}

TEST(JpegCompressor, OneThreadHoldsNothingBack) {
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    const Source source;
    compressor->SetProperty(Threads, 1);
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    for (int i = 0; i < 3; ++i) {
        RObject<CVideoSample> out;
        ASSERT_EQ(
            compressor->TransformSample(MakeSample(source, i).Get(), 0, out, nullptr, nullptr), 0);
        ASSERT_TRUE(out);
        EXPECT_EQ(out->GetTime(), i * source.frameDuration);
        EXPECT_EQ(out->GetPictureType(), CVideoSample::kKeyPicture);
    }
}

TEST(JpegCompressor, PicturesThatNobodyFetchesBlockNobody) {
    constexpr int kPictures = 60;
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    const Source source;
    compressor->SetProperty(Threads, 3);
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    for (int i = 0; i < kPictures; ++i) {
        ASSERT_EQ(compressor->ProcessSample(MakeSample(source, i).Get()), 0);
    }
    ASSERT_EQ(compressor->End(), 0);
    Samples samples;
    ASSERT_EQ(FetchReady(*compressor, samples), 0);
    EXPECT_EQ(samples.size(), kPictures);
}

TEST(JpegCompressor, ACompressorMayGoWithPicturesInside) {
    const Source source;
    for (int i = 0; i < 5; ++i) {
        RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
        compressor->SetProperty(Threads, 4);
        compressor->SetInputProperties(source.Properties().Get());
        ASSERT_EQ(compressor->Begin(), 0);
        for (int k = 0; k < i; ++k) compressor->ProcessSample(MakeSample(source, k).Get());
    }
}

TEST(JpegCompressor, RangeIsSaidInTheStream) {
    Source source;
    const Stream limited = encode(source, 1, 90, 1);
    EXPECT_TRUE(has_limited_range_comment(BytesOf(*limited.samples[0])));
    EXPECT_EQ(Decode(*limited.output, limited.samples).context->color_range, AVCOL_RANGE_MPEG);
    source.range = CVideoProperties::kFullRange;
    const Stream full = encode(source, 1, 90, 1);
    EXPECT_FALSE(has_limited_range_comment(BytesOf(*full.samples[0])));
    EXPECT_EQ(Decode(*full.output, full.samples).context->color_range, AVCOL_RANGE_JPEG);
}

TEST(JpegCompressor, PixelAspectIsSaidInTheStream) {
    Source source;
    source.pixelAspect = {40, 33};
    const Stream run = encode(source, 1, 90, 1);
    const Decoded decoded = Decode(*run.output, run.samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    EXPECT_EQ(decoded.frames[0]->sample_aspect_ratio.num, 40);
    EXPECT_EQ(decoded.frames[0]->sample_aspect_ratio.den, 33);
}

TEST(JpegCompressor, OddSizesKeepTheirEdges) {
    for (const unsigned int format : JpegPicture::kFormats) {
        for (const int size : {1, 2, 15, 17, 33, 101}) {
            Source source;
            source.format = format;
            source.width = size;
            source.height = size + 2;
            const Stream run = encode(source, 1, 95, 1);
            ASSERT_EQ(run.samples.size(), 1u);
            const Decoded decoded = Decode(*run.output, run.samples);
            ASSERT_EQ(decoded.frames.size(), 1u) << size;
            EXPECT_EQ(decoded.frames[0]->width, size);
            EXPECT_EQ(decoded.frames[0]->height, size + 2);
            EXPECT_GE(LumaPsnr(*decoded.frames[0], source, 0), 38);
        }
    }
}

// Where chroma is halved the last block of an odd size holds a column or row that no picture has.
// What stands there rings into the pixels beside it.
TEST(JpegCompressor, TheLastColumnAndRowOfOddSizesLookLikeTheRest) {
    for (const unsigned int format : JpegPicture::kFormats) {
        for (const int size : {33, 65, 101}) {
            Source source;
            source.format = format;
            source.width = size;
            source.height = size + 2;
            const Stream run = encode(source, 1, 55, 1);
            ASSERT_EQ(run.samples.size(), 1u);
            const Decoded decoded = Decode(*run.output, run.samples);
            ASSERT_EQ(decoded.frames.size(), 1u);
            const AVFrame& frame = *decoded.frames[0];
            EXPECT_GE(LumaPsnr(frame, source, 0, {.left = size - 1}), 40) << size;
            EXPECT_GE(LumaPsnr(frame, source, 0, {.top = size + 1}), 40) << size;
        }
    }
}

/// A picture whose rows end in 3 bytes of `filler`, encoded.
std::vector<unsigned char> encode_with_filler(const Source& source, unsigned char filler) {
    const RObject<CVideoSample> sample = MakeSample(source, 0, 0, 1001, 3);
    {
        const RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
        EXPECT_EQ(pixels->Lock(CDataReference::kWrite), 0);
        for (int y = 0; y < source.height; ++y) {
            unsigned char* end = pixels->GetData() + y * pixels->GetStride() + source.width;
            std::memset(end, filler, static_cast<std::size_t>(pixels->GetStride() - source.width));
        }
        pixels->Unlock();
    }
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    compressor->SetProperty(Threads, 1);
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->Begin(), 0);
    RObject<CVideoSample> out;
    EXPECT_EQ(compressor->TransformSample(sample.Get(), 0, out, nullptr, nullptr), 0);
    return out ? BytesOf(*out) : std::vector<unsigned char>();
}

TEST(JpegCompressor, WhatStandsBehindTheRowsDoesNotShow) {
    for (const unsigned int format : JpegPicture::kFormats) {
        for (const int width : {32, 33, 47, 101}) {
            Source source;
            source.format = format;
            source.width = width;
            source.height = 31;
            const std::vector<unsigned char> black = encode_with_filler(source, 0);
            ASSERT_FALSE(black.empty());
            EXPECT_EQ(black, encode_with_filler(source, 255)) << width;
        }
    }
}

TEST(JpegCompressor, PicturesThatFailWithoutWordsAreToldOnceWithSome) {
    const Source source;
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    TraceCatcher trace;
    const RObject<CVideoSample> closed = closed_picture(source.width, source.height);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(compressor->ProcessSample(closed.Get()), ResultError::kCode);
    }
    ASSERT_EQ(trace.Count(), 1);
    EXPECT_TRUE(trace.HasLineWith({"'mjpg': it failed"})) << trace.Lines()[0];
}

TEST(JpegCompressor, ValuesOutsideOfTheScalesAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor('mjpg');
    for (const int quality : {0, 101, -5}) {
        EXPECT_EQ(compressor->SetProperty(Quality, quality), ResultInvalidArgument::kCode);
    }
    for (const int threads : {-1, 65}) {
        EXPECT_EQ(compressor->SetProperty(Threads, threads), ResultInvalidArgument::kCode);
    }
    EXPECT_TRUE(compressor->SetProperty(Quality, true).Failed());
    EXPECT_TRUE(compressor->SetProperty(CodeBookProperty::VideoCompressor::BitRate, 1).Failed());
}

}  // namespace
}  // namespace Quillon::Orb
