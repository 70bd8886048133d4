#include "PixelConverter.h"

#include <cstring>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CComponentInventory.h"
#include "orb/CPixelBufferDataReference.h"
#include "orb/VideoFormat.h"
#include "orb/ffmpeg/closedPicture.h"
#include "orb/testMemory.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

constexpr int kWidth = 32;
constexpr int kHeight = 8;

RObject<CVideoProperties> shape(unsigned int format, int width = kWidth, int height = kHeight) {
    RObject<CVideoProperties> properties(new CVideoProperties(nullptr));
    properties->SetFormat(format);
    properties->SetWidth(width);
    properties->SetHeight(height);
    properties->SetTimescale(30000);
    properties->SetFrameDuration(1001);
    return properties;
}

RObject<CVideoConverter> found() {
    return RObject<CVideoConverter>(
        CComponentInventory<CComponentFactory<CVideoConverter>>::CreateInstance('vfc '));
}

RObject<CVideoConverter> begun(const CVideoProperties& input, unsigned int format,
                               const CVideoProperties* output = nullptr) {
    RObject<CVideoConverter> converter = found();
    EXPECT_TRUE(converter);
    EXPECT_EQ(converter->SetInputProperties(&input), 0);
    EXPECT_EQ(converter->SetOutputFormat(format), 0);
    EXPECT_EQ(converter->SetOutputProperties(output), 0);
    EXPECT_EQ(converter->Begin(), 0);
    return converter;
}

/// A picture over bytes that the test keeps.
RObject<CVideoSample> picture_over(std::vector<unsigned char>& bytes, int width, int height,
                                   int stride) {
    RObject<CByteArray> array(
        new CByteArray(static_cast<int>(bytes.size()), bytes.data(), nullptr));
    RObject<CPixelBufferDataReference> pixels(
        new CPixelBufferDataReference(array.Get(), width, height, stride));
    RObject<CVideoSample> sample(new CVideoSample(0, 0, 0));
    sample->SetDataReference(pixels.Get());
    return sample;
}

/// A picture of one colour, component by component in the order of memory.
RObject<CVideoSample> flat(const CVideoProperties& properties,
                           const std::vector<unsigned char>& pixel) {
    RObject<CVideoSample> sample;
    EXPECT_EQ(CVideoFilter::CreateSample(&properties, sample.Receive()), 0);
    RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
    pixels->Lock(CDataReference::kWrite);
    for (int i = 0; i < pixels->GetLength(); ++i) pixels->GetData()[i] = pixel[i % pixel.size()];
    pixels->Unlock();
    return sample;
}

std::vector<unsigned char> bytes_of(const CVideoSample& sample) {
    RObject<CPixelDataReference> pixels(sample.GetDataReference<CPixelDataReference>());
    if (!pixels) return {};
    pixels->Lock(CDataReference::kRead);
    std::vector<unsigned char> bytes(pixels->GetData(), pixels->GetData() + pixels->GetLength());
    pixels->Unlock();
    return bytes;
}

/// One picture through the converter.
std::vector<unsigned char> converted(CVideoConverter& converter, CVideoSample& sample) {
    EXPECT_EQ(converter.ProcessSample(&sample), 0);
    RObject<CVideoSample> out;
    EXPECT_EQ(converter.ReceiveSample(out), 0);
    EXPECT_TRUE(out);
    return out ? bytes_of(*out) : std::vector<unsigned char>();
}

TEST(PixelConverter, IsFoundByItsCode) {
    const RObject<CVideoConverter> converter = found();
    ASSERT_TRUE(converter);
    EXPECT_EQ(converter->GetType(), 'vfc ');
}

TEST(PixelConverter, TakesAndGivesEveryRawFormat) {
    const RObject<CVideoConverter> converter = found();
    const RObject<CValueList<unsigned int>> in(converter->GetInputFormats());
    const RObject<CValueList<unsigned int>> out(converter->GetOutputFormats());
    for (const unsigned int format : {'UYVY', 'YUYV', 'I420', 'YV12', 'NV12', 'I422', 'YV16',
                                      'BGRA', 'GREY', 'RV24', 'RV16', 'RGB2'}) {
        EXPECT_TRUE(in->HasValue(format));
        EXPECT_TRUE(out->HasValue(format));
    }
    EXPECT_EQ(in->GetCount(), 12);
    EXPECT_EQ(out->GetCount(), 12);
}

TEST(PixelConverter, EveryPairOfFormatsRuns) {
    const RObject<CVideoConverter> any = found();
    const RObject<CValueList<unsigned int>> formats(any->GetInputFormats());
    for (int i = 0; i < formats->GetCount(); ++i) {
        for (int j = 0; j < formats->GetCount(); ++j) {
            unsigned int from = 0, to = 0;
            formats->GetValue(i, from);
            formats->GetValue(j, to);
            const auto input = shape(from, 33, 5), output = shape(to, 33, 5);
            const auto converter = begun(*input, to);
            const auto out = converted(*converter, *flat(*input, {128}));
            EXPECT_EQ(static_cast<int>(out.size()), output->GetSampleLength(1));
        }
    }
}

TEST(PixelConverter, CarriesEverythingButPixelsOver) {
    const auto input = shape('UYVY');
    const auto converter = begun(*input, 'I420');
    const auto sample = flat(*input, {100, 50, 200, 60});
    sample->SetTime(-12345678901LL);
    sample->SetDuration(1001);
    sample->SetHint(CMediaSample::kHintKeyFrame);
    ASSERT_EQ(converter->ProcessSample(sample.Get()), 0);
    RObject<CVideoSample> out;
    ASSERT_EQ(converter->ReceiveSample(out), 0);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->GetTime(), -12345678901LL);
    EXPECT_EQ(out->GetDuration(), 1001);
    EXPECT_EQ(out->GetHint(), CMediaSample::kHintKeyFrame);
    const auto bytes = bytes_of(*out);
    EXPECT_EQ(bytes.front(), 50);
    EXPECT_EQ(bytes[kWidth * kHeight], 100);
    EXPECT_EQ(bytes.back(), 200);
}

TEST(PixelConverter, EveryWayThroughGivesTheSame) {
    const auto input = shape('BGRA');
    const auto sample = flat(*input, {10, 200, 90, 255});
    const auto converter = begun(*input, 'UYVY');
    const auto expected = converted(*converter, *sample);

    ASSERT_EQ(converter->PutSample(0, sample.Get()), 0);
    RObject<CMediaSample> got;
    ASSERT_EQ(converter->GetSample(0, got), 0);
    ASSERT_TRUE(got && got->IsType(CVideoSample::kType));
    EXPECT_EQ(bytes_of(static_cast<CVideoSample&>(*got)), expected);

    RObject<CVideoSample> out;
    int reserved[2] = {};
    ASSERT_EQ(converter->TransformSample(sample.Get(), 0, out, &reserved[0], &reserved[1]), 0);
    ASSERT_TRUE(out);
    EXPECT_EQ(bytes_of(*out), expected);
}

TEST(PixelConverter, GivesPicturesInTheOrderInWhichTheyCameAndThenNone) {
    const auto input = shape('GREY');
    const auto converter = begun(*input, 'I420');
    RObject<CVideoSample> out;
    EXPECT_EQ(converter->ReceiveSample(out), 0);
    EXPECT_FALSE(out);
    for (const unsigned char level : {40, 80, 120}) {
        EXPECT_EQ(converter->ProcessSample(flat(*input, {level}).Get()), 0);
    }
    EXPECT_EQ(converter->ProcessSample(nullptr), 0);
    for (const unsigned char level : {40, 80, 120}) {
        ASSERT_EQ(converter->ReceiveSample(out), 0);
        ASSERT_TRUE(out);
        EXPECT_EQ(bytes_of(*out).front(), level);
    }
    EXPECT_EQ(converter->ReceiveSample(out), 0);
    EXPECT_FALSE(out);
}

struct ColourCase {
    ColorSpace space;
    int range;
    int height;
    unsigned char y, u, v;  // of pure red
};

TEST(PixelConverter, MatrixAndRangeComeFromTheProperties) {
    const ColourCase cases[] = {
        {ColorSpace::BT709, 1, 8, 63, 102, 240}, {ColorSpace::BT709, 2, 8, 54, 99, 255},
        {ColorSpace::BT601N, 1, 8, 81, 90, 240}, {ColorSpace::BT601P, 1, 8, 81, 90, 240},
        {ColorSpace::BT601N, 2, 8, 76, 85, 255}, {ColorSpace(), 1, 719, 81, 90, 240},
        {ColorSpace(), 1, 720, 63, 102, 240},    {ColorSpace(), 2, 720, 54, 99, 255},
    };
    for (const ColourCase& c : cases) {
        const auto input = shape('BGRA', kWidth, c.height);
        input->SetColorSpace(c.space);
        input->SetVideoRange(c.range);
        const auto red = flat(*input, {0, 0, 255, 255});
        const auto bytes = converted(*begun(*input, 'UYVY'), *red);
        EXPECT_EQ(bytes[0], c.u) << &c - cases;
        EXPECT_EQ(bytes[1], c.y) << &c - cases;
        EXPECT_EQ(bytes[2], c.v) << &c - cases;

        // and back: red, green and blue use all of their codes whatever the range
        const auto yuv = shape('UYVY', kWidth, c.height);
        yuv->SetColorSpace(c.space);
        yuv->SetVideoRange(c.range);
        const auto back = converted(*begun(*yuv, 'BGRA'), *flat(*yuv, {c.u, c.y, c.v, c.y}));
        EXPECT_NEAR(back[0], 0, 2) << &c - cases;
        EXPECT_NEAR(back[1], 0, 2) << &c - cases;
        EXPECT_NEAR(back[2], 255, 2) << &c - cases;
    }
}

TEST(PixelConverter, OutputMayMeanSomethingElseThanInput) {
    const auto input = shape('UYVY');
    input->SetColorSpace(ColorSpace::BT601N);
    const auto wanted = shape(0);
    wanted->SetColorSpace(ColorSpace::BT709);
    wanted->SetVideoRange(CVideoProperties::kFullRange);
    const auto converter = begun(*input, 'UYVY', wanted.Get());
    const auto bytes = converted(*converter, *flat(*input, {90, 81, 240, 81}));  // red
    EXPECT_NEAR(bytes[0], 99, 1);
    EXPECT_NEAR(bytes[1], 54, 1);
    EXPECT_NEAR(bytes[2], 255, 1);

    RObject<CVideoProperties> output(converter->GetOutputProperties(0));
    EXPECT_TRUE(output->GetColorSpace() == ColorSpace::BT709);
    EXPECT_EQ(output->GetVideoRange(), CVideoProperties::kFullRange);

    ASSERT_EQ(converter->SetOutputProperties(nullptr), 0);
    ASSERT_EQ(converter->Begin(), 0);
    EXPECT_EQ(converted(*converter, *flat(*input, {90, 81, 240, 81}))[1], 81);
}

TEST(PixelConverter, OutputPropertiesAreTheInputsInTheOtherFormat) {
    const auto input = shape('UYVY');
    input->SetColorSpace(ColorSpace::BT709);
    input->SetFieldOrder(CVideoProperties::kTopFieldFirst);
    const auto converter = begun(*input, 'NV12');
    RObject<CVideoProperties> output(converter->GetOutputProperties(0));
    EXPECT_EQ(output->GetFormat(), 'NV12');
    EXPECT_EQ(output->GetWidth(), kWidth);
    EXPECT_EQ(output->GetHeight(), kHeight);
    EXPECT_EQ(output->GetTimescale(), 30000);
    EXPECT_EQ(output->GetFrameDuration(), 1001);
    EXPECT_EQ(output->GetFieldOrder(), CVideoProperties::kTopFieldFirst);
    EXPECT_TRUE(output->GetColorSpace() == ColorSpace::BT709);
}

TEST(PixelConverter, FieldsKeepTheirChromaInBothFieldOrders) {
    for (const int order :
         {CVideoProperties::kTopFieldFirst, CVideoProperties::kBottomFieldFirst}) {
        const auto input = shape('UYVY');
        input->SetFieldOrder(order);
        const auto sample = flat(*input, {0});
        RObject<CPixelDataReference> pixels(sample->GetDataReference<CPixelDataReference>());
        pixels->Lock(CDataReference::kWrite);
        for (int y = 0; y < kHeight; ++y) {
            std::memset(pixels->GetData() + y * pixels->GetStride(), y & 1 ? 200 : 50, 2 * kWidth);
        }
        pixels->Unlock();
        const auto bytes = converted(*begun(*input, 'I420'), *sample);
        const unsigned char* u = bytes.data() + kWidth * kHeight;
        for (int k = 0; k < kHeight / 2; ++k) EXPECT_EQ(u[k * kWidth / 2], k & 1 ? 200 : 50);
    }
}

TEST(PixelConverter, PixelsAreItsOwnEvenWhereNothingChanges) {
    const auto input = shape('GREY');
    const auto converter = begun(*input, 'GREY');
    std::vector<unsigned char> memory(kWidth * kHeight, 77);
    ASSERT_EQ(converter->ProcessSample(picture_over(memory, kWidth, kHeight, kWidth).Get()), 0);
    std::fill(memory.begin(), memory.end(), static_cast<unsigned char>(0));
    RObject<CVideoSample> out;
    ASSERT_EQ(converter->ReceiveSample(out), 0);
    EXPECT_EQ(bytes_of(*out), std::vector<unsigned char>(kWidth * kHeight, 77));
}

TEST(PixelConverter, ReadsPaddedRowsAndBlocksThatLackTheLastChroma) {
    // 7 x 5: as hosts count it, 3 * 5 / 2 rows of 7 bytes, which lacks chroma columns and rows.
    std::vector<unsigned char> tight(7 * (5 * 3 / 2), 60);
    std::fill(tight.begin() + 35, tight.end(), static_cast<unsigned char>(140));
    const auto odd = shape('I420', 7, 5);
    auto bytes = converted(*begun(*odd, 'UYVY'), *picture_over(tight, 7, 5, 7));
    for (std::size_t i = 0; i < bytes.size(); ++i) EXPECT_EQ(bytes[i], i & 1 ? 60 : 140);

    std::vector<unsigned char> padded(100 * kHeight, 9);
    for (int y = 0; y < kHeight; ++y) std::memset(padded.data() + 100 * y, 120, 2 * kWidth);
    const auto wide = shape('UYVY');
    bytes = converted(*begun(*wide, 'GREY'), *picture_over(padded, kWidth, kHeight, 100));
    EXPECT_EQ(bytes, std::vector<unsigned char>(kWidth * kHeight, 120));
}

TEST(PixelConverter, ASteadyRunTakesNoFreshBlocks) {
    const auto input = shape('BGRA', 640, 360);
    const auto converter = begun(*input, 'I420');
    const auto sample = flat(*input, {1, 2, 3, 4});
    RObject<CVideoSample> out;
    for (int i = 0; i < 3; ++i) converter->TransformSample(sample.Get(), 0, out, nullptr, nullptr);
    const long long fresh = BlockPool::Shared().GetCounts().fresh;
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(converter->TransformSample(sample.Get(), 0, out, nullptr, nullptr), 0);
    }
    EXPECT_EQ(BlockPool::Shared().GetCounts().fresh, fresh);
}

TEST(PixelConverter, BeginsAgainAfterEndAndDropsWhatWasLeft) {
    const auto input = shape('UYVY');
    const auto converter = begun(*input, 'I420');
    ASSERT_EQ(converter->ProcessSample(flat(*input, {100}).Get()), 0);
    ASSERT_EQ(converter->End(), 0);
    RObject<CVideoSample> out;
    EXPECT_EQ(converter->ReceiveSample(out), 0);
    EXPECT_FALSE(out);
    const auto grey = shape('GREY');
    ASSERT_EQ(converter->SetInputProperties(grey.Get()), 0);
    ASSERT_EQ(converter->Begin(), 0);
    EXPECT_EQ(converted(*converter, *flat(*grey, {90})).front(), 90);
}

TEST(PixelConverter, BeginSaysWhatItCannotDo) {
    EXPECT_EQ(found()->Begin(), ResultNullPointer::kCode);

    const auto encoded = shape('h264');
    const auto nothing = shape('UYVY', 0, 8);
    const auto wide = shape('UYVY', 16386, 2);
    const auto high = shape('UYVY', 2, 16386);
    const auto endless = shape('RV24', 2000000000, 1);
    const auto wideGamut = shape('UYVY');
    wideGamut->SetColorSpace(ColorSpace(9, 14, 9));
    const struct {
        const CVideoProperties* input;
        int code;
    } cases[] = {{encoded.Get(), ResultNotSupported::kCode},
                 {nothing.Get(), ResultInvalidArgument::kCode},
                 {wide.Get(), ResultInvalidArgument::kCode},
                 {high.Get(), ResultInvalidArgument::kCode},
                 {endless.Get(), ResultInvalidArgument::kCode},
                 {wideGamut.Get(), ResultNotSupported::kCode}};
    for (const auto& c : cases) {
        const RObject<CVideoConverter> converter = found();
        EXPECT_EQ(converter->SetInputProperties(c.input), 0);
        EXPECT_EQ(converter->SetOutputFormat('I420'), 0);
        EXPECT_EQ(converter->Begin(), c.code) << &c - cases;
    }
    const RObject<CVideoConverter> converter = found();
    EXPECT_LT(converter->SetOutputFormat('apcn'), 0);
    EXPECT_LT(converter->SetOutputFormat('I210'), 0) << "a format of our own encoders";
    EXPECT_EQ(converter->SetInputProperties(shape('UYVY').Get()), 0);
    EXPECT_EQ(converter->SetOutputProperties(shape(0, 16, 16).Get()), ResultInvalidArgument::kCode);
    EXPECT_EQ(converter->SetOutputProperties(shape('I420').Get()), 0);
    EXPECT_EQ(converter->SetInputProperties(shape('UYVY', 16, 16).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultInvalidArgument::kCode);
}

TEST(PixelConverter, TheLargestPicturesAreConverted) {
    for (const auto& [width, height] : {std::pair{16384, 2}, std::pair{2, 16384}}) {
        const auto input = shape('RV24', width, height);
        EXPECT_FALSE(converted(*begun(*input, 'RGB2'), *flat(*input, {10, 20, 30})).empty());
    }
}

TEST(PixelConverter, WithoutMemoryItDoesNotBegin) {
    const auto input = shape('UYVY');
    const auto picture = flat(*input, {90, 81, 240, 81});
    const auto converter = begun(*input, 'I420');
    bool failed = true;
    for (int left = 0; failed; ++left) {
        SCOPED_TRACE(left);
        gObjectsLeft = left;
        const Result begin = converter->Begin();
        failed = gObjectsLeft == 0;
        gObjectsLeft = -1;
        EXPECT_TRUE(begin == 0 || begin == ResultOutOfMemory::kCode) << begin;
        if (begin == 0) {
            EXPECT_FALSE(converted(*converter, *picture).empty());
        }
    }
}

TEST(PixelConverter, PicturesThatFailInARowAreToldOnce) {
    TraceCatcher trace;
    const auto input = shape('UYVY');
    const auto converter = begun(*input, 'I420');
    const auto other = flat(*shape('UYVY', 16, 16), {1});
    const auto right = flat(*input, {1});
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(converter->ProcessSample(other.Get()), ResultInvalidArgument::kCode);
    }
    EXPECT_EQ(trace.Count(), 1);
    EXPECT_EQ(converter->ProcessSample(right.Get()), 0);
    EXPECT_EQ(converter->ProcessSample(other.Get()), ResultInvalidArgument::kCode);
    EXPECT_EQ(trace.Count(), 2);
}

TEST(PixelConverter, AFailureWithoutWordsIsToldWithSome) {
    TraceCatcher trace;
    const auto converter = begun(*shape('UYVY'), 'I420');
    EXPECT_EQ(converter->ProcessSample(closed_picture(kWidth, kHeight).Get()), ResultError::kCode);
    ASSERT_EQ(trace.Count(), 1);
    EXPECT_TRUE(trace.HasLineWith({"'vfc ': it failed"})) << trace.Lines()[0];
}

TEST(PixelConverter, PicturesThatDoNotFitAreRefused) {
    const auto input = shape('UYVY');
    const auto converter = begun(*input, 'I420');
    const RObject<CVideoSample> empty(new CVideoSample(nullptr));
    EXPECT_EQ(converter->ProcessSample(empty.Get()), ResultInvalidArgument::kCode);
    const auto larger = shape('UYVY', kWidth * 2, kHeight);
    EXPECT_EQ(converter->ProcessSample(flat(*larger, {1}).Get()), ResultInvalidArgument::kCode);
    std::vector<unsigned char> cut(2 * kWidth * kHeight - 1);
    EXPECT_EQ(converter->ProcessSample(picture_over(cut, kWidth, kHeight, 2 * kWidth).Get()),
              ResultInvalidArgument::kCode);
    EXPECT_EQ(converter->ProcessSample(flat(*input, {1}).Get()), 0);
    ASSERT_EQ(converter->End(), 0);
    EXPECT_EQ(converter->ProcessSample(flat(*input, {1}).Get()), ResultError::kCode);
}

}  // namespace
}  // namespace Quillon::Orb
