#include <cmath>
#include <gtest/gtest.h>

#include "orb/CAssetVideoCompressor.h"

#include "EncoderTestKit.h"

namespace Quillon::Orb {
namespace {

using namespace TestKit;
namespace Toolbox = CodeBookProperty::VideoToolboxCompressor;
using CodeBookProperty::VideoCompressor::BitRate;
using CodeBookProperty::VideoCompressor::Threads;

struct Stream {
    RObject<CVideoProperties> output;
    Samples samples;
};

Stream encode(CVideoCompressor& compressor, const Source& source, unsigned int format, int count) {
    Stream stream;
    EXPECT_EQ(compressor.SetOutputFormat(format), 0);
    compressor.SetInputProperties(source.Properties().Get());
    Result begun = compressor.Begin();
    EXPECT_EQ(begun, 0) << begun.GetMessage();
    stream.samples = Encode(compressor, source, count);
    stream.output = compressor.GetOutputProperties(0);
    return stream;
}

Stream encode(const Source& source, unsigned int format, int count, int threads = 1) {
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    EXPECT_EQ(compressor->SetProperty(Threads, threads), 0);
    return encode(*compressor, source, format, count);
}

Source source_of(unsigned int format) {
    Source source;
    source.format = format;
    return source;
}

bool uses_hardware(const CVideoCompressor& compressor) {
    bool hardware = true;
    EXPECT_EQ(
        compressor.GetProperty(CodeBookProperty::MediaFilter::UsingHardwareAcceleration, hardware),
        0);
    return hardware;
}

/// libx264's account of itself; empty where hardware encodes.
std::string settings_of(const Stream& stream) {
    const std::vector<unsigned char> bytes = BytesOf(*stream.samples[0]);
    const std::string text(bytes.begin(), bytes.end());
    const std::size_t start = text.find("options: ");
    return start == std::string::npos ? "" : text.substr(start, text.find('\0', start) - start);
}

TEST(PlatformCompressor, AHostFindsOutWhetherThereIsHardware) {
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    ASSERT_TRUE(compressor);
    EXPECT_FALSE(uses_hardware(*compressor));
    RObject<CValueList<unsigned int>> inputs(compressor->GetInputFormats());
    unsigned int format = 0;
    ASSERT_EQ(inputs->GetValue(0, format), 0);
    ASSERT_NE(format, 0u);
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat(format);
    properties->SetWidth(1280);
    properties->SetHeight(720);
    properties->SetFrameRate({3000, 100});
    properties->SetFieldOrder(1);
    ASSERT_EQ(compressor->SetInputProperties(properties.Get()), 0);
    RObject<CValueList<unsigned int>> outputs(compressor->GetOutputFormats());
    ASSERT_TRUE(outputs->HasValue('h264'));
    ASSERT_EQ(compressor->SetFourProperty(CodeBookProperty::MediaFilter::OutputFormat, 'h264'), 0);
    ASSERT_EQ(compressor->Begin(), 0);
    const bool hardware = uses_hardware(*compressor);

    Source source = source_of(format);
    source.width = 1280;
    source.height = 720;
    EXPECT_EQ(compressor->PutSample(0, MakeSample(source, 0, 0, 100).Get()), 0);
    EXPECT_EQ(compressor->End(), 0);
    // What it said is what it did: libx264 leaves its name in the stream.
    Stream stream;
    FetchReady(*compressor, stream.samples);
    ASSERT_EQ(stream.samples.size(), 1u);
    EXPECT_EQ(settings_of(stream).empty(), hardware);
    EXPECT_FALSE(uses_hardware(*compressor));
}

TEST(PlatformCompressor, FormatsFollowTheOutput) {
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    RObject<CValueList<unsigned int>> outputs(compressor->GetOutputFormats());
    for (const unsigned int format : {'h264', 'avc1', 'apco', 'apcs', 'apcn', 'apch', 'ap4h'}) {
        EXPECT_TRUE(outputs->HasValue(format));
    }
    unsigned int first = 0;
    RObject<CValueList<unsigned int>> forH264(compressor->GetInputFormats());
    forH264->GetValue(0, first);
    EXPECT_EQ(first, static_cast<unsigned int>('NV12'));
    compressor->SetOutputFormat('apch');
    RObject<CValueList<unsigned int>> forProRes(compressor->GetInputFormats());
    for (const unsigned int format :
         {'UYVY', 'YUYV', 'I422', 'YV16', 'I420', 'YV12', 'NV12', 'BGRA'}) {
        EXPECT_TRUE(forProRes->HasValue(format));
        EXPECT_TRUE(forH264->HasValue(format));
    }
    forProRes->GetValue(0, first);
    EXPECT_EQ(first, static_cast<unsigned int>('UYVY'));
}

TEST(PlatformCompressor, ATrackListsWhatItsOwnOutputWants) {
    struct {
        unsigned int output, first;
    } const table[] = {{'apch', 'UYVY'}, {'avc1', 'NV12'}};
    for (const auto& row : table) {
        Source source;
        RObject<CVideoProperties> output = source.Properties();
        output->SetFormat(row.output);
        RObject<CAssetVideoCompressor> track(new CAssetVideoCompressor(output.Get(), 'vtbx'));
        RObject<CValueList<unsigned int>> formats(track->GetInputFormats());
        unsigned int first = 0;
        ASSERT_EQ(formats->GetValue(0, first), 0);
        EXPECT_EQ(first, row.first);
    }
}

TEST(PlatformCompressor, TheOutputMayChangeAfterTheInputWasChosen) {
    const Source source = source_of('YUYV');
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    ASSERT_EQ(compressor->SetOutputFormat('apcn'), 0);
    RObject<CValueList<unsigned int>> formats(compressor->GetInputFormats());
    ASSERT_TRUE(formats->HasValue(source.format));
    const Stream stream = encode(*compressor, source, 'avc1', 3);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 3u);
    EXPECT_GE(LumaPsnr(*decoded.frames[2], source, 2), 34);
}

TEST(PlatformCompressor, H264ProfilesAreSeenInTheStream) {
    const int table[][2] = {
        {66, FF_PROFILE_H264_BASELINE}, {77, FF_PROFILE_H264_MAIN}, {100, FF_PROFILE_H264_HIGH}};
    for (const auto& row : table) {
        RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
        EXPECT_EQ(compressor->SetProperty(Toolbox::Profile, row[0]), 0);
        const Stream stream = encode(*compressor, source_of('NV12'), 'avc1', 2);
        const Decoded decoded = Decode(*stream.output, stream.samples);
        EXPECT_EQ(decoded.context->profile & ~FF_PROFILE_H264_CONSTRAINED, row[1]);
    }
}

TEST(PlatformCompressor, H264RatesAreSeenInTheStream) {
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    compressor->SetProperty(BitRate, 2100000);
    compressor->SetProperty(Toolbox::KeyFrameInterval, 9);
    Stream stream = encode(*compressor, source_of('NV12'), 'h264', 20);
    ASSERT_EQ(stream.samples.size(), 20u);
    EXPECT_EQ(stream.samples[9]->GetPictureType(), CVideoSample::kKeyPicture);
    if (!uses_hardware(*compressor)) {
        const std::string settings = settings_of(stream);
        EXPECT_NE(settings.find("keyint=9 "), std::string::npos) << settings;
        EXPECT_NE(settings.find(" bitrate=2100 "), std::string::npos) << settings;
        EXPECT_NE(settings.find("vbv_maxrate=2100 "), std::string::npos) << settings;
    }
    compressor->End();
    compressor->SetProperty(Toolbox::MaximumBitrate, 1000000);
    stream = encode(*compressor, source_of('NV12'), 'h264', 2);
    if (!uses_hardware(*compressor)) {
        EXPECT_NE(settings_of(stream).find("vbv_maxrate=1000 "), std::string::npos);
    }
}

TEST(PlatformCompressor, ProResKindsAreSeenInTheStream) {
    const unsigned int kinds[] = {'apco', 'apcs', 'apcn', 'apch', 'ap4h'};
    for (int i = 0; i < 5; ++i) {
        const Stream stream = encode(source_of('UYVY'), kinds[i], 2);
        EXPECT_EQ(stream.output->GetFormat(), kinds[i]);
        const Decoded decoded = Decode(*stream.output, stream.samples);
        ASSERT_EQ(decoded.frames.size(), 2u);
        EXPECT_EQ(decoded.context->profile, i);
        const AVPixFmtDescriptor* pixels =
            av_pix_fmt_desc_get(static_cast<AVPixelFormat>(decoded.frames[0]->format));
        EXPECT_EQ(pixels->log2_chroma_w, i == 4 ? 0 : 1);
        EXPECT_FALSE(pixels->flags & AV_PIX_FMT_FLAG_ALPHA);
    }
}

TEST(PlatformCompressor, ProResHeadersSayColourFieldsRateAndAspect) {
    struct {
        ColorSpace colour;
        int fieldOrder;
        Rational<int> aspect;
        long long timescale, duration;
        int interlaceMode, aspectAndRate;
    } const table[] = {
        {ColorSpace::BT709, 1, {1, 1}, 30000, 1001, 0, 0x14},
        {ColorSpace::BT709, 2, {1, 1}, 25, 1, 1, 0x13},
        {ColorSpace::BT601N, 3, {8, 9}, 60000, 1001, 2, 0x27},
        {ColorSpace::BT601P, 1, {32, 27}, 50, 1, 0, 0x36},
        {ColorSpace::BT709, 1, {5, 1}, 7, 1, 0, 0x00},
    };
    for (const auto& row : table) {
        Source source = source_of('UYVY');
        source.height = row.aspect.numerator == 5 ? 128 : source.width * 2 / 3;
        source.colour = row.colour;
        source.fieldOrder = row.fieldOrder;
        source.pixelAspect = row.aspect;
        source.timescale = row.timescale;
        source.frameDuration = row.duration;
        const Stream stream = encode(source, 'apcn', 2);
        const Decoded decoded = Decode(*stream.output, stream.samples);
        ASSERT_EQ(decoded.frames.size(), 2u);
        const std::vector<unsigned char> bytes = BytesOf(*stream.samples[1]);
        EXPECT_EQ(std::string(bytes.begin() + 4, bytes.begin() + 8), "icpf");
        EXPECT_EQ(bytes[20] >> 2 & 3, row.interlaceMode);
        EXPECT_EQ(bytes[21], row.aspectAndRate);
        EXPECT_EQ(bytes[22], row.colour.GetPrimaries());
        EXPECT_EQ(bytes[23], row.colour.GetTransfer());
        EXPECT_EQ(bytes[24], row.colour.GetMatrix());
        EXPECT_EQ(decoded.frames[1]->interlaced_frame != 0, row.fieldOrder != 1);
        if (row.fieldOrder != 1) {
            EXPECT_EQ(decoded.frames[1]->top_field_first != 0, row.fieldOrder == 2);
        }
        EXPECT_GE(LumaPsnr(*decoded.frames[1], source, 1), 40);
    }
}

TEST(PlatformCompressor, AnyNumberOfThreadsGivesTheSameProRes) {
    const Stream alone = encode(source_of('UYVY'), 'apch', 20, 1);
    ASSERT_EQ(alone.samples.size(), 20u);
    for (int threads = 2; threads <= 4; ++threads) {
        const Stream stream = encode(source_of('UYVY'), 'apch', 20, threads);
        ASSERT_EQ(stream.samples.size(), 20u);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(stream.samples[i]->GetTime(), alone.samples[i]->GetTime());
            EXPECT_EQ(BytesOf(*stream.samples[i]), BytesOf(*alone.samples[i]));
        }
    }
}

TEST(PlatformCompressor, FullRangeBecomesLimitedInProRes) {
    Source source = source_of('UYVY');
    source.range = CVideoProperties::kFullRange;
    const Stream stream = encode(source, 'apch', 1);
    EXPECT_EQ(stream.output->GetVideoRange(), CVideoProperties::kLimitedRange);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    const Scene scene{source, 0};
    double sum = 0;
    for (int y = 0; y < source.height; ++y) {
        const auto* row = reinterpret_cast<const unsigned short*>(
            decoded.frames[0]->data[0] + y * decoded.frames[0]->linesize[0]);
        for (int x = 0; x < source.width; ++x) {
            sum += std::abs(row[x] / 4.0 - (16 + scene.luma(x, y) * 219.0 / 255));
        }
    }
    EXPECT_LT(sum / (source.width * source.height), 1.0);
}

TEST(PlatformCompressor, ColoursOfAScreenArriveIn4444) {
    Source source = source_of('BGRA');
    source.range = CVideoProperties::kLimitedRange;
    const Stream stream = encode(source, 'ap4h', 1);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    const AVFrame& frame = *decoded.frames[0];
    const int bits = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format))->comp[0].depth;
    const Scene scene{source, 0};
    double sum[3] = {};
    for (int y = 0; y < source.height; ++y) {
        for (int x = 0; x < source.width; ++x) {
            // BT.709 from the full codes of a screen: blue, green and red of the scene's making.
            const double b = scene.u(x, y) / 255.0;
            const double g = scene.luma(x, y) / 255.0;
            const double r = scene.v(x, y) / 255.0;
            const double luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
            const double expected[3] = {16 + 219 * luma, 128 + 224 * (b - luma) / 1.8556,
                                        128 + 224 * (r - luma) / 1.5748};
            for (int plane = 0; plane < 3; ++plane) {
                const auto* row = reinterpret_cast<const unsigned short*>(
                    frame.data[plane] + y * frame.linesize[plane]);
                sum[plane] += std::abs(std::ldexp(row[x], 8 - bits) - expected[plane]);
            }
        }
    }
    for (const double total : sum) EXPECT_LT(total / (source.width * source.height), 1.0);
}

TEST(PlatformCompressor, MatricesThatNobodyHereComputesGoThroughUntouchedOrNotAtAll) {
    constexpr unsigned char kBt2020 = 9;
    const ColorSpace wide(kBt2020, 1, kBt2020);
    Source source = source_of('UYVY');
    source.colour = wide;
    const Stream stream = encode(source, 'apch', 2);
    const Decoded decoded = Decode(*stream.output, stream.samples);
    ASSERT_EQ(decoded.frames.size(), 2u);
    EXPECT_EQ(decoded.frames[1]->colorspace, kBt2020);
    EXPECT_GE(LumaPsnr(*decoded.frames[1], source, 1), 45);

    source.format = 'BGRA';
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    compressor->SetOutputFormat('apch');
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->Begin(), ResultNotSupported::kCode);
}

TEST(PlatformCompressor, ChromaOfFieldsStaysInItsField) {
    // Every second line of a picture in 4:2:0 belongs to another moment: chroma that strayed to the
    // other field would be far off, where the fields have opposite colours.
    Source source = source_of('I420');
    source.fieldOrder = CVideoProperties::kTopFieldFirst;
    RObject<CVideoSample> sample = MakeSample(source, 0);
    RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
    unsigned char* chroma = pixels->GetData() + source.width * source.height;
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < source.height / 2; ++y) {
            std::memset(chroma, y & 1 ? 180 : 70, static_cast<std::size_t>(source.width / 2));
            chroma += source.width / 2;
        }
    }
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    compressor->SetOutputFormat('apch');
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    ASSERT_EQ(compressor->ProcessSample(sample.Get()), 0);
    ASSERT_EQ(compressor->End(), 0);
    Samples samples;
    FetchReady(*compressor, samples);
    RObject<CVideoProperties> output(compressor->GetOutputProperties(0));
    const Decoded decoded = Decode(*output, samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    for (int y = 0; y < source.height; ++y) {
        const auto* row = reinterpret_cast<const unsigned short*>(
            decoded.frames[0]->data[1] + y * decoded.frames[0]->linesize[1]);
        EXPECT_NEAR(row[20] / 4.0, y & 1 ? 180 : 70, 6) << "line " << y;
    }
}

TEST(PlatformCompressor, ValuesOutsideOfTheScalesAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
    struct {
        PropertyName name;
        int value;
    } const table[] = {
        {Toolbox::Profile, 0},
        {Toolbox::Profile, 88},
        {Toolbox::Profile, 110},
        {Toolbox::KeyFrameInterval, 0},
        {Toolbox::MaximumBitrate, -1},
        {Toolbox::MaximumBitrate, 10},
        {BitRate, -1},
        {BitRate, 10},
        {Threads, -1},
        {Threads, 65},
    };
    for (const auto& row : table) {
        EXPECT_EQ(compressor->SetProperty(row.name, row.value), ResultInvalidArgument::kCode)
            << row.name.GetText() << " = " << row.value;
    }
}

TEST(PlatformCompressor, OddWidthsAreRefused) {
    Source source = source_of('UYVY');
    source.width = 191;
    for (const unsigned int format : {'apcn', 'ap4h', 'h264'}) {
        RObject<CVideoCompressor> compressor = MakeCompressor('vtbx');
        compressor->SetOutputFormat(format);
        compressor->SetInputProperties(source.Properties().Get());
        EXPECT_EQ(compressor->Begin(), ResultInvalidArgument::kCode);
    }
}

TEST(NvencCompressor, SaysClearlyWhetherThereIsADevice) {
    RObject<CVideoCompressor> compressor = MakeCompressor('nven');
    ASSERT_TRUE(compressor);
    EXPECT_EQ(compressor->GetType(), static_cast<unsigned int>('nven'));
    Source source = source_of('NV12');
    source.width = 1280;
    source.height = 720;
    compressor->SetInputProperties(source.Properties().Get());
    Result accepted = compressor->SetOutputFormat('h264');
    Result begun = compressor->Begin();
    EXPECT_EQ(accepted.Failed(), begun.Failed());
    if (begun.Failed()) {
        EXPECT_NE(std::string(accepted.GetMessage()).find("NVENC"), std::string::npos);
        EXPECT_NE(std::string(begun.GetMessage()).find("nvenc"), std::string::npos);
        EXPECT_TRUE(compressor->ProcessSample(MakeSample(source, 0).Get()).Failed());
        return;
    }
    EXPECT_TRUE(uses_hardware(*compressor));
    EXPECT_EQ(Encode(*compressor, source, 10).size(), 10u);
}

}  // namespace
}  // namespace Quillon::Orb
