#include "orb/ffmpeg/AudioRateConverter.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>
#include <random>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CComponentInventory.h"
#include "orb/ffmpeg/audioTestSupport.h"
#include "orb/testMemory.h"
#include "orb/testSupport.h"

namespace Quillon::Orb {
namespace {

constexpr unsigned int kFloat = CAudioProperties::kFloat32Little;

RObject<CAudioConverter> prepared(int inputRate, int outputRate, unsigned int from = kFloat,
                                  int channels = 1) {
    RObject<CAudioConverter> converter(
        CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance('asrc'));
    EXPECT_TRUE(converter);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties(from, channels, inputRate).Get()), 0);
    EXPECT_EQ(converter->SetProperty(CodeBookProperty::AudioConverter::SampleRate, outputRate), 0);
    return converter;
}

RObject<CAudioConverter> begun(int inputRate, int outputRate, unsigned int from = kFloat,
                               int channels = 1, unsigned int to = 0) {
    RObject<CAudioConverter> converter = prepared(inputRate, outputRate, from, channels);
    if (to != 0) {
        EXPECT_EQ(converter->SetOutputFormat(to), 0);
    }
    EXPECT_EQ(converter->Begin(), 0);
    return converter;
}

void append_ready(CAudioFilter& filter, Bytes& out) {
    for (Bytes block = take_bytes(filter); !block.empty(); block = take_bytes(filter)) {
        out.insert(out.end(), block.begin(), block.end());
    }
}

/// Everything that comes out for `in` in blocks of `blockBytes`, the rest drained.
Bytes converted(CAudioFilter& filter, const Bytes& in, std::size_t blockBytes) {
    Bytes out;
    put_in_blocks(filter, in, blockBytes, [&] { append_ready(filter, out); });
    return out;
}

Bytes tone(double hertz, int rate, int frames, double amplitude = 0.5) {
    std::vector<float> samples(static_cast<std::size_t>(frames));
    for (int i = 0; i < frames; ++i) {
        samples[static_cast<std::size_t>(i)] =
            static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hertz * i / rate));
    }
    Bytes bytes(samples.size() * sizeof(float));
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

std::vector<double> middle_of(const Bytes& bytes) {
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), bytes.size());
    const std::size_t edge = samples.size() / 5;  // the filter's own way in and out
    return {samples.begin() + static_cast<long>(edge), samples.end() - static_cast<long>(edge)};
}

double power(const std::vector<double>& samples) {
    double sum = 0;
    for (const double sample : samples) sum += sample * sample;
    return sum / static_cast<double>(samples.size());
}

/// What is left of `samples` when the tone of that frequency is taken out by least squares.
std::vector<double> without_tone(std::vector<double> samples, double hertz, int rate) {
    double cc = 0, ss = 0, cs = 0, xc = 0, xs = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate;
        const double c = std::cos(phase);
        const double s = std::sin(phase);
        cc += c * c, ss += s * s, cs += c * s, xc += samples[i] * c, xs += samples[i] * s;
    }
    const double determinant = cc * ss - cs * cs;
    const double a = (xc * ss - xs * cs) / determinant;
    const double b = (xs * cc - xc * cs) / determinant;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate;
        samples[i] -= a * std::cos(phase) + b * std::sin(phase);
    }
    return samples;
}

struct Rates {
    int fIn;
    int fOut;
};

constexpr Rates kRates[] = {{44100, 48000}, {48000, 44100},  {96000, 48000}, {48000, 96000},
                            {32000, 48000}, {48000, 32000},  {22050, 48000}, {8000, 48000},
                            {48000, 8000},  {192000, 48000}, {47952, 48000}, {11025, 44100}};

TEST(AudioRateConverter, IsFoundByItsCode) {
    const RObject<CAudioConverter> converter(
        CComponentInventory<CComponentFactory<CAudioConverter>>::CreateInstance('asrc'));
    ASSERT_TRUE(converter);
    EXPECT_EQ(converter->GetType(), 'asrc');
}

TEST(AudioRateConverter, ImagesLieBelow120dB) {
    struct Tone {
        Rates fRates;
        double fHertz;
    };
    constexpr Tone kTones[] = {
        {{44100, 48000}, 997},   {{44100, 48000}, 9973},  {{44100, 48000}, 19000},
        {{48000, 44100}, 997},   {{48000, 44100}, 18000}, {{96000, 48000}, 15013},
        {{48000, 96000}, 20011}, {{32000, 48000}, 11003}, {{48000, 32000}, 9001},
        {{8000, 48000}, 3001},
    };
    for (const Tone& test : kTones) {
        const auto converter = begun(test.fRates.fIn, test.fRates.fOut);
        const Bytes out =
            converted(*converter, tone(test.fHertz, test.fRates.fIn, test.fRates.fIn), 4096);
        const auto whole = middle_of(out);
        const auto rest = without_tone(whole, test.fHertz, test.fRates.fOut);
        const double decibels = 10.0 * std::log10(power(rest) / power(whole));
        EXPECT_LT(decibels, -120.0)
            << test.fHertz << " Hz, " << test.fRates.fIn << " to " << test.fRates.fOut;
        EXPECT_NEAR(10.0 * std::log10(power(whole) / 0.125), 0.0, 0.01);
    }
}

TEST(AudioRateConverter, TonesAboveTheNewBandAreGone) {
    const auto converter = begun(96000, 48000);
    const auto rest = middle_of(converted(*converter, tone(30000, 96000, 96000), 4096));
    EXPECT_LT(10.0 * std::log10(power(rest) / 0.125), -120.0);
}

TEST(AudioRateConverter, BlockingChangesNothing) {
    // The same stream in one piece, in even blocks and in random ones: the same bytes.
    std::mt19937 random(3);
    for (const Rates& rates : kRates) {
        SCOPED_TRACE(testing::Message() << rates.fIn << " to " << rates.fOut);
        const Bytes in = tone(440, rates.fIn, rates.fIn / 2);
        const Bytes whole = converted(*begun(rates.fIn, rates.fOut), in, in.size());
        EXPECT_EQ(converted(*begun(rates.fIn, rates.fOut), in, 4 * 480), whole);
        EXPECT_EQ(converted(*begun(rates.fIn, rates.fOut), in, 4 * 37), whole);
        EXPECT_EQ(whole.size() / 4,
                  static_cast<std::size_t>(
                      std::llround(static_cast<double>(in.size() / 4) * rates.fOut / rates.fIn)));
        const auto converter = begun(rates.fIn, rates.fOut);
        Bytes out;
        for (std::size_t at = 0; at < in.size();) {
            const std::size_t length =
                std::min<std::size_t>(4 * (1 + random() % 3000), in.size() - at);
            EXPECT_EQ(converter->PutSample(0, pcm_sample(in.data() + at, length, 1).Get()), 0);
            append_ready(*converter, out);
            at += length;
        }
        EXPECT_EQ(converter->End(), 0);  // End drains as a null sample does
        append_ready(*converter, out);
        EXPECT_EQ(out, whole);
    }
}

TEST(AudioRateConverter, EveryBlockGivesItsLengthOnceTheFilterIsFilled) {
    for (const Rates& rates : kRates) {
        for (const int milliseconds : {5, 10, 33}) {
            SCOPED_TRACE(testing::Message()
                         << rates.fIn << " to " << rates.fOut << ", " << milliseconds << " ms");
            const auto converter = begun(rates.fIn, rates.fOut);
            const int heldBack = static_cast<AudioRateConverter&>(*converter).GetHeldBackFrames();
            const int frames = rates.fIn * milliseconds / 1000;
            const Bytes block(static_cast<std::size_t>(frames) * 4);
            long long in = 0;
            long long out = 0;
            for (int i = 0; i < 20000 / milliseconds; ++i) {
                ASSERT_EQ(converter->PutSample(0, pcm_sample(block, frames).Get()), 0);
                in += frames;
                const long long due =
                    std::max<long long>(in * rates.fOut / rates.fIn - heldBack, 0) - out;
                const long long given = static_cast<long long>(take_bytes(*converter).size() / 4);
                ASSERT_EQ(given, due) << "block " << i;
                out += given;
                ASSERT_EQ(take_bytes(*converter).size(), 0u);
            }
        }
    }
}

TEST(AudioRateConverter, KeepsSome20msBackAtTheUsualRates) {
    for (const Rates& rates : {Rates{44100, 48000}, Rates{48000, 44100}, Rates{96000, 48000}}) {
        const auto converter = begun(rates.fIn, rates.fOut);
        const int heldBack = static_cast<AudioRateConverter&>(*converter).GetHeldBackFrames();
        EXPECT_GT(heldBack, rates.fOut / 100);
        EXPECT_LT(heldBack, rates.fOut / 40);
    }
}

TEST(AudioRateConverter, FirstFrameOutIsTheFirstFrameIn) {
    // A click in the middle of silence stands at its time.
    Bytes in(4 * 44100);
    const float click = 1.0f;
    std::memcpy(in.data() + std::size_t{4} * 22050, &click, 4);
    const Bytes out = converted(*begun(44100, 48000), in, 4 * 441);
    std::vector<float> samples(out.size() / 4);
    std::memcpy(samples.data(), out.data(), out.size());
    const auto peak = std::max_element(samples.begin(), samples.end());
    EXPECT_EQ(peak - samples.begin(), 24000);
}

TEST(AudioRateConverter, AllFormatsGiveTheSameSound) {
    std::vector<std::int16_t> samples(2 * 9600);
    std::mt19937 random(1);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<std::int16_t>(10000 * std::sin(static_cast<double>(i) / 20)) +
                     static_cast<std::int16_t>(random() % 100);
    }
    Bytes little(samples.size() * 2);
    std::memcpy(little.data(), samples.data(), little.size());
    Bytes big(little.size());
    for (std::size_t i = 0; i < little.size(); ++i) big[i] = little[i ^ 1];

    const Bytes out = converted(*begun(48000, 44100, 'sowt', 2), little, 4 * 480);
    EXPECT_EQ(out.size(), std::size_t{4} * 8820);
    const Bytes swapped = converted(*begun(48000, 44100, 'twos', 2), big, 4 * 480);
    ASSERT_EQ(swapped.size(), out.size());
    for (std::size_t i = 0; i < out.size(); ++i) ASSERT_EQ(swapped[i], out[i ^ 1]);
    EXPECT_EQ(converted(*begun(48000, 44100, 'twos', 2, 'sowt'), big, 4 * 480), out);

    const Bytes floats = converted(*begun(48000, 44100, 'sowt', 2, kFloat), little, 4 * 480);
    ASSERT_EQ(floats.size(), out.size() * 2);
    for (std::size_t i = 0; i < out.size() / 2; ++i) {
        float value = 0;
        std::int16_t integer = 0;
        std::memcpy(&value, floats.data() + i * 4, 4);
        std::memcpy(&integer, out.data() + i * 2, 2);
        ASSERT_NEAR(value * 32768.0f, integer, 0.51f);
    }
    for (const unsigned int to : {'fl32', 'in32', '23ni', 'fl64', '46lf'}) {
        const std::size_t sampleBytes = to == 'fl64' || to == '46lf' ? 8 : 4;
        EXPECT_EQ(converted(*begun(48000, 44100, 'sowt', 2, to), little, 4 * 480).size(),
                  out.size() / 2 * sampleBytes);
    }
}

TEST(AudioRateConverter, SilenceStaysSilence) {
    const Bytes out = converted(*begun(44100, 48000, 'sowt', 2), Bytes(4 * 44100), 4 * 441);
    EXPECT_EQ(out, Bytes(std::size_t{4} * 48000));
}

TEST(AudioRateConverter, EqualRatesPassTheSoundThrough) {
    const Bytes in = tone(1000, 48000, 48000);
    const auto converter = begun(48000, 48000);
    const Bytes out = converted(*converter, in, 4 * 480);
    ASSERT_EQ(out.size(), in.size());
    for (std::size_t i = 0; i < in.size() / 4; ++i) {
        float a = 0;
        float b = 0;
        std::memcpy(&a, in.data() + 4 * i, 4);
        std::memcpy(&b, out.data() + 4 * i, 4);
        ASSERT_NEAR(a, b, 1e-6f);
    }
}

TEST(AudioRateConverter, OutputPropertiesTellTheNewShape) {
    const auto converter = begun(44100, 48000, 'sowt', 2, kFloat);
    const RObject<CAudioProperties> output(converter->GetOutputProperties(0));
    ASSERT_TRUE(output);
    EXPECT_EQ(output->GetSampleRate(), 48000);
    EXPECT_EQ(output->GetTimescale(), 48000);
    EXPECT_EQ(output->GetFormat(), kFloat);
    EXPECT_EQ(output->GetBitsPerSample(), 32);
    EXPECT_EQ(output->GetBytesPerPacket(), 8);
    EXPECT_EQ(output->GetChannels(), 2);
}

TEST(AudioRateConverter, SamplesTellTheirPlace) {
    const auto converter = begun(44100, 48000);
    long long next = 0;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(converter->PutSample(0, pcm_sample(Bytes(4 * 441), 441).Get()), 0);
        RObject<CMediaSample> sample;
        ASSERT_EQ(converter->GetSample(0, sample), 0);
        if (!sample) continue;
        EXPECT_EQ(sample->GetTime(), next);
        EXPECT_EQ(sample->GetDuration(), static_cast<CAudioSample&>(*sample).GetLength());
        next += sample->GetDuration();
    }
    EXPECT_GT(next, 7000);
}

TEST(AudioRateConverter, EmptyStreamDrainsToNothing) {
    const auto converter = begun(44100, 48000);
    EXPECT_EQ(converter->PutSample(0, nullptr), 0);
    EXPECT_EQ(take_bytes(*converter), Bytes());
    EXPECT_EQ(converter->End(), 0);
    EXPECT_EQ(take_bytes(*converter), Bytes());
}

TEST(AudioRateConverter, AnotherStreamStartsAfresh) {
    const Bytes in = tone(440, 44100, 10000);
    const auto converter = begun(44100, 48000);
    const Bytes first = converted(*converter, in, 4 * 441);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(in, 10000).Get()), ResultError::kCode);
    EXPECT_EQ(converter->Begin(), 0);
    EXPECT_EQ(converted(*converter, in, 4 * 441), first);
    EXPECT_EQ(converter->Begin(), 0);
    ASSERT_EQ(converter->PutSample(0, pcm_sample(in, 10000).Get()), 0);
    EXPECT_EQ(converter->Begin(), 0);  // in the middle: what was held is dropped
    EXPECT_EQ(converted(*converter, in, 4 * 441), first);
}

TEST(AudioRateConverter, RefusesWhatItDoesNotKnow) {
    RObject<CAudioConverter> converter(new AudioRateConverter);
    EXPECT_EQ(converter->Begin(), ResultNullPointer::kCode);
    EXPECT_EQ(converter->PutSample(0, pcm_sample(Bytes(4), 1).Get()), ResultError::kCode);
    EXPECT_EQ(converter->SetOutputFormat('raw '), ResultNotSupported::kCode);
    EXPECT_LT(converter->SetProperty(CodeBookProperty::AudioConverter::SampleRate, 0), 0);
    EXPECT_LT(converter->SetProperty(CodeBookProperty::AudioConverter::SampleRate, -48000), 0);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties('mp4a', 2, 48000).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties('sowt', 0, 48000).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(converter->SetInputProperties(pcm_properties('sowt', 2, 0).Get()), 0);
    EXPECT_EQ(converter->Begin(), ResultNotSupported::kCode);
    const auto ready = begun(44100, 48000);
    EXPECT_EQ(ready->PutSample(0, RObject<CAudioSample>(new CAudioSample(1)).Get()),
              ResultNullPointer::kCode);
    EXPECT_EQ(ready->PutSample(0, unreachable_sound().Get()), ResultNullPointer::kCode);
}

TEST(AudioRateConverter, RefusesRatesThatAreTooFarApart) {
    for (const Rates& rates : {Rates{1, 48000}, Rates{1, 6144000}, Rates{46, 48000},
                               Rates{48000, 1}, Rates{48000, 46}}) {
        SCOPED_TRACE(testing::Message() << rates.fIn << " to " << rates.fOut);
        TraceCatcher trace;
        EXPECT_EQ(prepared(rates.fIn, rates.fOut)->Begin(), ResultNotSupported::kCode);
        EXPECT_TRUE(trace.HasLineWith({"'asrc'", "Hz"}));
    }
    EXPECT_EQ(prepared(48000, 48)->Begin(), 0);
    EXPECT_EQ(prepared(8000, 768000)->Begin(), 0);
}

#ifdef ORB_OWN_BLOCKS
TEST(AudioRateConverter, GoesOnBehindABlockForWhichThereIsNoMemory) {
    // Blocks that grow want more room for what is kept of them, time and again.
    const int sizes[] = {10, 400, 1000, 3000, 10, 9000, 30000, 100};
    bool failed = true;
    for (int left = 0; failed; ++left) {
        BlockPool::Shared().Trim();
        const auto converter = begun(44100, 48000);
        gBlocksLeft = left;
        failed = false;
        for (const int frames : sizes) {
            const Result put =
                converter->PutSample(0, pcm_sample(tone(440, 44100, frames), frames).Get());
            EXPECT_TRUE(put == 0 || put == ResultOutOfMemory::kCode) << put;
            failed = failed || put.Failed();
        }
        failed = failed || gBlocksLeft < 0;
        gBlocksLeft = -1;
        EXPECT_EQ(converter->PutSample(0, nullptr), 0) << left;
    }
}
#endif

}  // namespace
}  // namespace Quillon::Orb
