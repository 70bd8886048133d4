#include "HardwareH264.h"

#include <gtest/gtest.h>

#include "orb/CMpeg4AvcDecoderConfiguration.h"

namespace Quillon::Orb {
namespace {

VideoShape shape_of(int width, int height) {
    VideoShape shape;
    shape.format = kHardwareFormat;
    shape.width = width;
    shape.height = height;
    return shape;
}

// Which hardware is here differs from machine to machine, so that the road of an encoder that tells
// its parameter sets late is gone with one that does the same in software.
TEST(HardwareH264, ParameterSetsAreLearntFromAStreamThatHoldsThem) {
    const VideoShape shape = shape_of(320, 240);
    AvOpenedEncoder encoder;
    ASSERT_EQ(MakeEncoderContext("libx264", shape, AV_PIX_FMT_NV12, encoder.context), 0);
    encoder.pixels = AV_PIX_FMT_NV12;
    AvOptions options;
    ASSERT_EQ(OpenEncoderContext(*encoder.context, options), 0);
    ASSERT_EQ(encoder.context->extradata_size, 0);
    std::vector<unsigned char> sets;
    ASSERT_EQ(LearnParameterSets(encoder, sets), 0);
    RObject<CMpeg4AvcDecoderConfiguration> configuration(new CMpeg4AvcDecoderConfiguration());
    EXPECT_EQ(configuration->ParseAnnexB(sets.data(), static_cast<int>(sets.size())), 0);
    EXPECT_EQ(configuration->GetSequenceParameterSets().size(), 1u);
    EXPECT_EQ(configuration->GetPictureParameterSets().size(), 1u);
}

TEST(HardwareH264, OpensADeviceOrSaysWhyNot) {
    AvOpenedEncoder opened;
    Result result = OpenHardwareH264(shape_of(1280, 720), HardwareH264Settings(), opened);
    EXPECT_EQ(result.Succeeded(), opened.context != nullptr);
    EXPECT_EQ(result.Succeeded(), opened.hardware);
    if (result.Failed()) {
        EXPECT_NE(std::string(result.GetMessage()).find("nvenc"), std::string::npos);
    }
}

TEST(AvSupport, AnEncoderThatIsNotThereIsNamed) {
    AvContext context;
    Result result =
        MakeEncoderContext("no_such_encoder", shape_of(16, 16), AV_PIX_FMT_NV12, context);
    EXPECT_EQ(result, ResultNotSupported::kCode);
    EXPECT_NE(std::string(result.GetMessage()).find("no_such_encoder"), std::string::npos);
    EXPECT_FALSE(context);
}

TEST(AvSupport, AnEncoderThatWillNotOpenSaysForWhat) {
    AvContext context;
    ASSERT_EQ(MakeEncoderContext("libx264", shape_of(17, 16), AV_PIX_FMT_YUV420P, context), 0);
    AvOptions options;
    options.Set("preset", "no such preset");
    Result result = OpenEncoderContext(*context, options);
    EXPECT_TRUE(result.Failed());
    EXPECT_NE(std::string(result.GetMessage()).find("libx264 would not open for 17 x 16"),
              std::string::npos);
}

}  // namespace
}  // namespace Quillon::Orb
