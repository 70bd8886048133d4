#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "EncoderTestKit.h"

// Access units of a real encoder, read back by a decoder that is not ours.

namespace Quillon::Orb {
namespace {

using namespace TestKit;

struct Stream {
    RObject<CVideoProperties> output;
    Samples samples;
};

Stream encode(const Source& source, int count) {
    Stream stream;
    RObject<CVideoCompressor> compressor = MakeCompressor('h264');
    compressor->SetInputProperties(source.Properties().Get());
    compressor->SetProperty(CodeBookProperty::H264Compressor::NumBFrames, 2);
    EXPECT_EQ(compressor->Begin(), 0);
    stream.samples = Encode(*compressor, source, count);
    stream.output = compressor->GetOutputProperties(0);
    return stream;
}

RObject<CMpeg4AvcAccessUnit> unit_of(const CVideoSample& sample) {
    RObject<CMpeg4AvcDataReference> reference(sample.GetDataReference<CMpeg4AvcDataReference>());
    return RObject<CMpeg4AvcAccessUnit>(reference ? reference->GetAccessUnit() : nullptr);
}

std::vector<unsigned char> prefixed(const CMpeg4AvcAccessUnit& unit) {
    RObject<CByteArray> bytes;
    EXPECT_EQ(unit.RenderLengthPrefixed(4, bytes), 0);
    return {bytes->GetData(), bytes->GetData() + bytes->GetLength()};
}

void expect_same_pictures(const Decoded& a, const Decoded& b, int height) {
    ASSERT_EQ(a.frames.size(), b.frames.size());
    for (std::size_t i = 0; i < a.frames.size(); ++i) {
        const AVFrame& x = *a.frames[i];
        const AVFrame& y = *b.frames[i];
        EXPECT_EQ(x.pts, y.pts);
        for (int row = 0; row < height; ++row) {
            ASSERT_EQ(std::memcmp(x.data[0] + row * x.linesize[0], y.data[0] + row * y.linesize[0],
                                  static_cast<std::size_t>(x.width)),
                      0);
        }
    }
}

TEST(AccessUnit, FillerOfEverySizeLeavesThePicturesAsTheyWere) {
    const Source source;
    const Stream plain = encode(source, 50);
    const Stream padded = encode(source, 50);
    const Decoded before = Decode(*plain.output, plain.samples);
    ASSERT_EQ(before.frames.size(), 50u);
    int bytes = 0;
    for (const RObject<CVideoSample>& sample : padded.samples) {
        RObject<CMpeg4AvcAccessUnit> unit = unit_of(*sample);
        ASSERT_TRUE(unit);
        const std::vector<unsigned char> was = prefixed(*unit);
        const Result result = unit->AddFillerData(bytes);
        const std::vector<unsigned char> is = prefixed(*unit);
        if (result.Failed()) {
            EXPECT_GT(bytes, 0);
            EXPECT_LT(bytes, 6);
            EXPECT_EQ(is, was);
        } else {
            EXPECT_EQ(is.size(), was.size() + static_cast<std::size_t>(bytes));
        }
        bytes += bytes < 40 ? 1 : 20011;
    }
    const Decoded after = Decode(*padded.output, padded.samples);
    EXPECT_TRUE(after.clean);
    expect_same_pictures(before, after, source.height);
}

TEST(AccessUnit, FillerThatGrewTwiceIsStillSkipped) {
    const Source source;
    const Stream plain = encode(source, 6);
    const Stream padded = encode(source, 6);
    for (const RObject<CVideoSample>& sample : padded.samples) {
        RObject<CMpeg4AvcAccessUnit> unit = unit_of(*sample);
        ASSERT_EQ(unit->AddFillerData(6), 0);
        for (int more = 1; more <= 5; ++more) ASSERT_EQ(unit->AddFillerData(more), 0);
    }
    const Decoded after = Decode(*padded.output, padded.samples);
    EXPECT_TRUE(after.clean);
    expect_same_pictures(Decode(*plain.output, plain.samples), after, source.height);
}

TEST(AccessUnit, RealUnitsSurviveBothForms) {
    const Stream stream = encode(Source(), 12);
    for (const RObject<CVideoSample>& sample : stream.samples) {
        RObject<CMpeg4AvcAccessUnit> unit = unit_of(*sample);
        RObject<CByteArray> behindStartCodes;
        ASSERT_EQ(unit->RenderAnnexB(behindStartCodes), 0);
        RObject<CMpeg4AvcAccessUnit> fromStartCodes(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(fromStartCodes->ParseAnnexB(behindStartCodes.Get()), 0);
        EXPECT_EQ(prefixed(*fromStartCodes), prefixed(*unit));
        RObject<CByteArray> behindLengths;
        ASSERT_EQ(unit->RenderLengthPrefixed(4, behindLengths), 0);
        RObject<CMpeg4AvcAccessUnit> fromLengths(new CMpeg4AvcAccessUnit());
        ASSERT_EQ(fromLengths->ParseLengthPrefixed(behindLengths.Get(), 4), 0);
        EXPECT_EQ(prefixed(*fromLengths), prefixed(*unit));
        EXPECT_EQ(unit->IsKeyFrame(), sample->GetPictureType() == CVideoSample::kKeyPicture);
    }
}

TEST(AccessUnit, RecordOfARealStreamComesBackAsItWas) {
    const Stream stream = encode(Source(), 1);
    RObject<CDecoderSpecificProperties> specific(stream.output->GetExtension('mspe'));
    RObject<CByteArray> record;
    ASSERT_EQ(specific->GetDecoderInfo(record), 0);
    RObject<CMpeg4AvcDecoderConfiguration> read(new CMpeg4AvcDecoderConfiguration());
    ASSERT_EQ(read->Parse(record->GetData(), record->GetLength()), 0);
    EXPECT_EQ(read->GetProfile(), 100);
    EXPECT_EQ(read->GetNalUnitLengthSize(), 4);
    ASSERT_EQ(read->GetSequenceParameterSets().size(), 1u);
    ASSERT_EQ(read->GetPictureParameterSets().size(), 1u);
    RObject<CByteArray> again;
    ASSERT_EQ(read->Render(again), 0);
    EXPECT_TRUE(again->Equals(record.Get()));
}

}  // namespace
}  // namespace Quillon::Orb
