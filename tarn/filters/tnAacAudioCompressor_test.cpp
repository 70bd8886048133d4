#include "tarn/filters/tnAacAudioCompressor.h"

#include <cmath>
#include <gtest/gtest.h>
#include <optional>

#include "spar/zBuffer.h"
#include "spar/zObject.h"
#include "tarn/filters/tnAacAudioBuffer.h"
#include "tarn/filters/tnCodecFilters.h"
#include "tarn/filters/tnFilterManager.h"

#include "tests/support/AvCodecs.h"
#include "tests/support/orbDoubles.h"

using namespace Quillon::Orb;

namespace {

using Buffer = tnAudioCompressor::EncodedBuffer;

tnMediaRecord format_of(int rate = 48000, int channels = 2, int bits = 16) {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.MakeDefaultAudioFormat();
    record.fSampleRate.SetInt32(rate);
    record.fChannels.SetInt32(channels);
    record.fBitsPerSample.SetInt32(bits);
    return record;
}

/// A tone in both channels, from frame `first` on.
std::vector<short> tone(long long first, int frames, int rate, int channels = 2) {
    std::vector<short> block;
    for (int i = 0; i < frames; ++i) {
        const double phase = 2 * M_PI * 440.0 * static_cast<double>(first + i) / rate;
        block.insert(block.end(), static_cast<std::size_t>(channels),
                     static_cast<short>(12000 * std::sin(phase)));
    }
    return block;
}

/// Refuses sound, or takes it and fails to give.
class RefusingEncoder final : public orbDoubles::Noting<CAudioCompressor> {
public:
    RefusingEncoder(unsigned int type, orbDoubles::Script& script) : Noting(type, script) {}

    CValueList<unsigned int>* GetInputFormats() override { return nullptr; }
    CValueList<unsigned int>* GetOutputFormats() override { return nullptr; }
    Result Begin() override { return 0; }
    Result End() override { return 0; }
    Result PutSample(int, CMediaSample*) override {
        return fScript.failSample ? Result(0) : Result(ResultError());
    }
    Result GetSample(int, RObject<CMediaSample>&) override { return ResultError(); }
};

class Aac : public testing::Test {
protected:
    int create(const tnMediaRecord& input, const tnMediaRecord& output) {
        return fCompressor.Create(input, output);
    }
    int encode(double timeMs, void* data, unsigned int bytes) {
        Buffer* out = nullptr;
        const int result = fCompressor.EncodeFrame(&out, timeMs, data, bytes);
        EXPECT_TRUE(result == 0 || out == nullptr);
        if (!out) return result;
        EXPECT_GT(out->PacketCount(), 0) << "an empty buffer is no buffer";
        for (int i = 0; i < out->PacketCount(); ++i) {
            fTimes.push_back(out->Timestamp(i));
            fDurations.push_back(out->DurationMilli(i));
            fFrames.push_back(out->SampleCount(i));
            const unsigned char* data2 = out->PacketData(i);
            fCoded.push_back({{data2, data2 + out->PacketSize(i)}, 0, 0});
        }
        out->Release();
        return result;
    }
    int encode_block(double timeMs, std::vector<short> block) {
        return encode(timeMs, block.data(), static_cast<unsigned int>(block.size() * 2));
    }

    tnAacAudioCompressor fCompressor;
    std::vector<double> fTimes;
    std::vector<double> fDurations;
    std::vector<unsigned int> fFrames;
    std::vector<avCodecs::Coded> fCoded;
};

TEST_F(Aac, HasNothingBeforeItIsCreated) {
    zBuffer description;
    EXPECT_EQ(fCompressor.GetDecoderDescription(description), -1);
    EXPECT_EQ(fCompressor.FramesPerPacket(), 0);
    EXPECT_EQ(encode_block(0, tone(0, 100, 48000)), -1);
    fCompressor.SetOutputFormat(format_of(44100));
    EXPECT_EQ(fCompressor.OutputFormat().fSampleRate.AsInt32(0), 44100);
}

// Blocks of a thirtieth of a second become packets of 1024 frames, in time with what went in: the
// first packet is the encoder's priming and lies before the first block.
TEST_F(Aac, PacketsRunOnFromTheFirstBlocksTime) {
    ASSERT_EQ(create(format_of(), format_of()), 0);
    EXPECT_EQ(fCompressor.FramesPerPacket(), 1024);
    constexpr int kBlocks = 60;
    for (int i = 0; i < kBlocks; ++i) {
        const long long first = i * 1600LL;
        // Whole milliseconds, as the manager gives them.
        const double time = 5000 + std::floor(static_cast<double>(first) / 48.0);
        ASSERT_EQ(encode_block(time, tone(first, 1600, 48000)), 0);
    }
    ASSERT_GT(fTimes.size(), 88u);
    constexpr double kPacketMs = 1024 / 48.0;
    for (std::size_t i = 0; i < fTimes.size(); ++i) {
        EXPECT_NEAR(fTimes[i], 5000 - kPacketMs + static_cast<double>(i) * kPacketMs, 1e-6);
        EXPECT_NEAR(fDurations[i], kPacketMs, 1e-9);
        EXPECT_EQ(fFrames[i], 1024u);
    }
    const auto description = fCompressor.DecoderInfo();
    ASSERT_NE(description, nullptr);
    const avCodecs::Decoded decoded = avCodecs::Decode(AV_CODEC_ID_AAC, *description, fCoded);
    EXPECT_TRUE(decoded.clean);
    ASSERT_EQ(decoded.sound.size(), fCoded.size() * 1024);
    // Behind the priming, at its place, stands the tone.
    double error = 0;
    double power = 0;
    for (std::size_t i = 8192; i < 60000; ++i) {
        const double expected =
            12000 / 32768.0 * std::sin(2 * M_PI * 440.0 * (static_cast<double>(i) - 1024) / 48000);
        error += std::pow(decoded.sound[i] - expected, 2);
        power += expected * expected;
    }
    EXPECT_LT(error, power / 1000);
}

// The third block comes half a second late: what follows stands half a second later.
TEST_F(Aac, AGapInTheSoundMovesWhatFollows) {
    ASSERT_EQ(create(format_of(), format_of()), 0);
    for (int i = 0; i < 6; ++i) {
        const double time = i * 64.0 + (i >= 2 ? 500.0 : 0.0);
        ASSERT_EQ(encode_block(time, tone(i * 3072LL, 3072, 48000)), 0);
    }
    ASSERT_GT(fTimes.size(), 12u);
    constexpr double kPacketMs = 1024 / 48.0;
    EXPECT_NEAR(fTimes[1] - fTimes[0], kPacketMs, 1e-6);
    const double last = fTimes.back();
    EXPECT_NEAR(last, 500 + (static_cast<double>(fTimes.size()) - 2) * kPacketMs, 1e-6);
}

TEST_F(Aac, ConvertsWhatItDoesNotTake) {
    const struct {
        const char* what;
        int rate;
        int channels;
        int outRate;
        int outChannels;
    } rows[] = {{"rate", 44100, 2, 48000, 2}, {"channels", 48000, 1, 48000, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        fTimes.clear();
        ASSERT_EQ(
            create(format_of(row.rate, row.channels), format_of(row.outRate, row.outChannels)), 0);
        const int frames = row.rate / 30;
        int failed = 0;
        for (int i = 0; i < 60; ++i) {
            const long long first = static_cast<long long>(i) * frames;
            const int result = encode_block(1000.0 * static_cast<double>(first) / row.rate,
                                            tone(first, frames, row.rate, row.channels));
            if (result != 0) {
                EXPECT_EQ(result, -1058);
                EXPECT_LT(i, 3) << "only until the converter has filled up";
                ++failed;
            }
        }
        EXPECT_LT(failed, 3);
        ASSERT_GT(fTimes.size(), 85u);
        EXPECT_NEAR(fTimes[0], -1024 / 48.0, 1e-6);
        EXPECT_NEAR(fTimes.back() - fTimes[0], static_cast<double>(fTimes.size() - 1) * 1024 / 48.0,
                    1e-6);
    }
}

TEST_F(Aac, EveryFailureHasItsCode) {
    EXPECT_EQ(create(format_of(), format_of(48000, 2, 24)), -1041) << "no such samples";
    EXPECT_EQ(create(format_of(0), format_of()), -1041) << "no rate";
    EXPECT_EQ(create(format_of(48000, 0), format_of()), -1041) << "no channels";
    EXPECT_EQ(create(format_of(48000, 2, 24), format_of()), -1054) << "no conversion";
    EXPECT_EQ(encode_block(0, tone(0, 100, 48000)), -1) << "after a failed creation";
    EXPECT_EQ(create(format_of(12345), format_of(12345)), -1056) << "no rate of AAC";
    tnMediaRecord fast = format_of();
    fast.SetInt32('mtbr', 100000);
    EXPECT_EQ(create(format_of(), fast), -1057) << "no rate of bits";
    ASSERT_EQ(create(format_of(), format_of()), 0);
    EXPECT_EQ(encode(0, nullptr, 0), 0) << "nothing asked";
    ASSERT_EQ(create(format_of(48000, 1), format_of()), 0);
    short frame[1] = {};
    EXPECT_EQ(encode(0, frame, 0), -1058) << "nothing to convert";

    orbDoubles::Script script;
    {
        const orbDoubles::Registered<CAudioCompressor, RefusingEncoder> refusing('caac', script);
        ASSERT_EQ(create(format_of(), format_of()), 0);
        EXPECT_EQ(encode_block(0, tone(0, 100, 48000)), -1059) << "refused";
        script.failSample = true;
        EXPECT_EQ(encode_block(0, tone(0, 100, 48000)), -1059) << "gives nothing but a failure";
    }
    orbDoubles::Registered<CAudioCompressor, orbDoubles::AudioDouble> none('caac', script);
    none.GiveNull();
    EXPECT_EQ(create(format_of(), format_of()), -1055);
}

TEST_F(Aac, TakesTheBitRateOfTheRecord) {
    orbDoubles::Script script;
    const orbDoubles::Registered<CAudioCompressor, orbDoubles::AudioDouble> registered('caac',
                                                                                       script);
    ASSERT_EQ(create(format_of(), format_of()), 0);
    EXPECT_EQ(script.numbers["AudioCompressor::BitRate"], 128000);
    tnMediaRecord output = format_of();
    output.SetInt32('mtbr', 192);
    ASSERT_EQ(create(format_of(), output), 0);
    EXPECT_EQ(script.numbers["AudioCompressor::BitRate"], 192000);
}

TEST(AacAudioBuffer, AnswersToAnIndexThatItDoesNotHave) {
    tnAacAudioBuffer buffer;
    EXPECT_EQ(buffer.PacketCount(), 0);
    for (const int packet : {-1, 0, 1}) {
        EXPECT_EQ(buffer.PacketSize(packet), 0u);
        EXPECT_EQ(buffer.PacketData(packet), nullptr);
        EXPECT_EQ(buffer.AudioSample(packet), nullptr);
        EXPECT_EQ(buffer.Timestamp(packet), -1.0);
        EXPECT_EQ(buffer.DurationMilli(packet), 0.0);
        EXPECT_EQ(buffer.SampleCount(packet), 0u);
    }
}

TEST(AacThroughTheManager, IsStampedAndKeepsItsSamples) {
    const auto manager = std::make_shared<tnFilterManager>();
    tnCodecFilters::Register(*manager);
    tnMediaRecord request = format_of();
    request.SetCString('mcon', "MPEG-4 Audio");
    const auto owner = std::make_shared<zObject>();
    std::vector<std::shared_ptr<Buffer>> heard;
    manager->ObserveAudioFilter(1, owner, request, {}, [&](const std::shared_ptr<Buffer>& buffer) {
        heard.push_back(buffer);
    });
    manager->SetInputFormat(1, format_of());
    for (int i = 0; i < 10; ++i) {
        const std::vector<short> block = tone(i * 1600LL, 1600, 48000);
        manager->WriteAudioSamples(1, 7000 + i * 33, block.data(),
                                   static_cast<unsigned int>(block.size() * 16), i * 1600LL, 0, 0);
    }
    ASSERT_GT(heard.size(), 5u);
    EXPECT_EQ(heard[0]->CodecType(), 'mp4a');
    EXPECT_GE(heard[0]->fTimestamps[0], 7000);
    const RObject<CAudioSample> sample(heard[0]->AudioSample(0));
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->GetDuration(), 1024);
    heard.clear();
    EXPECT_FALSE(sample->IsShared()) << "the reference was the caller's own";
}

}  // namespace
