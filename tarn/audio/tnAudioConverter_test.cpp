#include "tarn/audio/tnAudioConverter.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "tarn/audio/testPcm.h"
#include "tarn/audio/tnAudioConverter_orb.h"

namespace {

using Samples = std::vector<std::int16_t>;

constexpr std::int16_t kStale = 0x5A5A;

TEST(tnAudioConverter, OnlySizeRateAndChannelsNeedConversion) {
    const tnMediaRecord base = pcm(16, 48000, 2);
    tnMediaRecord other(base);
    other.fBusses.SetInt32(4);
    other.fAudioFormat.SetInt32('twos');
    other.SetCString('mcon', "MPEG-4 Audio", 0);
    EXPECT_FALSE(tnAudioConverter::NeedsConversion(base, other));
    EXPECT_TRUE(tnAudioConverter::NeedsConversion(base, pcm(32, 48000, 2)));
    EXPECT_TRUE(tnAudioConverter::NeedsConversion(base, pcm(16, 44100, 2)));
    EXPECT_TRUE(tnAudioConverter::NeedsConversion(base, pcm(16, 48000, 1)));
}

TEST(tnAudioConverter, FactoryGivesTheConverterOverTheMediaLibrary) {
    const std::unique_ptr<tnAudioConverter> converter(tnAudioConverter::Factory());
    EXPECT_NE(dynamic_cast<tnAudioConverter_orb*>(converter.get()), nullptr);
    EXPECT_EQ(converter->PreferredExtraInputBytes(), 0u);
    EXPECT_EQ(converter->PreferredExtraInputFrames(), 0.0);
    converter->Reset();
}

// The nearest-sample converter of the base.

int convert_base(const tnMediaRecord& input, const tnMediaRecord& output, const Samples& in,
                 Samples& out, unsigned int* outBytes) {
    tnAudioConverter converter;
    EXPECT_EQ(converter.Init(input, output), 0);
    Samples copy(in);
    unsigned int frames = 4711;
    const int result =
        converter.Convert(copy.data(), out.data(), 0, 0, static_cast<unsigned int>(out.size() * 2),
                          &frames, outBytes);
    EXPECT_EQ(frames, 4711u);
    return result;
}

TEST(tnAudioConverterBase, EqualRatesCopy) {
    Samples out(6);
    unsigned int bytes = 0;
    EXPECT_EQ(convert_base(pcm(16, 48000, 2), pcm(16, 48000, 2), {1, 2, 3, 4, 5, 6}, out, &bytes),
              0);
    EXPECT_EQ(out, (Samples{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(bytes, 12u);
    EXPECT_EQ(convert_base(pcm(16, 48000, 1), pcm(16, 48000, 1), {9, 8, 7, 6, 5, 4}, out, nullptr),
              0);
    EXPECT_EQ(out, (Samples{9, 8, 7, 6, 5, 4}));
}

TEST(tnAudioConverterBase, NearestEarlierFrameIsTaken) {
    Samples doubled(8);
    EXPECT_EQ(convert_base(pcm(16, 24000, 2), pcm(16, 48000, 2), {1, 2, 3, 4}, doubled, nullptr),
              0);
    EXPECT_EQ(doubled, (Samples{1, 2, 1, 2, 3, 4, 3, 4}));
    Samples halved(3);
    EXPECT_EQ(
        convert_base(pcm(16, 48000, 1), pcm(16, 24000, 1), {1, 2, 3, 4, 5, 6}, halved, nullptr), 0);
    EXPECT_EQ(halved, (Samples{1, 3, 5}));
    Samples thirds(4);  // positions 0, 1.5, 3, 4.5
    EXPECT_EQ(
        convert_base(pcm(16, 48000, 1), pcm(16, 32000, 1), {1, 2, 3, 4, 5, 6}, thirds, nullptr), 0);
    EXPECT_EQ(thirds, (Samples{1, 2, 4, 5}));
}

TEST(tnAudioConverterBase, PositionIsSinglePrecision) {
    // Frame 300000 of 44100 to 48000: the summed float stands elsewhere than the exact position.
    const std::size_t frames = 300000;
    Samples in(frames);
    for (std::size_t i = 0; i < frames; ++i) in[i] = static_cast<std::int16_t>(i);
    Samples out(frames);
    EXPECT_EQ(convert_base(pcm(16, 44100, 1), pcm(16, 48000, 1), in, out, nullptr), 0);
    const float step = 44100.0f / 48000.0f;
    float position = 0;
    for (std::size_t i = 0; i < frames; ++i, position += step) {
        ASSERT_EQ(out[i], in[static_cast<std::size_t>(position)]);
    }
    EXPECT_NE(static_cast<long long>(position), 300000LL * 44100 / 48000);
}

TEST(tnAudioConverterBase, WiderAudioIsTakenForStereo) {
    Samples out(8, kStale);  // two frames of four channels by its size
    EXPECT_EQ(
        convert_base(pcm(16, 48000, 4), pcm(16, 48000, 4), {1, 2, 3, 4, 5, 6, 7, 8}, out, nullptr),
        0);
    EXPECT_EQ(out, (Samples{1, 2, 3, 4, kStale, kStale, kStale, kStale}));
}

TEST(tnAudioConverterBase, OtherSampleSizesFail) {
    for (const int bits : {8, 24, 32}) {
        Samples out(4, kStale);
        unsigned int bytes = 5;
        EXPECT_EQ(convert_base(pcm(bits, 48000, 2), pcm(bits, 48000, 2), {1, 2, 3, 4}, out, &bytes),
                  -1);
        EXPECT_EQ(out, Samples(4, kStale));
        EXPECT_EQ(bytes, 5u);
    }
}

TEST(tnAudioConverterBase, SampleSizeAndChannelsAreThoseOfTheInput) {
    Samples out(4, kStale);
    EXPECT_EQ(convert_base(pcm(24, 48000, 2), pcm(16, 48000, 2), {1, 2, 3, 4}, out, nullptr), -1);
    EXPECT_EQ(out, Samples(4, kStale));
    EXPECT_EQ(convert_base(pcm(16, 48000, 2), pcm(24, 48000, 2), {1, 2, 3, 4}, out, nullptr), 0);
    EXPECT_EQ(out, (Samples{1, 2, 3, 4}));
    EXPECT_EQ(convert_base(pcm(16, 24000, 1), pcm(16, 48000, 2), {1, 2, 3, 4}, out, nullptr), 0);
    EXPECT_EQ(out, (Samples{1, 1, 2, 2}));
    EXPECT_EQ(convert_base(pcm(16, 24000, 2), pcm(16, 48000, 1), {1, 2, 3, 4}, out, nullptr), 0);
    EXPECT_EQ(out, (Samples{1, 2, 1, 2}));
}

}  // namespace
