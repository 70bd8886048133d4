#include "tarn/foundation/tnAudioFormat.h"

#include <gtest/gtest.h>

namespace {

TEST(tnAudioFormat, EveryCodeHasItsSampleSize) {
    const std::pair<int, int> kBits[] = {
        {'fl32', 32}, {'in32', 32}, {0x33326E69, 32}, {'in24', 32}, {0x34326E69, 32},
        {'fl64', 64}, {'int8', 8},  {'raw ', 8},      {'sowt', 16}, {'twos', 16},
        {'mp4a', 16}, {0, 16},      {-1, 16},         {'23lf', 16}, {'23ni', 16},
    };
    for (const auto& [format, bits] : kBits) {
        SCOPED_TRACE(format);
        EXPECT_EQ(tnAudioFormat::BitsPerSample(format), bits);
    }
}

TEST(tnAudioFormat, BytesFollowFromTheSampleSize) {
    EXPECT_EQ(tnAudioFormat::BytesPerSecond('sowt', 2, 48000), 192000u);
    EXPECT_EQ(tnAudioFormat::BytesPerSecond('fl32', 8, 96000), 3072000u);
    EXPECT_EQ(tnAudioFormat::BytesPerSecond('int8', 1, 44100), 44100u);
    EXPECT_EQ(tnAudioFormat::BytesForSamples('sowt', 2, 1024), 4096u);
    EXPECT_EQ(tnAudioFormat::BytesForSamples('fl64', 1, 3), 24u);
    EXPECT_EQ(tnAudioFormat::BytesForSamples('in24', 2, 10), 80u);
    EXPECT_EQ(tnAudioFormat::BytesForSamples('sowt', 2, 0), 0u);
}

TEST(tnAudioFormat, UnknownCodeNeverMakesABlockEmpty) {
    EXPECT_EQ(tnAudioFormat::BytesForSamples('wow!', 1, 1), 2u);
}

TEST(tnAudioFormat, ArithmeticWrapsAt32Bits) {
    EXPECT_EQ(tnAudioFormat::BytesPerSecond('fl32', 3, 0x07000001), 335544332u);
}

TEST(tnAudioFormat, LengthGivesWholeSamples) {
    EXPECT_EQ(tnAudioFormat::SamplesFromLength(4096, 'sowt', 2, 48000), 1024u);
    EXPECT_EQ(tnAudioFormat::SamplesFromLength(4099, 'sowt', 2, 1), 1024u);
    EXPECT_EQ(tnAudioFormat::SamplesFromLength(3, 'sowt', 2, 48000), 0u);
    const auto duration = tnAudioFormat::DurationFromLength(4100, 'sowt', 2, 44100);
    EXPECT_EQ(duration.first, 44100);
    EXPECT_EQ(duration.second, 1025);
}

}  // namespace
