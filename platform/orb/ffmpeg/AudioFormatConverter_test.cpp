#include "orb/ffmpeg/AudioFormatConverter.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "orb/CComponentInventory.h"
#include "orb/ffmpeg/audioTestSupport.h"

namespace Quillon::Orb {
namespace {

RObject<CAudioConverter> begun(unsigned int from, unsigned int to, int channels = 2) {
    RObject<CAudioConverter> converter(
        CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance('afc '));
    EXPECT_TRUE(converter);
    const auto input = pcm_properties(from, channels, 48000);
    EXPECT_EQ(converter->SetInputProperties(input.Get()), 0);
    EXPECT_EQ(converter->SetOutputFormat(to), 0);
    EXPECT_EQ(converter->Begin(), 0);
    return converter;
}

/// One block through the converter.
Bytes converted(unsigned int from, unsigned int to, const Bytes& in, int channels = 1) {
    const auto converter = begun(from, to, channels);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(in, 1).Get()), 0);
    return take_bytes(*converter);
}

template <class T>
Bytes bytes_of(const std::vector<T>& values) {
    Bytes bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <class T>
std::vector<T> values_of(const Bytes& bytes) {
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
}

TEST(AudioFormatConverter, IsFoundByItsCode) {
    const RObject<CAudioConverter> converter(
        CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance('afc '));
    ASSERT_TRUE(converter);
    EXPECT_EQ(converter->GetType(), 'afc ');
}

TEST(AudioFormatConverter, NamesTellTheByteOrder) {
    EXPECT_EQ(converted('sowt', 'twos', {0x34, 0x12}), (Bytes{0x12, 0x34}));
    EXPECT_EQ(converted('twos', 'sowt', {0x12, 0x34}), (Bytes{0x34, 0x12}));
    EXPECT_EQ(converted(0x32336C66, 'fl32', {0, 0, 0x80, 0x3F}), (Bytes{0x3F, 0x80, 0, 0}));
    EXPECT_EQ(converted('in32', '23ni', {1, 2, 3, 4}), (Bytes{4, 3, 2, 1}));
    EXPECT_EQ(converted('fl64', '46lf', {1, 2, 3, 4, 5, 6, 7, 8}), (Bytes{8, 7, 6, 5, 4, 3, 2, 1}));
}

TEST(AudioFormatConverter, OneIsFullScaleInEveryFormat) {
    // 0.5 in each format, and the way from each to each.
    const std::pair<unsigned int, Bytes> kHalf[] = {
        {'sowt', {0x00, 0x40}},
        {'twos', {0x40, 0x00}},
        {0x32336C66, {0, 0, 0, 0x3F}},
        {'fl32', {0x3F, 0, 0, 0}},
        {'23ni', {0, 0, 0, 0x40}},
        {'in32', {0x40, 0, 0, 0}},
        {'46lf', {0, 0, 0, 0, 0, 0, 0xE0, 0x3F}},
        {'fl64', {0x3F, 0xE0, 0, 0, 0, 0, 0, 0}},
        {'raw ', {0xC0}},
    };
    for (const auto& [from, in] : kHalf) {
        for (const auto& [to, out] : kHalf) {
            EXPECT_EQ(converted(from, to, in), out) << code_text(from) << " to " << code_text(to);
        }
    }
}

TEST(AudioFormatConverter, EveryIntegerSurvivesTheWayThroughFloat) {
    std::vector<std::int16_t> all(65536);
    for (int i = 0; i < 65536; ++i)
        all[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(i - 32768);
    const Bytes in = bytes_of(all);
    const Bytes middle = converted('sowt', 0x32336C66, in);
    const auto floats = values_of<float>(middle);
    for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(floats[i], all[i] / 32768.0f);
    EXPECT_EQ(converted(0x32336C66, 'sowt', middle), in);
    EXPECT_EQ(converted('fl32', 'twos', converted('sowt', 'fl32', in)),
              converted('sowt', 'twos', in));
}

TEST(AudioFormatConverter, FloatsAreRoundedToTheNearestAndClipped) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> spread(-1.2f, 1.2f);
    std::vector<float> in(10007);
    for (float& value : in) value = spread(random);
    const auto out = values_of<std::int16_t>(converted(0x32336C66, 'sowt', bytes_of(in)));
    ASSERT_EQ(out.size(), in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        const long expected = std::clamp(std::lrint(in[i] * 32768.0), -32768l, 32767l);
        ASSERT_EQ(out[i], expected) << in[i];
    }
}

TEST(AudioFormatConverter, BlocksComeOutOneByOneWithTheirFrames) {
    const auto converter = begun('sowt', 0x32336C66, 2);
    EXPECT_EQ(take_bytes(*converter), Bytes());
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(40), 10).Get()), 0);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(8), 2).Get()), 0);
    RObject<CMediaSample> sample;
    ASSERT_EQ(converter->GetSample(0, sample), 0);
    ASSERT_TRUE(sample && sample->IsType('asmp'));
    EXPECT_EQ(static_cast<CAudioSample&>(*sample).GetLength(), 10);
    EXPECT_EQ(sample->GetTime(), 0);
    EXPECT_EQ(sample->GetDuration(), 10);
    ASSERT_EQ(converter->GetSample(0, sample), 0);
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->GetTime(), 10);
    EXPECT_EQ(sample->GetDuration(), 2);
    ASSERT_EQ(converter->GetSample(0, sample), 0);
    EXPECT_FALSE(sample);
}

TEST(AudioFormatConverter, OutputPropertiesTellTheNewShape) {
    const auto converter = begun('sowt', 'fl32', 6);
    const RObject<CAudioProperties> output(converter->GetOutputProperties(0));
    ASSERT_TRUE(output);
    EXPECT_EQ(output->GetFormat(), 'fl32');
    EXPECT_EQ(output->GetBitsPerSample(), 32);
    EXPECT_EQ(output->GetBytesPerPacket(), 24);
    EXPECT_EQ(output->GetChannels(), 6);
    EXPECT_EQ(output->GetSampleRate(), 48000);
}

TEST(AudioFormatConverter, TornFrameAtTheEndIsLeftOut) {
    EXPECT_EQ(converted('sowt', 'twos', {1, 2, 3, 4, 5, 6}, 2), (Bytes{2, 1, 4, 3}));
    EXPECT_EQ(converted('sowt', 'twos', {}, 2), Bytes());
}

TEST(AudioFormatConverter, RefusesWhatItDoesNotKnow) {
    RObject<CAudioConverter> converter(new AudioFormatConverter);
    EXPECT_EQ(converter->Begin(), ResultNullPointer::kCode);
    EXPECT_EQ(converter->SetOutputFormat('mp4a'), ResultNotSupported::kCode);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties('in24', 2, 48000).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties('sowt', 0, 48000).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(4), 1).Get()), ResultError::kCode);
}

TEST(AudioFormatConverter, SampleWithoutDataIsAFailure) {
    const auto converter = begun('sowt', 'twos');
    const RObject<CAudioSample> empty(new CAudioSample(3));
    EXPECT_EQ(converter->PutSample(0, empty.Get()), ResultNullPointer::kCode);
    EXPECT_EQ(converter->PutSample(0, unreachable_sound().Get()), ResultNullPointer::kCode);
    EXPECT_EQ(converter->PutSample(0, nullptr), 0);
    EXPECT_EQ(converter->End(), 0);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(4), 1).Get()), ResultError::kCode);
    EXPECT_EQ(converter->Begin(), 0);  // can begin again
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(4), 1).Get()), 0);
}

}  // namespace
}  // namespace Quillon::Orb
