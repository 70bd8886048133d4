#include "tarn/audio/tnAudioConverter_orb.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <numbers>
#include <vector>

#include "orb/CAudioConverter.h"
#include "orb/CComponentInventory.h"
#include "tarn/audio/testPcm.h"

#include "tests/support/TraceKeeper.h"

using namespace Quillon::Orb;

namespace {

using Samples = std::vector<std::int16_t>;
using Inventory = CComponentInventory<CComponentFactory<CAudioConverter>>;

constexpr std::int16_t kStale = 0x5A5A;

std::unique_ptr<tnAudioConverter> made(const tnMediaRecord& input, const tnMediaRecord& output) {
    std::unique_ptr<tnAudioConverter> converter(tnAudioConverter::Factory());
    EXPECT_EQ(converter->Init(input, output), 0);
    return converter;
}

struct Converted {
    int fResult = 0;
    unsigned int fFrames = 4711;
    unsigned int fBytes = 4712;
    Samples fOut;
};

/// Converts with room for `capacity` bytes; mixBytes follows the input unless it is given.
Converted convert(tnAudioConverter& converter, const Samples& in, unsigned int capacity,
                  int mixBytes = -1) {
    Converted converted;
    converted.fOut.assign(capacity / 2 + 8, kStale);
    Samples copy(in);
    const auto inBytes = static_cast<unsigned int>(in.size() * 2);
    converted.fResult =
        converter.Convert(copy.data(), converted.fOut.data(), inBytes,
                          mixBytes < 0 ? inBytes : static_cast<unsigned int>(mixBytes), capacity,
                          &converted.fFrames, &converted.fBytes);
    for (std::size_t i = capacity / 2; i < converted.fOut.size(); ++i) {
        EXPECT_EQ(converted.fOut[i], kStale) << "written past the end";
    }
    converted.fOut.resize(capacity / 2);
    return converted;
}

Samples head(const Samples& samples, std::size_t count) {
    return {samples.begin(), samples.begin() + static_cast<long>(count)};
}

// Which pairs of formats there is a way between.

TEST(tnAudioConverter_orb, InitRefusesWhatNoStageCanDo) {
    struct Pair {
        const char* fWhat;
        tnMediaRecord fInput;
        tnMediaRecord fOutput;
        int fResult;
    };
    const Pair kPairs[] = {
        {"equal", pcm(16, 48000, 2), pcm(16, 48000, 2), 0},
        {"equal at 24 bits: no stage", pcm(24, 48000, 2), pcm(24, 48000, 2), 0},
        {"32 to 16 bits", pcm(32, 48000, 2), pcm(16, 48000, 2), 0},
        {"16 to 32 bits", pcm(16, 48000, 2), pcm(32, 48000, 2), 0},
        {"16 to 24 bits", pcm(16, 48000, 2), pcm(24, 48000, 2), -1},
        {"24 to 16 bits", pcm(24, 48000, 2), pcm(16, 48000, 2), -1},
        {"both filters", pcm(32, 44100, 2), pcm(16, 48000, 2), 0},
        {"rate at 24 bits", pcm(24, 44100, 2), pcm(24, 48000, 2), -1},
        {"stereo to mono", pcm(16, 48000, 2), pcm(16, 48000, 1), 0},
        {"six to stereo", pcm(16, 48000, 6), pcm(16, 48000, 2), 0},
        {"mono to stereo", pcm(16, 48000, 1), pcm(16, 48000, 2), 0},
        {"mono to six", pcm(16, 48000, 1), pcm(16, 48000, 6), 0},
        {"stereo to six", pcm(16, 48000, 2), pcm(16, 48000, 6), -1},
        {"stereo to mono at 32 bits", pcm(32, 48000, 2), pcm(32, 48000, 1), -1},
        {"stereo to mono, ending at 32 bits", pcm(16, 48000, 2), pcm(32, 48000, 1), -1},
        {"stereo to mono, ending at 16 bits", pcm(32, 48000, 2), pcm(16, 48000, 1), 0},
        {"no rate to come from", pcm(16, 0, 2), pcm(16, 48000, 2), -1},
    };
    for (const Pair& pair : kPairs) {
        const std::unique_ptr<tnAudioConverter> converter(tnAudioConverter::Factory());
        EXPECT_EQ(converter->Init(pair.fInput, pair.fOutput), pair.fResult) << pair.fWhat;
    }
}

// The channel stage alone.

TEST(tnAudioConverter_orb, EqualFormatsCopyTheFirstTwoChannels) {
    const auto stereo = convert(*made(pcm(16, 48000, 2), pcm(16, 48000, 2)), {1, 2, 3, 4}, 8);
    EXPECT_EQ(stereo.fResult, 0);
    EXPECT_EQ(stereo.fOut, (Samples{1, 2, 3, 4}));
    EXPECT_EQ(stereo.fFrames, 2u);
    EXPECT_EQ(stereo.fBytes, 8u);
    const auto mono = convert(*made(pcm(16, 48000, 1), pcm(16, 48000, 1)), {-1, -32768, 32767}, 6);
    EXPECT_EQ(mono.fOut, (Samples{-1, -32768, 32767}));
    EXPECT_EQ(mono.fFrames, 3u);
    // Of four channels the first two are laid out frame by frame; the length told is that of four.
    const auto four =
        convert(*made(pcm(16, 48000, 4), pcm(16, 48000, 4)), {1, 2, 3, 4, 5, 6, 7, 8}, 16);
    EXPECT_EQ(four.fResult, 0);
    EXPECT_EQ(head(four.fOut, 4), (Samples{1, 2, 5, 6}));
    EXPECT_EQ(four.fBytes, 16u);
    EXPECT_EQ(four.fFrames, 2u);
}

TEST(tnAudioConverter_orb, MonoIsTheMeanOfTwoTowardZero) {
    const auto converter = made(pcm(16, 48000, 2), pcm(16, 48000, 1));
    const auto mixed = convert(*converter, {32767, 32767, -1, 0, -32768, -32768, 1, 2, 5, -8}, 10);
    EXPECT_EQ(mixed.fResult, 0);
    EXPECT_EQ(mixed.fOut, (Samples{32767, 0, -32768, 1, -1}));
    EXPECT_EQ(mixed.fFrames, 5u);
    EXPECT_EQ(mixed.fBytes, 10u);
    const auto wide =
        convert(*made(pcm(16, 48000, 4), pcm(16, 48000, 1)), {10, 20, 99, 99, 30, 50, 99, 99}, 4);
    EXPECT_EQ(wide.fOut, (Samples{15, 40}));
}

TEST(tnAudioConverter_orb, StereoIsTheFirstTwoOfMany) {
    const auto mixed = convert(*made(pcm(16, 48000, 6), pcm(16, 48000, 2)),
                               {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, 8);
    EXPECT_EQ(mixed.fResult, 0);
    EXPECT_EQ(mixed.fOut, (Samples{1, 2, 7, 8}));
    EXPECT_EQ(mixed.fFrames, 2u);
    // There are never more than two samples a frame, however many channels were asked for.
    const auto wide = convert(*made(pcm(16, 48000, 6), pcm(16, 48000, 4)), {1, 2, 3, 4, 5, 6}, 8);
    EXPECT_EQ(head(wide.fOut, 2), (Samples{1, 2}));
    EXPECT_EQ(wide.fBytes, 8u);
}

TEST(tnAudioConverter_orb, MonoIsLaidOutAsItWas) {
    const auto mixed = convert(*made(pcm(16, 48000, 1), pcm(16, 48000, 2)), {1, 2, 3}, 12);
    EXPECT_EQ(mixed.fResult, 0);
    EXPECT_EQ(head(mixed.fOut, 3), (Samples{1, 2, 3}));
    EXPECT_EQ(mixed.fOut[3], kStale);  // not spread, nothing written behind
    EXPECT_EQ(mixed.fBytes, 12u);
    EXPECT_EQ(mixed.fFrames, 3u);
}

TEST(tnAudioConverter_orb, MixedLengthFollowsMixBytesAndToldLengthTheInput) {
    const auto converter = made(pcm(16, 48000, 2), pcm(16, 48000, 1));
    const Samples in{2, 4, 6, 8, 10, 12};
    const auto mixed = convert(*converter, in, 6, 4);  // one frame is mixed, three are told
    EXPECT_EQ(mixed.fResult, 0);
    EXPECT_EQ(mixed.fOut, (Samples{3, kStale, kStale}));
    EXPECT_EQ(mixed.fFrames, 3u);
    EXPECT_EQ(mixed.fBytes, 6u);
    const auto none =
        convert(*converter, in, 6, 2);  // less than a frame: nothing written, no failure
    EXPECT_EQ(none.fResult, 0);
    EXPECT_EQ(none.fOut, Samples(3, kStale));
    EXPECT_EQ(none.fBytes, 6u);
}

TEST(tnAudioConverter_orb, CountersMayBeNull) {
    const auto converter = made(pcm(16, 48000, 2), pcm(16, 48000, 2));
    Samples in{1, 2};
    Samples out(2);
    EXPECT_EQ(converter->Convert(in.data(), out.data(), 4, 4, 4, nullptr, nullptr), 0);
    EXPECT_EQ(out, in);
}

TEST(tnAudioConverter_orb, FailuresOfTheChannelStageSilenceTheOutput) {
    struct Failure {
        const char* fWhat;
        tnMediaRecord fInput;
        tnMediaRecord fOutput;
        std::size_t fInSamples;
        unsigned int fCapacity;
        int fMixBytes;
        bool fTold;  // the counters were stored before it failed
    };
    const Failure kFailures[] = {
        {"too little room", pcm(16, 48000, 2), pcm(16, 48000, 2), 4, 6, -1, false},
        {"nothing in", pcm(16, 48000, 2), pcm(16, 48000, 2), 0, 8, -1, false},
        {"too little in", pcm(16, 48000, 6), pcm(16, 48000, 2), 1, 8, -1, false},
        {"equal at 32 bits", pcm(32, 48000, 2), pcm(32, 48000, 2), 4, 8, -1, true},
        {"more to mix than fits", pcm(16, 48000, 2), pcm(16, 48000, 1), 4, 4, 10, true},
    };
    for (const Failure& failure : kFailures) {
        SCOPED_TRACE(failure.fWhat);
        const auto converter = made(failure.fInput, failure.fOutput);
        const auto failed = convert(*converter, Samples(failure.fInSamples, 7), failure.fCapacity,
                                    failure.fMixBytes);
        EXPECT_EQ(failed.fResult, -1);
        EXPECT_EQ(failed.fOut, Samples(failure.fCapacity / 2, 0));
        EXPECT_EQ(failed.fBytes == 4712, !failure.fTold);
        EXPECT_EQ(failed.fFrames == 4711, !failure.fTold);
    }
}

TEST(tnAudioConverter_orb, FormatsWithoutAFrameAreSilence) {
    struct Pair {
        const char* fWhat;
        tnMediaRecord fInput;
        tnMediaRecord fOutput;
        int fInit;
    };
    const Pair kPairs[] = {
        {"no channels to come from", pcm(16, 48000, 0), pcm(16, 48000, 2), -1},
        {"no channels to go to", pcm(16, 48000, 2), pcm(16, 48000, 0), 0},
        {"no channels at all", pcm(16, 48000, 0), pcm(16, 48000, 0), 0},
        {"no channels, another size", pcm(32, 48000, 0), pcm(16, 48000, 0), -1},
        {"no channels, another rate", pcm(16, 44100, 0), pcm(16, 48000, 0), -1},
        {"size and channels, to none", pcm(32, 48000, 2), pcm(16, 48000, 0), 0},
        {"rate and channels, to none", pcm(16, 96000, 2), pcm(16, 48000, 0), 0},
        {"samples of no bits", pcm(0, 48000, 2), pcm(0, 48000, 2), 0},
        {"samples of less than a byte", pcm(4, 48000, 2), pcm(4, 48000, 2), 0},
        {"channels below none", pcm(16, 48000, -1), pcm(16, 48000, 2), 0},
        {"to channels below none", pcm(32, 48000, 1), pcm(16, 48000, -1), 0},
        {"channels whose bytes wrap", pcm(32, 48000, INT_MIN), pcm(16, 48000, INT_MIN), -1},
    };
    for (const Pair& pair : kPairs) {
        SCOPED_TRACE(pair.fWhat);
        const std::unique_ptr<tnAudioConverter> converter(tnAudioConverter::Factory());
        EXPECT_EQ(converter->Init(pair.fInput, pair.fOutput), pair.fInit);
        for (int block = 0; block < 3; ++block) {
            const auto failed = convert(*converter, Samples(100, 7), 1000);
            EXPECT_EQ(failed.fResult, -1);
            EXPECT_EQ(failed.fOut, Samples(500, 0));
            EXPECT_EQ(failed.fBytes, 4712u);
            EXPECT_EQ(failed.fFrames, 4711u);
        }
    }
    // So many channels that their bytes wrap to none: a block holds no frame of them.
    tnAudioConverter_orb converter;
    EXPECT_EQ(converter.Init(pcm(16, 48000, INT_MIN), pcm(16, 48000, -1)), -1);
    EXPECT_EQ(convert(converter, Samples(100, 7), 1000).fOut, Samples(500, kStale));
}

// The filters.

Samples as_samples(const std::vector<float>& floats) {
    Samples samples(floats.size() * 2);
    std::memcpy(samples.data(), floats.data(), floats.size() * 4);
    return samples;
}

TEST(tnAudioConverter_orb, SampleSizeChangesThereAndBack) {
    const auto down = convert(*made(pcm(32, 48000, 2), pcm(16, 48000, 2)),
                              as_samples({0.5f, -0.5f, 1.0f, -1.0f}), 8);
    EXPECT_EQ(down.fResult, 0);
    EXPECT_EQ(down.fOut, (Samples{16384, -16384, 32767, -32768}));
    EXPECT_EQ(down.fFrames, 2u);
    EXPECT_EQ(down.fBytes, 8u);
    const auto up = convert(*made(pcm(16, 48000, 2), pcm(32, 48000, 2)), {16384, -16384}, 8);
    EXPECT_EQ(up.fOut, as_samples({0.5f, -0.5f}));
    EXPECT_EQ(up.fFrames, 1u);
    EXPECT_EQ(up.fBytes, 8u);
}

TEST(tnAudioConverter_orb, SizeAndChannelsChangeTogether) {
    const auto mixed = convert(*made(pcm(32, 48000, 2), pcm(16, 48000, 1)),
                               as_samples({0.5f, 0.25f, -0.5f, -0.25f}), 8);
    EXPECT_EQ(mixed.fResult, 0);
    EXPECT_EQ(head(mixed.fOut, 2), (Samples{12288, -12288}));
    EXPECT_EQ(mixed.fBytes, 4u);
    EXPECT_EQ(mixed.fFrames, 2u);
}

TEST(tnAudioConverter_orb, ToldLengthFollowsAnyRatioOfTheChannels) {
    // Three channels to two: two frames of 16 bits are 12 bytes, of which two thirds are told.
    const auto two = convert(*made(pcm(32, 48000, 3), pcm(16, 48000, 2)),
                             as_samples({0.5f, -0.5f, 1.0f, 0.25f, -0.25f, 1.0f}), 16);
    EXPECT_EQ(two.fResult, 0);
    EXPECT_EQ(two.fBytes, 8u);
    EXPECT_EQ(two.fFrames, 2u);
    EXPECT_EQ(head(two.fOut, 4), (Samples{16384, -16384, 8192, -8192}));
    // Mono to stereo: as many samples as before are laid out, twice as many are told.
    const auto wide =
        convert(*made(pcm(32, 48000, 1), pcm(16, 48000, 2)), as_samples({0.5f, -0.5f, 0.25f}), 12);
    EXPECT_EQ(wide.fResult, 0);
    EXPECT_EQ(wide.fBytes, 12u);
    EXPECT_EQ(wide.fFrames, 3u);
    EXPECT_EQ(wide.fOut, (Samples{16384, -16384, 8192, kStale, kStale, kStale}));
    const auto tight =
        convert(*made(pcm(32, 48000, 1), pcm(16, 48000, 2)), as_samples({0.5f, -0.5f, 0.25f}), 10);
    EXPECT_EQ(tight.fResult, -1) << "what is told does not fit";
}

TEST(tnAudioConverter_orb, ToldLengthIsThatOfTheRatioInDoublesCutToWholeBytes) {
    // The ratio is rounded before it divides: what would be whole in integers may be a byte short,
    // and then the last frame is not told.
    struct Block {
        int fInChannels;
        int fOutChannels;
        std::size_t fInFrames;
        unsigned int fBytes;
        unsigned int fFrames;
    };
    constexpr Block kBlocks[] = {
        {7, 3, 1, 6, 1}, {7, 5, 1, 10, 1}, {7, 3, 5, 29, 4}, {9, 7, 1, 13, 0}, {11, 5, 3, 29, 2},
    };
    for (const Block& block : kBlocks) {
        SCOPED_TRACE(testing::Message() << block.fInChannels << " to " << block.fOutChannels);
        const std::vector<float> in(block.fInFrames * static_cast<std::size_t>(block.fInChannels));
        const auto mixed =
            convert(*made(pcm(32, 48000, block.fInChannels), pcm(16, 48000, block.fOutChannels)),
                    as_samples(in), 64);
        EXPECT_EQ(mixed.fResult, 0);
        EXPECT_EQ(mixed.fBytes, block.fBytes);
        EXPECT_EQ(mixed.fFrames, block.fFrames);
    }
}

TEST(tnAudioConverter_orb, SizeAndRateChangeTogetherWithoutALostFrame) {
    // A float tone at 44100 Hz comes out as a 16-bit tone at 48000 Hz, joined over all blocks.
    const auto converter = made(pcm(32, 44100, 2), pcm(16, 48000, 2));
    Samples all;
    constexpr int kBlock = 441;
    for (int block = 0; block < 200; ++block) {
        std::vector<float> in;
        for (int i = 0; i < kBlock; ++i) {
            const double phase = 2 * std::numbers::pi * 1000.0 * (block * kBlock + i) / 44100;
            in.push_back(static_cast<float>(0.5 * std::sin(phase)));
            in.push_back(static_cast<float>(0.5 * std::cos(phase)));
        }
        const auto out = convert(*converter, as_samples(in), 4 * 600);
        if (out.fResult != 0) {
            EXPECT_LT(block, 3);  // while the rate filter fills
            EXPECT_EQ(out.fOut, Samples(2 * 600, 0));
            continue;
        }
        EXPECT_EQ(out.fBytes, out.fFrames * 4);
        EXPECT_LE(out.fFrames, 481u);
        all.insert(all.end(), out.fOut.begin(),
                   out.fOut.begin() + static_cast<long>(out.fBytes / 2));
    }
    ASSERT_GT(all.size(), std::size_t{2} * (200 - 3) * 480);
    for (std::size_t frame = 500; frame < all.size() / 2; ++frame) {
        const double phase = 2 * std::numbers::pi * 1000.0 * static_cast<double>(frame) / 48000;
        ASSERT_NEAR(all[2 * frame], 16384 * std::sin(phase), 2.0) << frame;
        ASSERT_NEAR(all[2 * frame + 1], 16384 * std::cos(phase), 2.0) << frame;
    }
}

TEST(tnAudioConverter_orb, RateAndChannelsChangeTogether) {
    const auto converter = made(pcm(16, 96000, 2), pcm(16, 48000, 1));
    int good = 0;
    for (int block = 0; block < 50; ++block) {
        const auto out = convert(*converter, Samples(2 * 960, 1000), 2 * 600);
        if (out.fResult != 0) continue;
        ++good;
        EXPECT_EQ(out.fBytes, out.fFrames * 2);
        if (block > 10) {
            EXPECT_EQ(out.fFrames, 480u);
            EXPECT_NEAR(out.fOut[200], 1000, 1);
        }
    }
    EXPECT_GT(good, 45);
}

TEST(tnAudioConverter_orb, ResultLargerThanTheRoomIsSilence) {
    const auto converter = made(pcm(16, 48000, 2), pcm(32, 48000, 2));
    const auto failed = convert(*converter, {1, 2, 3, 4}, 12);
    EXPECT_EQ(failed.fResult, -1);
    EXPECT_EQ(failed.fOut, Samples(6, 0));
    EXPECT_EQ(failed.fBytes, 4712u);
    const auto next = convert(*converter, {1, 2, 3, 4}, 16);  // only that block is lost
    EXPECT_EQ(next.fResult, 0);
    const auto nothing = convert(*converter, {}, 16);
    EXPECT_EQ(nothing.fResult, -1);
}

// Filters that fail where ours do not.

enum class Failing {
    kNowhere,
    kSetInput,
    kOutputFormat,
    kSampleRate,
    kBegin,
    kPut,
    kGet,
    kNoSample,
    kNoData
};

/// What was asked of such filters.
struct Calls {
    std::vector<unsigned int> fEnds;      // whose End was called, in that order
    unsigned int fInputFormat = 0;        // of the properties that were set
    int fPuts = 0;                        // also of no sample, which would end the stream
    const unsigned char* fPut = nullptr;  // where the bytes of the last sample stood
    int fPutBytes = 0;                    // and how many they were
};

class FailingConverter : public CAudioConverter {
public:
    FailingConverter(unsigned int code, Failing where, Calls* calls)
        : CAudioConverter(code), fWhere(where), fCalls(calls) {
        if (where != Failing::kSampleRate)
            DeclareInt(CodeBookProperty::AudioConverter::SampleRate, 0, 0, 1 << 20);
    }
    Result SetInputProperties(const CAudioProperties* properties) override {
        fCalls->fInputFormat = properties->GetFormat();
        return fWhere == Failing::kSetInput ? Result(ResultError())
                                            : CAudioConverter::SetInputProperties(properties);
    }
    CValueList<unsigned int>* GetInputFormats() override { return new CValueList<unsigned int>; }
    CValueList<unsigned int>* GetOutputFormats() override {
        auto* formats = new CValueList<unsigned int>;
        if (fWhere != Failing::kOutputFormat) {
            formats->AddValue('sowt');
            formats->AddValue(CAudioProperties::kFloat32Little);
        }
        return formats;
    }
    Result Begin() override {
        return fWhere == Failing::kBegin ? Result(ResultError()) : Result(ResultOK());
    }
    Result End() override {
        fCalls->fEnds.push_back(GetType());
        return ResultOK();
    }
    Result PutSample(int, CMediaSample* sample) override {
        ++fCalls->fPuts;
        if (sample == nullptr) return ResultOK();
        fSample = RObject<CMediaSample>::Share(sample);
        const RObject<CLockedDataReference> locked(sample->GetLockedDataReference(1));
        fCalls->fPut = locked ? locked->GetData() : nullptr;
        fCalls->fPutBytes = locked ? locked->GetLength() : 0;
        return fWhere == Failing::kPut ? Result(ResultError()) : Result(ResultOK());
    }
    Result GetSample(int, RObject<CMediaSample>& sample) override {
        if (fWhere == Failing::kNoData) {
            sample = new CAudioSample(1);
        } else if (fWhere != Failing::kNoSample) {
            sample = fSample;
        }
        // A sample beside a failure does not count.
        return fWhere == Failing::kGet ? Result(ResultError()) : Result(ResultOK());
    }

private:
    const Failing fWhere;
    Calls* const fCalls;
    RObject<CMediaSample> fSample;
};

class FailingFactory : public CComponentFactory<CAudioConverter> {
public:
    FailingFactory(unsigned int code, Failing where, Calls& calls)
        : CComponentFactory(code), fWhere(where), fCalls(&calls) {
        Inventory::GetSingleton().AddFirst(this);
    }
    void Withdraw() { Inventory::GetSingleton().Remove(this); }
    CAudioConverter* CreateInstance() override {
        return new FailingConverter(GetType(), fWhere, fCalls);
    }

    Failing fWhere;
    Calls* fCalls;
};

class NoFactory : public CComponentFactory<CAudioConverter> {
public:
    using CComponentFactory::CComponentFactory;
    CAudioConverter* CreateInstance() override { return nullptr; }
};

tnMediaRecord target_of(unsigned int code) {
    return code == 'afc ' ? pcm(32, 48000, 2) : pcm(16, 44100, 2);
}

TEST(tnAudioConverter_orb, EachFailingStepOfAStageFailsInit) {
    for (const unsigned int code : {'afc ', 'asrc'}) {
        for (const Failing where : {Failing::kNowhere, Failing::kSetInput, Failing::kOutputFormat,
                                    Failing::kSampleRate, Failing::kBegin}) {
            SCOPED_TRACE(testing::Message() << code << ", " << static_cast<int>(where));
            Calls calls;
            const RObject<FailingFactory> factory(new FailingFactory(code, where, calls));
            tnAudioConverter_orb converter;
            const bool fails =
                where != Failing::kNowhere && (code == 'asrc' || where != Failing::kSampleRate);
            EXPECT_EQ(converter.Init(pcm(16, 48000, 2), target_of(code)), fails ? -1 : 0);
            factory->Withdraw();
        }
        const RObject<NoFactory> none(new NoFactory(code));
        Inventory::GetSingleton().AddFirst(none.Get());
        tnAudioConverter_orb converter;
        EXPECT_EQ(converter.Init(pcm(16, 48000, 2), target_of(code)), -1);
        Inventory::GetSingleton().Remove(none.Get());
    }
}

TEST(tnAudioConverter_orb, EachFailingStepOfABlockSilencesIt) {
    for (const unsigned int code : {'afc ', 'asrc'}) {
        for (const Failing where :
             {Failing::kPut, Failing::kGet, Failing::kNoSample, Failing::kNoData}) {
            SCOPED_TRACE(testing::Message() << code << ", " << static_cast<int>(where));
            Calls calls;
            const RObject<FailingFactory> factory(new FailingFactory(code, where, calls));
            {
                const auto converter = made(pcm(16, 48000, 2), target_of(code));
                const auto failed = convert(*converter, {1, 2, 3, 4}, 64);
                EXPECT_EQ(failed.fResult, -1);
                EXPECT_EQ(failed.fOut, Samples(32, 0));
                EXPECT_EQ(failed.fBytes, 4712u);
                EXPECT_EQ(failed.fFrames, 4711u);
            }
            EXPECT_EQ(calls.fEnds, std::vector<unsigned int>{code});
            factory->Withdraw();
        }
    }
}

TEST(tnAudioConverter_orb, FailingFirstStageKeepsTheBlockFromTheSecond) {
    // Not even a null sample gets there: a rate filter would take it for the end of the stream and
    // give away what it holds back.
    constexpr std::pair<Failing, int> kFailures[] = {
        {Failing::kPut, 0},
        {Failing::kGet, 0},
        {Failing::kNoSample, 0},
        {Failing::kNoData, 1},  // a sample it is, if an empty one
    };
    for (const auto& [where, puts] : kFailures) {
        SCOPED_TRACE(static_cast<int>(where));
        Calls sizeCalls;
        Calls rateCalls;
        const RObject<FailingFactory> size(new FailingFactory('afc ', where, sizeCalls));
        const RObject<FailingFactory> rate(
            new FailingFactory('asrc', Failing::kNowhere, rateCalls));
        const auto converter = made(pcm(32, 44100, 2), pcm(16, 48000, 2));
        const auto failed = convert(*converter, Samples(8, 7), 64);
        EXPECT_EQ(failed.fResult, -1);
        EXPECT_EQ(failed.fOut, Samples(32, 0));
        EXPECT_EQ(failed.fBytes, 4712u);
        EXPECT_EQ(failed.fFrames, 4711u);
        EXPECT_EQ(sizeCalls.fPuts, 1);
        EXPECT_EQ(rateCalls.fPuts, puts);
        size->Withdraw();
        rate->Withdraw();
    }
}

TEST(tnAudioConverter_orb, SampleSizeChangesBeforeTheRate) {
    // The rate filter, here one that passes through, is handed 16-bit frames and is told so.
    Calls calls;
    const RObject<FailingFactory> factory(new FailingFactory('asrc', Failing::kNowhere, calls));
    {
        const auto converter = made(pcm(32, 44100, 2), pcm(16, 48000, 2));
        const auto out = convert(*converter, as_samples({0.5f, -0.5f}), 4);
        EXPECT_EQ(out.fResult, 0);
        EXPECT_EQ(out.fOut, (Samples{16384, -16384}));
    }
    EXPECT_EQ(calls.fInputFormat, 'sowt');
    EXPECT_EQ(calls.fPutBytes, 4);
    EXPECT_EQ(calls.fEnds, std::vector<unsigned int>{'asrc'});
    factory->Withdraw();
}

TEST(tnAudioConverter_orb, RateFilterEndsBeforeTheFormatFilter) {
    Calls calls;
    const RObject<FailingFactory> size(new FailingFactory('afc ', Failing::kNowhere, calls));
    const RObject<FailingFactory> rate(new FailingFactory('asrc', Failing::kNowhere, calls));
    made(pcm(32, 44100, 2), pcm(16, 48000, 2)).reset();
    EXPECT_EQ(calls.fEnds, (std::vector<unsigned int>{'asrc', 'afc '}));
    size->Withdraw();
    rate->Withdraw();
}

TEST(tnAudioConverter_orb, FirstStageReadsTheCallersOwnBytes) {
    for (const unsigned int code : {'afc ', 'asrc'}) {
        Calls calls;
        const RObject<FailingFactory> factory(new FailingFactory(code, Failing::kNowhere, calls));
        const auto converter = made(pcm(16, 48000, 2), target_of(code));
        std::vector<unsigned char> in(8);
        std::vector<unsigned char> out(64);
        converter->Convert(in.data(), out.data(), 8, 8, 64, nullptr, nullptr);
        EXPECT_EQ(calls.fPut, in.data());
        factory->Withdraw();
    }
}

TEST(tnAudioConverter_orb, InitThatFailsTracesBothFormats) {
    tnMediaRecord input = pcm(16, 48000, 2);
    tnMediaRecord output = pcm(24, 48000, 2);
    input.SetCString('mcon', "what comes");
    output.SetCString('mcon', "what goes");
    tests::TraceKeeper keeper;
    EXPECT_EQ(tnAudioConverter_orb().Init(input, pcm(16, 48000, 1)), 0);
    EXPECT_EQ(keeper.fText, "");
    EXPECT_EQ(tnAudioConverter_orb().Init(input, output), -1);
    EXPECT_EQ(keeper.fText, input.Description() + output.Description());
}

TEST(tnAudioConverter_orb, ChannelStageStaysThroughASecondInit) {
    // Four channels that pass a filter alone come out whole. Behind an Init that has switched the
    // channel stage on they are cut to two, although the second one asks for no such thing.
    const Samples in = as_samples({0.5f, -0.5f, 0.25f, 0.125f});
    const auto whole = convert(*made(pcm(32, 48000, 4), pcm(16, 48000, 4)), in, 8);
    EXPECT_EQ(whole.fOut, (Samples{16384, -16384, 8192, 4096}));
    const auto converter = made(pcm(16, 48000, 2), pcm(16, 48000, 1));
    ASSERT_EQ(converter->Init(pcm(32, 48000, 4), pcm(16, 48000, 4)), 0);
    const auto cut = convert(*converter, in, 8);
    EXPECT_EQ(cut.fResult, 0);
    EXPECT_EQ(cut.fOut, (Samples{16384, -16384, kStale, kStale}));
    EXPECT_EQ(cut.fBytes, 8u);
}

}  // namespace
