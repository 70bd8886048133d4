#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <set>

#include "EncoderTestKit.h"

namespace Quillon::Orb {
namespace {

using namespace TestKit;
namespace H264 = CodeBookProperty::H264Compressor;

struct Stream {
    RObject<CVideoProperties> output;
    Samples samples;
    std::string settings;  ///< libx264's account of itself, which stands in the first picture
};

using SetUp = std::function<void(CVideoCompressor&)>;

std::string settings_of(const Samples& samples) {
    if (samples.empty()) return {};
    const std::vector<unsigned char> bytes = BytesOf(*samples[0]);
    const std::string text(bytes.begin(), bytes.end());
    const std::size_t start = text.find(" options: ");
    return start == std::string::npos ? "" : text.substr(start, text.find('\0', start) - start);
}

Stream encode(const Source& source, int count, const SetUp& setUp = {},
              const std::vector<int>& keys = {}) {
    Stream stream;
    RObject<CVideoCompressor> compressor = MakeCompressor('h264');
    if (setUp) setUp(*compressor);
    compressor->SetInputProperties(source.Properties().Get());
    Result begun = compressor->Begin();
    EXPECT_EQ(begun, 0) << begun.GetMessage();
    stream.samples = Encode(*compressor, source, count, keys);
    stream.output = compressor->GetOutputProperties(0);
    stream.settings = settings_of(stream.samples);
    return stream;
}

Result set_text(CVideoCompressor& compressor, const PropertyName& name, const char* text) {
    RObject<CString> string(new CString(text));
    return compressor.SetProperty(name, string.Get());
}

bool has(const Stream& stream, const std::string& setting) {
    std::string wanted(1, ' ');
    wanted.append(setting).append(1, ' ');
    return std::string(stream.settings).append(1, ' ').find(wanted) != std::string::npos;
}

TEST(X264Compressor, NumbersAreSeenInTheStream) {
    struct {
        PropertyName name;
        int value;
        const char* seen;
    } const table[] = {
        {H264::Threads, 1, "threads=1"},
        {H264::Threads, 3, "threads=3"},
        {H264::BitRate, 1500000, "bitrate=1500"},
        {H264::BitRate, 1500000, "vbv_maxrate=1500"},
        {H264::BitRate, 1500000, "vbv_bufsize=1500"},
        {H264::BitRate, 1500000, "rc=cbr"},
        {H264::BitRate, 0, "rc=crf"},
        {H264::NumBFrames, 0, "bframes=0"},
        {H264::NumBFrames, 3, "bframes=3"},
        {H264::MaxKeyFrameInterval, 1, "keyint=1"},
        {H264::MaxKeyFrameInterval, 17, "keyint=17"},
        {H264::MaxKeyFrameInterval, 600, "keyint=600"},
    };
    for (const auto& row : table) {
        const Stream stream = encode({}, 2, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(compressor.SetProperty(row.name, row.value), 0);
        });
        EXPECT_TRUE(has(stream, row.seen)) << row.seen << " is not in" << stream.settings;
    }
}

TEST(X264Compressor, PyramidsAreSeenInTheStream) {
    for (int pyramid = 0; pyramid <= 2; ++pyramid) {
        const Stream stream = encode({}, 2, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(compressor.SetProperty(H264::NumBFrames, 3), 0);
            EXPECT_EQ(compressor.SetProperty(H264::BFramePyramid, pyramid), 0);
        });
        EXPECT_TRUE(has(stream, "b_pyramid=" + std::to_string(pyramid))) << stream.settings;
    }
}

TEST(X264Compressor, PresetsAreSeenInTheStream) {
    const char* const table[][2] = {
        {"ultrafast", "subme=0"}, {"superfast", "subme=1"}, {"veryfast", "subme=2"},
        {"faster", "subme=4"},    {"fast", "subme=6"},      {"medium", "subme=7"},
        {"slow", "subme=8"},      {"slower", "subme=9"},    {"veryslow", "subme=10"},
        {"placebo", "subme=11"},
    };
    for (const auto& row : table) {
        const Stream stream = encode({}, 2, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(set_text(compressor, H264::Preset, row[0]), 0);
        });
        EXPECT_TRUE(has(stream, row[1])) << row[0] << ":" << stream.settings;
    }
    EXPECT_TRUE(has(encode({}, 2), "subme=2"));
}

TEST(X264Compressor, ProfilesAreSeenInTheStream) {
    struct {
        const char* name;
        int profile;
    } const table[] = {{"baseline", FF_PROFILE_H264_CONSTRAINED_BASELINE},
                       {"main", FF_PROFILE_H264_MAIN},
                       {"high", FF_PROFILE_H264_HIGH}};
    for (const auto& row : table) {
        const Stream stream = encode({}, 2, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(set_text(compressor, H264::Profile, row.name), 0);
        });
        EXPECT_EQ(Decode(*stream.output, stream.samples).context->profile, row.profile);
    }
}

TEST(X264Compressor, ParameterSetsStandBesideTheStreamFromBeginOn) {
    RObject<CVideoCompressor> compressor = MakeCompressor('h264');
    const Source source;
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    RObject<CVideoProperties> output(compressor->GetOutputProperties(0));
    RObject<CDecoderSpecificProperties> avc(output->GetExtension('h264'));
    RObject<CDecoderSpecificProperties> specific(output->GetExtension('mspe'));
    ASSERT_TRUE(avc && avc->IsType(CMpeg4AvcProperties::kType));
    ASSERT_TRUE(specific);
    RObject<CByteArray> fromAvc;
    RObject<CByteArray> fromSpecific;
    ASSERT_EQ(avc->GetDecoderInfo(fromAvc), 0);
    ASSERT_EQ(specific->GetDecoderInfo(fromSpecific), 0);
    ASSERT_TRUE(fromAvc && fromSpecific);
    EXPECT_TRUE(fromAvc->Equals(fromSpecific.Get()));
    EXPECT_EQ(fromAvc->GetData()[0], 1);
    for (const RObject<CVideoSample>& sample : Encode(*compressor, source, 5)) {
        RObject<CMpeg4AvcDataReference> unit(sample->GetDataReference<CMpeg4AvcDataReference>());
        ASSERT_TRUE(unit);
        RObject<CMpeg4AvcAccessUnit> access(unit->GetAccessUnit());
        for (int i = 0; i < access->GetNalCount(); ++i) {
            EXPECT_NE(access->GetNalType(i), CMpeg4AvcAccessUnit::kNalSequenceSet);
            EXPECT_NE(access->GetNalType(i), CMpeg4AvcAccessUnit::kNalPictureSet);
        }
    }
}

TEST(X264Compressor, KeyPicturesComeAtLeastThatOftenAndOnDemand) {
    const Stream stream = encode(
        {}, 40,
        [](CVideoCompressor& compressor) { compressor.SetProperty(H264::MaxKeyFrameInterval, 10); },
        {13});
    ASSERT_EQ(stream.samples.size(), 40u);
    std::set<int> keys;
    for (int i = 0; i < 40; ++i) {
        const bool key = stream.samples[i]->GetPictureType() == CVideoSample::kKeyPicture;
        RObject<CMpeg4AvcDataReference> unit(
            stream.samples[i]->GetDataReference<CMpeg4AvcDataReference>());
        RObject<CMpeg4AvcAccessUnit> access(unit->GetAccessUnit());
        EXPECT_EQ(access->IsKeyFrame(), key) << i;
        if (key) keys.insert(i);
    }
    EXPECT_TRUE(keys.count(0));
    EXPECT_TRUE(keys.count(13));
    int last = 0;
    for (const int key : keys) {
        EXPECT_LE(key - last, 10);
        last = key;
    }
    EXPECT_GE(last, 30);
}

TEST(X264Compressor, OffsetsLeadToTheOrderOfDisplay) {
    Source source;
    const Stream stream = encode(source, 40, [](CVideoCompressor& compressor) {
        compressor.SetProperty(H264::NumBFrames, 3);
        compressor.SetProperty(H264::BFramePyramid, 2);
        set_text(compressor, H264::Preset, "medium");
    });
    ASSERT_EQ(stream.samples.size(), 40u);
    int disposable = 0;
    long long smallest = 0;
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(stream.samples[i]->GetTime(), i * source.frameDuration);
        disposable += stream.samples[i]->GetPictureType() == CVideoSample::kDisposablePicture;
        smallest = std::min(smallest, stream.samples[i]->GetCompositionOffset());
    }
    EXPECT_GT(disposable, 0);
    EXPECT_LT(smallest, 0);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 40u);
    int bFrames = 0;
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(decoded.frames[i]->pts, i * source.frameDuration);
        EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 30);
        bFrames += decoded.frames[i]->pict_type == AV_PICTURE_TYPE_B;
    }
    // In a pyramid some B-frames are referred to, and only the others may be dropped.
    EXPECT_LT(disposable, bFrames);
}

TEST(X264Compressor, DepthOfReorderingIsKnownAndNotExceeded) {
    struct {
        int bFrames, pyramid, depth;
    } const table[] = {{0, 0, 0}, {1, 0, 1}, {3, 0, 1}, {3, 2, 2}};
    for (const auto& row : table) {
        const Source source;
        const Stream stream = encode(source, 60, [&](CVideoCompressor& compressor) {
            compressor.SetProperty(H264::NumBFrames, row.bFrames);
            compressor.SetProperty(H264::BFramePyramid, row.pyramid);
        });
        EXPECT_EQ(stream.output->GetReorderDepth(), row.depth);
        long long smallest = 0;
        for (const RObject<CVideoSample>& sample : stream.samples) {
            smallest = std::min(smallest, sample->GetCompositionOffset());
        }
        EXPECT_GE(smallest, -row.depth * source.frameDuration);
    }
}

TEST(X264Compressor, DisposablePicturesCanReallyBeDropped) {
    const Source source;
    Stream stream = encode(source, 40, [](CVideoCompressor& compressor) {
        compressor.SetProperty(H264::NumBFrames, 3);
        compressor.SetProperty(H264::BFramePyramid, 2);
        set_text(compressor, H264::Preset, "medium");
    });
    Samples kept;
    for (const RObject<CVideoSample>& sample : stream.samples) {
        if (sample->GetPictureType() != CVideoSample::kDisposablePicture) kept.push_back(sample);
    }
    ASSERT_LT(kept.size(), stream.samples.size());
    const Decoded decoded = Decode(*stream.output, kept);
    EXPECT_TRUE(decoded.clean);
    ASSERT_EQ(decoded.frames.size(), kept.size());
    for (const AvFrame& frame : decoded.frames) {
        EXPECT_GE(LumaPsnr(*frame, source, static_cast<int>(frame->pts / source.frameDuration)),
                  30);
    }
}

TEST(X264Compressor, RateIsKept) {
    constexpr int kPictures = 150;
    constexpr int kRate = 300000;
    const Source source;
    const Stream stream = encode(source, kPictures, [](CVideoCompressor& compressor) {
        compressor.SetProperty(H264::BitRate, kRate);
    });
    double bytes = 0;
    for (const auto& sample : stream.samples) bytes += static_cast<double>(BytesOf(*sample).size());
    const double seconds = kPictures * 1001.0 / 30000;
    EXPECT_NEAR(bytes * 8 / seconds / kRate, 1.0, 0.2);
}

TEST(X264Compressor, ShapeStandsInTheStream) {
    Source source;
    source.pixelAspect = {40, 33};
    const Stream stream = encode(source, 3);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 3u);
    const AVCodecContext& context = *decoded.context;
    EXPECT_EQ(context.sample_aspect_ratio.num, 40);
    EXPECT_EQ(context.sample_aspect_ratio.den, 33);
    EXPECT_EQ(context.framerate.num, 30000);
    EXPECT_EQ(context.framerate.den, 1001);
    EXPECT_EQ(context.width, source.width);
    EXPECT_EQ(context.height, source.height);
    EXPECT_FALSE(decoded.frames[1]->interlaced_frame);
}

TEST(X264Compressor, ColourAndRangeStandInTheStream) {
    for (const ColorSpace colour : {ColorSpace::BT709, ColorSpace::BT601N, ColorSpace::BT601P}) {
        for (const int range : {CVideoProperties::kLimitedRange, CVideoProperties::kFullRange}) {
            Source source;
            source.colour = colour;
            source.range = range;
            const Stream stream = encode(source, 2);
            const Decoded decoded = Decode(*stream.output, stream.samples);
            ASSERT_EQ(decoded.frames.size(), 2u);
            EXPECT_EQ(decoded.context->color_primaries, colour.GetPrimaries());
            EXPECT_EQ(decoded.context->color_trc, colour.GetTransfer());
            EXPECT_EQ(decoded.context->colorspace, colour.GetMatrix());
            EXPECT_EQ(decoded.context->color_range,
                      range == CVideoProperties::kFullRange ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
        }
    }
}

TEST(X264Compressor, FieldsStandInTheStream) {
    for (const int order :
         {CVideoProperties::kTopFieldFirst, CVideoProperties::kBottomFieldFirst}) {
        Source source;
        source.fieldOrder = order;
        const Stream stream = encode(source, 10);
        const Decoded decoded = Decode(*stream.output, stream.samples);
        ASSERT_EQ(decoded.frames.size(), 10u);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(decoded.frames[i]->interlaced_frame);
            EXPECT_EQ(decoded.frames[i]->top_field_first != 0,
                      order == CVideoProperties::kTopFieldFirst)
                << "picture " << i;
            EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 34);
        }
    }
}

TEST(X264Compressor, ValuesOutsideOfTheScalesAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor('h264');
    struct {
        PropertyName name;
        int value;
    } const table[] = {
        {H264::Threads, -1},       {H264::Threads, 129},     {H264::BitRate, -1},
        {H264::BitRate, 999},      {H264::NumBFrames, -1},   {H264::NumBFrames, 17},
        {H264::BFramePyramid, -1}, {H264::BFramePyramid, 3}, {H264::MaxKeyFrameInterval, 0},
    };
    for (const auto& row : table) {
        EXPECT_EQ(compressor->SetProperty(row.name, row.value), ResultInvalidArgument::kCode)
            << row.name.GetText() << " = " << row.value;
    }
    EXPECT_EQ(set_text(*compressor, H264::Profile, "High"), ResultInvalidArgument::kCode);
    EXPECT_EQ(set_text(*compressor, H264::Profile, ""), ResultInvalidArgument::kCode);
    EXPECT_EQ(set_text(*compressor, H264::Preset, "slowest"), ResultInvalidArgument::kCode);
    EXPECT_TRUE(compressor->SetProperty(H264::Preset, static_cast<CString*>(nullptr)).Failed());
    EXPECT_TRUE(compressor->SetProperty(H264::Profile, 100).Failed());
    EXPECT_TRUE(has(encode({}, 2), "keyint=60"));
}

TEST(X264Compressor, SetUpsThatH264CannotBeAreRefused) {
    struct {
        int width, height, fieldOrder;
        const char* profile;
        int bFrames;
        bool works;
    } const table[] = {
        {192, 128, 1, "baseline", 0, true},  {192, 128, 1, "baseline", 1, false},
        {192, 128, 2, "baseline", 0, false}, {191, 128, 1, "high", 0, false},
        {192, 127, 1, "high", 0, false},     {192, 126, 1, "high", 0, true},
        {192, 126, 2, "high", 0, false},     {192, 124, 3, "high", 0, true},
        {2, 2, 1, "high", 0, true},
    };
    for (const auto& row : table) {
        Source source;
        source.width = row.width;
        source.height = row.height;
        source.fieldOrder = row.fieldOrder;
        RObject<CVideoCompressor> compressor = MakeCompressor('h264');
        set_text(*compressor, H264::Profile, row.profile);
        compressor->SetProperty(H264::NumBFrames, row.bFrames);
        compressor->SetInputProperties(source.Properties().Get());
        EXPECT_EQ(compressor->Begin(), row.works ? 0 : ResultInvalidArgument::kCode)
            << row.width << " x " << row.height << " " << row.profile;
    }
}

TEST(X264Compressor, FillerMakesAPictureLongerAndLeavesItDecodable) {
    const Source source;
    const Stream stream = encode(source, 5);
    for (const RObject<CVideoSample>& sample : stream.samples) {
        RObject<CMpeg4AvcDataReference> unit(sample->GetDataReference<CMpeg4AvcDataReference>());
        RObject<CMpeg4AvcAccessUnit> access(unit->GetAccessUnit());
        const int before = access->GetLength(4);
        ASSERT_EQ(access->AddFillerData(1000), 0);
        EXPECT_EQ(access->GetLength(4), before + 1000);
    }
    const Decoded decoded = Decode(*stream.output, stream.samples);
    EXPECT_TRUE(decoded.clean);
    EXPECT_EQ(decoded.frames.size(), 5u);
}

}  // namespace
}  // namespace Quillon::Orb
