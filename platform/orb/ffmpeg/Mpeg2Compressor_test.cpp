#include <functional>
#include <gtest/gtest.h>

#include "EncoderTestKit.h"

namespace Quillon::Orb {
namespace {

using namespace TestKit;
namespace Mpeg2 = CodeBookProperty::MainConceptMpeg2Compressor;
using CodeBookProperty::VideoCompressor::BitRate;
using CodeBookProperty::VideoCompressor::Threads;

/// What the headers of a stream say (ISO/IEC 13818-2).
struct Headers {
    int frameRateCode = 0;
    int aspectCode = 0;
    long long bitRate = 0;
    int profile = 0;
    int level = 0;
    bool progressive = false;
    int primaries = 0;
    int transfer = 0;
    int matrix = 0;
    std::vector<bool> closedGroups;
    std::string types;  ///< 'I', 'P', 'B' in decode order
    std::vector<int> topFirst;
};

class Bits {
public:
    Bits(const unsigned char* data, std::size_t size) : fData(data), fSize(size) {}
    int Take(int count) {
        int value = 0;
        while (count-- > 0) {
            const std::size_t byte = fAt / 8;
            value = value * 2 + (byte < fSize ? fData[byte] >> (7 - fAt % 8) & 1 : 0);
            ++fAt;
        }
        return value;
    }

private:
    const unsigned char* fData;
    std::size_t fSize;
    std::size_t fAt = 0;
};

void read_extension(Bits bits, Headers& headers) {
    switch (bits.Take(4)) {
        case 1:
            bits.Take(1);  // escape
            headers.profile = bits.Take(3);
            headers.level = bits.Take(4);
            headers.progressive = bits.Take(1);
            break;
        case 2:
            bits.Take(3);
            if (bits.Take(1)) {
                headers.primaries = bits.Take(8);
                headers.transfer = bits.Take(8);
                headers.matrix = bits.Take(8);
            }
            break;
        case 8:
            bits.Take(16 + 2 + 2);
            headers.topFirst.push_back(bits.Take(1));
            break;
    }
}

Headers read_headers(const Samples& samples) {
    Headers headers;
    for (const RObject<CVideoSample>& sample : samples) {
        const std::vector<unsigned char> bytes = BytesOf(*sample);
        for (std::size_t i = 0; i + 8 < bytes.size(); ++i) {
            if (bytes[i] != 0 || bytes[i + 1] != 0 || bytes[i + 2] != 1) continue;
            Bits bits(bytes.data() + i + 4, bytes.size() - i - 4);
            switch (bytes[i + 3]) {
                case 0xB3:
                    bits.Take(24);
                    headers.aspectCode = bits.Take(4);
                    headers.frameRateCode = bits.Take(4);
                    headers.bitRate = bits.Take(18) * 400LL;
                    break;
                case 0xB5:
                    read_extension(bits, headers);
                    break;
                case 0xB8:
                    bits.Take(25);
                    headers.closedGroups.push_back(bits.Take(1));
                    break;
                case 0x00:
                    bits.Take(10);
                    headers.types += "?IPB????"[bits.Take(3)];
                    break;
            }
        }
    }
    return headers;
}

struct Stream {
    RObject<CVideoProperties> output;
    Samples samples;
    Headers headers;
};

using SetUp = std::function<void(CVideoCompressor&)>;

Stream encode(const Source& source, int count, const SetUp& setUp = {}) {
    Stream run;
    RObject<CVideoCompressor> compressor = MakeCompressor('mcm2');
    if (setUp) setUp(*compressor);
    compressor->SetInputProperties(source.Properties().Get());
    Result begun = compressor->Begin();
    EXPECT_EQ(begun, 0) << begun.GetMessage();
    run.samples = Encode(*compressor, source, count);
    run.output = compressor->GetOutputProperties(0);
    run.headers = read_headers(run.samples);
    return run;
}

SetUp set(const PropertyName& name, int value) {
    return [=](CVideoCompressor& compressor) { EXPECT_EQ(compressor.SetProperty(name, value), 0); };
}

TEST(Mpeg2Compressor, ProfileAndLevelStandInTheHeader) {
    for (const int profile : {1, 4, 5}) {
        for (const int level : {4, 6, 8, 10}) {
            const Stream run = encode({}, 1, [&](CVideoCompressor& compressor) {
                EXPECT_EQ(compressor.SetProperty(Mpeg2::Profile, profile), 0);
                EXPECT_EQ(compressor.SetProperty(Mpeg2::Level, level), 0);
                EXPECT_EQ(compressor.SetProperty(Mpeg2::M, 1), 0);
            });
            EXPECT_EQ(run.headers.profile, profile);
            EXPECT_EQ(run.headers.level, level);
        }
    }
}

TEST(Mpeg2Compressor, BitRateStandsInTheHeaderAndIsKept) {
    constexpr int kPictures = 90;
    constexpr int kRate = 400000;
    Source source;
    source.width = 320;
    source.height = 240;
    const Stream run = encode(source, kPictures, set(BitRate, kRate));
    EXPECT_EQ(run.headers.bitRate, kRate);
    double bytes = 0;
    for (const auto& sample : run.samples) bytes += static_cast<double>(BytesOf(*sample).size());
    const double seconds = kPictures * 1001.0 / 30000;
    EXPECT_NEAR(bytes * 8 / seconds / kRate, 1.0, 0.15);
}

TEST(Mpeg2Compressor, DistancesOfAnchorsAndGroups) {
    struct {
        int m, n;
        const char* types;  // in decode order
    } const table[] = {
        {1, 1, "IIIIIIIIIIII"},
        {1, 4, "IPPPIPPPIPPP"},
        {3, 6, "IPBBIBBPBBIB"},
    };
    for (const auto& row : table) {
        const Stream run = encode({}, 12, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(compressor.SetProperty(Mpeg2::M, row.m), 0);
            EXPECT_EQ(compressor.SetProperty(Mpeg2::N, row.n), 0);
        });
        EXPECT_EQ(run.headers.types.substr(0, 11), std::string(row.types).substr(0, 11))
            << "M " << row.m << ", N " << row.n;
    }
}

TEST(Mpeg2Compressor, PictureTypesFollowTheStream) {
    const Stream run = encode({}, 30);
    ASSERT_EQ(run.headers.types.size(), 30u);
    ASSERT_EQ(run.samples.size(), 30u);
    for (std::size_t i = 0; i < 30; ++i) {
        const int expected = std::string("IPB").find(run.headers.types[i]);
        EXPECT_EQ(run.samples[i]->GetPictureType(), expected) << i;
    }
    EXPECT_NE(run.headers.types.find('B'), std::string::npos);
}

TEST(Mpeg2Compressor, OffsetsLeadToTheOrderOfDisplay) {
    const Source source;
    const Stream run = encode(source, 30);
    const Decoded decoded = Decode(*run.output, run.samples);
    ASSERT_EQ(decoded.frames.size(), 30u);
    EXPECT_EQ(run.output->GetReorderDepth(), 1);
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(decoded.frames[i]->pts, i * source.frameDuration);
        EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 34);
    }
}

TEST(Mpeg2Compressor, GroupsAreClosedWhenAsked) {
    for (const int closed : {0, 1}) {
        const Stream run = encode({}, 40, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(compressor.SetProperty(Mpeg2::M, 3), 0);
            EXPECT_EQ(compressor.SetProperty(Mpeg2::N, 9), 0);
            EXPECT_EQ(compressor.SetProperty(Mpeg2::ClosedGopInterval, closed), 0);
        });
        ASSERT_GE(run.headers.closedGroups.size(), 4u);
        // The first group has nothing in front that it could refer to.
        for (std::size_t i = 1; i < run.headers.closedGroups.size(); ++i) {
            EXPECT_EQ(run.headers.closedGroups[i], closed == 1) << "group " << i;
        }
    }
}

/// The types of a stream without leading pictures, in the order of display: an anchor is shown
/// behind the B-pictures that follow it in the stream.
std::string in_order_of_display(const std::string& types) {
    std::string shown;
    std::string anchor;
    for (const char type : types) {
        if (type == 'B') {
            shown += type;
            continue;
        }
        shown += anchor;
        anchor = type;
    }
    return shown + anchor;
}

TEST(Mpeg2Compressor, ClosedGroupsAreAsLongAsAsked) {
    struct {
        int m, n;
        const char* group;  // in order of display
    } const table[] = {
        {1, 1, "I"},        {1, 4, "IPPP"},      {2, 2, "IP"},
        {3, 3, "IBP"},      {5, 5, "IBBBP"},     {7, 7, "IBBBBBP"},
        {3, 8, "IBBPBBPP"}, {3, 9, "IBBPBBPBP"}, {3, 12, "IBBPBBPBBPBP"},
    };
    constexpr int kGroups = 4;
    for (const auto& row : table) {
        SCOPED_TRACE(testing::Message() << "M " << row.m << ", N " << row.n);
        const Stream run = encode({}, kGroups * row.n, [&](CVideoCompressor& compressor) {
            EXPECT_EQ(compressor.SetProperty(Mpeg2::M, row.m), 0);
            EXPECT_EQ(compressor.SetProperty(Mpeg2::N, row.n), 0);
            EXPECT_EQ(compressor.SetProperty(Mpeg2::ClosedGopInterval, 1), 0);
        });
        std::string expected;
        for (int i = 0; i < kGroups; ++i) expected += row.group;
        EXPECT_EQ(in_order_of_display(run.headers.types), expected);
        EXPECT_EQ(run.headers.closedGroups, std::vector<bool>(kGroups, true));
    }
}

TEST(Mpeg2Compressor, AHintInsideOfAClosedGroupBeginsOne) {
    RObject<CVideoCompressor> compressor = MakeCompressor('mcm2');
    const Source source;
    compressor->SetProperty(Mpeg2::ClosedGopInterval, 1);
    compressor->SetProperty(Mpeg2::N, 100);
    compressor->SetInputProperties(source.Properties().Get());
    ASSERT_EQ(compressor->Begin(), 0);
    const Samples samples = Encode(*compressor, source, 20, {8});
    const Headers headers = read_headers(samples);
    EXPECT_EQ(headers.closedGroups, (std::vector<bool>{true, true}));
    RObject<CVideoProperties> output(compressor->GetOutputProperties(0));
    const Decoded decoded = Decode(*output, samples);
    EXPECT_TRUE(decoded.clean);
    ASSERT_EQ(decoded.frames.size(), 20u);
    for (int i = 0; i < 20; ++i) EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 34) << i;
}

TEST(Mpeg2Compressor, FieldsStandInTheStream) {
    for (const int order :
         {CVideoProperties::kTopFieldFirst, CVideoProperties::kBottomFieldFirst}) {
        Source source;
        source.fieldOrder = order;
        const Stream run = encode(source, 10);
        EXPECT_FALSE(run.headers.progressive);
        const Decoded decoded = Decode(*run.output, run.samples);
        ASSERT_EQ(decoded.frames.size(), 10u);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(decoded.frames[i]->interlaced_frame);
            EXPECT_EQ(decoded.frames[i]->top_field_first != 0,
                      order == CVideoProperties::kTopFieldFirst);
            EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 34);
        }
    }
    EXPECT_TRUE(encode({}, 1).headers.progressive);
}

TEST(Mpeg2Compressor, ColourStandsInTheStream) {
    for (const ColorSpace colour : {ColorSpace::BT709, ColorSpace::BT601N, ColorSpace::BT601P}) {
        Source source;
        source.colour = colour;
        const Stream run = encode(source, 1);
        EXPECT_EQ(run.headers.primaries, colour.GetPrimaries());
        EXPECT_EQ(run.headers.transfer, colour.GetTransfer());
        EXPECT_EQ(run.headers.matrix, colour.GetMatrix());
    }
}

TEST(Mpeg2Compressor, FullRangeBecomesLimitedBecauseTheStreamCannotSayIt) {
    Source source;
    source.range = CVideoProperties::kFullRange;
    const Stream run = encode(source, 1, set(BitRate, 20000000));
    EXPECT_EQ(run.output->GetVideoRange(), CVideoProperties::kLimitedRange);
    const Decoded decoded = Decode(*run.output, run.samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    const Scene scene{source, 0};
    double sum = 0;
    for (int y = 0; y < source.height; ++y) {
        for (int x = 0; x < source.width; ++x) {
            const double expected = 16 + scene.luma(x, y) * 219.0 / 255;
            sum += std::abs(decoded.frames[0]->data[0][y * decoded.frames[0]->linesize[0] + x] -
                            expected);
        }
    }
    EXPECT_LT(sum / (source.width * source.height), 2.0);
}

TEST(Mpeg2Compressor, RatesStandInTheStream) {
    struct {
        long long timescale, duration;
        AVRational rate;
    } const table[] = {
        {30000, 1001, {30000, 1001}}, {25, 1, {25, 1}},     {10, 1, {10, 1}},
        {60000, 1001, {60000, 1001}}, {2678, 100, {80, 3}}, {10000000, 333667, {30000, 1001}}};
    for (const auto& row : table) {
        Source source;
        source.timescale = row.timescale;
        source.frameDuration = row.duration;
        const Stream run = encode(source, 4);
        const Decoded decoded = Decode(*run.output, run.samples);
        const double rate = av_q2d(decoded.context->framerate);
        EXPECT_NEAR(rate, av_q2d(row.rate), av_q2d(row.rate) * 0.07)
            << row.timescale << "/" << row.duration;
        for (std::size_t i = 0; i < run.samples.size(); ++i) {
            EXPECT_EQ(run.samples[i]->GetTime(), static_cast<long long>(i) * row.duration);
        }
    }
}

TEST(Mpeg2Compressor, PixelAspectStandsInTheStream) {
    Source source;
    source.width = 720;
    source.height = 576;
    source.pixelAspect = {64, 45};
    const Stream run = encode(source, 1);
    const Decoded decoded = Decode(*run.output, run.samples);
    ASSERT_EQ(decoded.frames.size(), 1u);
    const AVRational aspect = decoded.frames[0]->sample_aspect_ratio;
    EXPECT_EQ(aspect.num * 45, aspect.den * 64);
}

TEST(Mpeg2Compressor, ThreadsGivePicturesOfTheSameQuality) {
    Source source;
    for (int threads = 1; threads <= 4; ++threads) {
        const Stream run = encode(source, 10, set(Threads, threads));
        const Decoded decoded = Decode(*run.output, run.samples);
        EXPECT_TRUE(decoded.clean);
        ASSERT_EQ(decoded.frames.size(), 10u);
        for (int i = 0; i < 10; ++i) EXPECT_GE(LumaPsnr(*decoded.frames[i], source, i), 34);
    }
}

TEST(Mpeg2Compressor, ValuesOutsideOfTheScalesAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor('mcm2');
    struct {
        PropertyName name;
        int value;
    } const table[] = {
        {Mpeg2::Profile, 0},  {Mpeg2::Profile, 2}, {Mpeg2::Profile, 3},
        {Mpeg2::Profile, 6},  {Mpeg2::Level, 3},   {Mpeg2::Level, 5},
        {Mpeg2::Level, 12},   {BitRate, -1},       {BitRate, 999},
        {BitRate, 400000001}, {Mpeg2::M, 0},       {Mpeg2::M, 9},
        {Mpeg2::N, 0},        {Mpeg2::N, 601},     {Mpeg2::ClosedGopInterval, 2},
    };
    for (const auto& row : table) {
        EXPECT_EQ(compressor->SetProperty(row.name, row.value), ResultInvalidArgument::kCode)
            << row.name.GetText() << " = " << row.value;
    }
}

TEST(Mpeg2Compressor, SetUpsThatMpeg2CannotBeAreRefused) {
    RObject<CVideoCompressor> compressor = MakeCompressor('mcm2');
    Source source;
    source.width = 4096;
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->Begin(), ResultInvalidArgument::kCode);
    source.width = 320;
    compressor->SetInputProperties(source.Properties().Get());
    EXPECT_EQ(compressor->SetProperty(Mpeg2::Profile, 5), 0);
    EXPECT_EQ(compressor->Begin(), ResultInvalidArgument::kCode);
    EXPECT_EQ(compressor->SetProperty(Mpeg2::M, 1), 0);
    EXPECT_EQ(compressor->Begin(), 0);
}

TEST(Mpeg2Compressor, APictureThatNoBufferHoldsIsRefused) {
    // Counted in pictures of the header's rate these are 3e10 bits a second.
    RObject<CVideoCompressor> compressor = MakeCompressor('mcm2');
    const Source source;
    const RObject<CVideoProperties> shape = source.Properties();
    shape->SetFrameDuration(100 * shape->GetTimescale());
    compressor->SetInputProperties(shape.Get());
    ASSERT_EQ(compressor->SetProperty(BitRate, 400000000), 0);
    EXPECT_EQ(compressor->Begin(), ResultError::kCode);
}

TEST(Mpeg2Compressor, OddSizesWork) {
    Source source;
    source.width = 101;
    source.height = 67;
    const Stream run = encode(source, 5);
    const Decoded decoded = Decode(*run.output, run.samples);
    ASSERT_EQ(decoded.frames.size(), 5u);
    EXPECT_EQ(decoded.frames[4]->width, 101);
    EXPECT_EQ(decoded.frames[4]->height, 67);
    EXPECT_GE(LumaPsnr(*decoded.frames[4], source, 4), 34);
}

}  // namespace
}  // namespace Quillon::Orb
