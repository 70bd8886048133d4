#include "tarn/filters/tnPcmAudioFilter.h"

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <vector>

#include "orb/CAudioConverter.h"
#include "orb/CAudioSample.h"
#include "orb/CBufferDataReference.h"
#include "spar/zObject.h"
#include "tarn/filters/tnFilterManager.h"
#include "tarn/filters/tnPcmAudioFilterBuffer.h"

#include "tests/support/orbDoubles.h"

using namespace Quillon::Orb;

namespace {

using Buffer = tnAudioCompressor::EncodedBuffer;

constexpr double kThirtieth = 33.333333333333336;

tnMediaRecord format_of(int rate, int channels = 2, int bits = 16) {
    tnMediaRecord record(TN_MEDIA_AUDIO);
    record.MakeDefaultAudioFormat();
    record.fSampleRate.SetInt32(rate);
    record.fChannels.SetInt32(channels);
    record.fBitsPerSample.SetInt32(bits);
    return record;
}

struct Outcome {
    int result = 0;
    std::shared_ptr<Buffer> buffer;
};

Outcome encode(tnPcmAudioFilter& filter, std::vector<unsigned char> block, double time = 12.5) {
    // Not null, so that a failure that leaves it alone is seen.
    tnPcmAudioFilterBuffer stale(0, 0);
    Buffer* out = &stale;
    const int result =
        filter.EncodeFrame(&out, time, block.data(), static_cast<unsigned int>(block.size()));
    EXPECT_NE(out, &stale);
    return {result, std::shared_ptr<Buffer>(out, [](Buffer* made) {
                if (made) made->Release();
            })};
}

TEST(PcmAudioFilterBuffer, HasOnePacketThatAnswersToEveryIndex) {
    tnPcmAudioFilterBuffer buffer(41.5, 10);
    EXPECT_EQ(buffer.CodecType(), 0);
    EXPECT_EQ(buffer.PacketCount(), 1);
    for (const int packet : {-1, 0, 1, 3}) {
        EXPECT_EQ(buffer.PacketSize(packet), 40u);
        EXPECT_EQ(buffer.PacketData(packet), buffer.PacketData(0));
        EXPECT_EQ(buffer.Timestamp(packet), 41.5);
        EXPECT_EQ(buffer.DurationMilli(packet), kThirtieth);
        EXPECT_EQ(buffer.SampleCount(packet), 10u);
        EXPECT_EQ(buffer.AudioSample(packet), nullptr);
    }
    EXPECT_EQ(buffer.fTimestamps, std::vector<long long>(32, -1));
    for (int i = 0; i < 40; ++i) EXPECT_EQ(buffer.PacketData(0)[i], 0);
}

TEST(PcmAudioFilter, StartsEmptyAndHasNoDescription) {
    tnPcmAudioFilter filter;
    EXPECT_EQ(filter.InputFormat().fSampleRate.AsInt32(-1), -1);
    EXPECT_EQ(filter.FramesPerPacket(), 0);
    EXPECT_EQ(filter.DecoderInfo(), nullptr);
    filter.SetOutputFormat(format_of(48000));
    EXPECT_EQ(filter.OutputFormat().fSampleRate.AsInt32(0), 48000);
}

// A block is a thirtieth of a second in whole frames of four bytes, and nothing else.
TEST(PcmAudioFilter, TakesBlocksOfExactlyAThirtiethOfASecond) {
    const struct {
        int rate;
        unsigned int bytes;
        int result;
        unsigned int frames;
    } rows[] = {
        {48000, 6400, 0, 1600}, {48000, 6396, -1, 0},   {48000, 6404, -1, 0}, {48000, 0, -1, 0},
        {44100, 5880, 0, 1470}, {32000, 4264, 0, 1066}, {32000, 4268, -1, 0}, {29, 0, 0, 0},
        {29, 4, -1, 0},         {30, 4, 0, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.rate << " Hz, " << row.bytes << " bytes");
        tnPcmAudioFilter filter;
        filter.SetOutputFormat(format_of(row.rate));
        ASSERT_TRUE(filter.CreateFilter(format_of(row.rate)));
        std::vector<unsigned char> block(row.bytes);
        std::iota(block.begin(), block.end(), static_cast<unsigned char>(1));
        const Outcome outcome = encode(filter, block);
        EXPECT_EQ(outcome.result, row.result);
        ASSERT_EQ(outcome.buffer != nullptr, row.result == 0);
        if (row.result != 0) continue;
        EXPECT_EQ(outcome.buffer->SampleCount(0), row.frames);
        EXPECT_EQ(outcome.buffer->PacketSize(0), row.bytes);
        EXPECT_EQ(outcome.buffer->Timestamp(0), 12.5);
        EXPECT_EQ(outcome.buffer->DurationMilli(0), kThirtieth);
        const unsigned char* data = outcome.buffer->PacketData(0);
        EXPECT_TRUE(std::equal(block.begin(), block.end(), data));
    }
}

TEST(PcmAudioFilter, ADifferenceThatNeedsNoConversionPassesThrough) {
    tnMediaRecord output = format_of(48000);
    output.SetCString('mcon', "PCM");
    output.SetInt32('mtbr', 1);
    tnPcmAudioFilter filter;
    EXPECT_EQ(filter.Create(format_of(48000), output), 0);
    EXPECT_EQ(encode(filter, std::vector<unsigned char>(6400)).result, 0);
}

// At equal rates there is room for 30 frames of four bytes, 120 bytes, whatever the block holds.
//
//     in      stereo, 240 bytes = 60 frames      60 frames of mono, 120 bytes: they fit
//     in      stereo, 244 bytes = 61 frames      122 bytes: they do not
TEST(PcmAudioFilter, ABlockThatConvertsIsDroppedAndOneThatFailsGoesOnInSilence) {
    const struct {
        int rate;
        unsigned int bytes;
        int result;
    } rows[] = {
        {48000, 4, -1}, {48000, 40, -1}, {48000, 240, -1}, {48000, 244, 0}, {48000, 6400, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        tnPcmAudioFilter filter;
        ASSERT_EQ(filter.Create(format_of(row.rate), format_of(row.rate, 1)), 0);
        const Outcome outcome = encode(filter, std::vector<unsigned char>(row.bytes, 0x11));
        EXPECT_EQ(outcome.result, row.result);
        ASSERT_EQ(outcome.buffer != nullptr, row.result == 0);
        if (row.result != 0) continue;
        EXPECT_EQ(outcome.buffer->SampleCount(0), 0u) << "the converter reports none";
        EXPECT_EQ(outcome.buffer->PacketSize(0), 0u);
        EXPECT_EQ(outcome.buffer->PacketCount(), 1);
        EXPECT_EQ(outcome.buffer->DurationMilli(0), kThirtieth);
        for (int i = 0; i < 120; ++i) EXPECT_EQ(outcome.buffer->PacketData(0)[i], 0);
    }
}

/// A change of rate that gives so many bytes for any block.
class FixedRate final : public CAudioConverter {
public:
    FixedRate(unsigned int code, orbDoubles::Script& script)
        : CAudioConverter(code), fBytes(static_cast<int>(script.numbers["bytes"])) {
        DeclareInt(CodeBookProperty::AudioConverter::SampleRate, 0, 0, 1 << 20);
    }
    CValueList<unsigned int>* GetInputFormats() override { return orbDoubles::list_of({}); }
    CValueList<unsigned int>* GetOutputFormats() override { return orbDoubles::list_of({'sowt'}); }
    Result Begin() override { return 0; }
    Result End() override { return 0; }
    Result PutSample(int, CMediaSample*) override { return 0; }
    Result GetSample(int, RObject<CMediaSample>& sample) override {
        const RObject<CByteArray> bytes(new CByteArray(fBytes, 1));
        const RObject<CBufferDataReference> data(new CBufferDataReference(bytes.Get()));
        sample = new CAudioSample(fBytes / 4);
        return sample->SetDataReference(data.Get());
    }

private:
    const int fBytes;
};

// A block has room by the ratio of the rates: what fits in has converted and is dropped.
//
//     44100 to 48000    48000 * 30 / 44100 = 32.7    room for 33 frames
//     48000 to 44100    44100 * 30 / 48000 = 27.6    room for 28 frames
TEST(PcmAudioFilter, AConvertedBlockHasRoomByTheRatioOfTheRates) {
    const struct {
        int input;
        int output;
        int frames;
    } rows[] = {{44100, 48000, 33}, {48000, 44100, 28}, {48000, 96000, 60}, {96000, 48000, 15}};
    for (const auto& row : rows) {
        for (const int more : {0, 1}) {
            SCOPED_TRACE(testing::Message() << row.input << " to " << row.output << ", " << more);
            orbDoubles::Script script;
            script.numbers["bytes"] = (row.frames + more) * 4;
            const orbDoubles::Registered<CAudioConverter, FixedRate> rate('asrc', script);
            tnPcmAudioFilter filter;
            ASSERT_EQ(filter.Create(format_of(row.input), format_of(row.output)), 0);
            EXPECT_EQ(encode(filter, std::vector<unsigned char>(6400)).result, more ? 0 : -1);
        }
    }
}

// The channel stage reads as much as there is room for, 120 bytes, from blocks that may hold less:
// the filter fills up what it hands on, and reads no further than the host has written.
TEST(PcmAudioFilter, ShortBlocksAreNotReadBeyondTheirEnd) {
    const struct {
        int in, out;
        unsigned int bytes;
        int result;
    } rows[] = {
        {2, 1, 40, -1}, {1, 2, 2, -1},  {1, 2, 40, -1},  {1, 2, 60, -1},
        {1, 2, 62, 0},  {6, 2, 12, -1}, {2, 1, 116, -1}, {2, 1, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.bytes << " bytes of " << row.in << " channels");
        tnPcmAudioFilter filter;
        ASSERT_EQ(filter.Create(format_of(48000, row.in), format_of(48000, row.out)), 0);
        for (int i = 0; i < 2; ++i) {
            // Exactly as long as it is, so that the address sanitizer sees a byte too many.
            const auto block = std::make_unique<unsigned char[]>(row.bytes);
            Buffer* out = nullptr;
            EXPECT_EQ(filter.EncodeFrame(&out, 0, block.get(), row.bytes), row.result);
            EXPECT_EQ(out != nullptr, row.result == 0);
            if (out) out->Release();
        }
    }
}

TEST(PcmAudioFilter, ASourceWithoutChannelsIsSilentInTheManager) {
    for (const int channels : {2, 0}) {
        for (const int bits : {16, 32}) {
            SCOPED_TRACE(testing::Message() << channels << " channels, " << bits << " bits");
            tnFilterManager manager;
            manager.RegisterFactory("PCM", [] {
                return std::shared_ptr<tnFilter>(new tnPcmAudioFilter,
                                                 [](tnFilter* made) { made->Release(); });
            });
            tnMediaRecord wish = format_of(48000, channels);
            wish.SetCString('mcon', "PCM");
            unsigned int heard = 0;
            unsigned int samples = 0;
            const auto owner = std::make_shared<zObject>();
            manager.ObserveAudioFilter(1, owner, wish, {},
                                       [&](const std::shared_ptr<Buffer>& buffer) {
                                           ++heard;
                                           samples += buffer->SampleCount(0);
                                       });
            manager.SetInputFormat(1, format_of(48000, 0, bits));
            const std::vector<unsigned char> block(6400);
            for (int i = 0; i < 3; ++i) {
                manager.WriteAudioSamples(1, 33 * i, block.data(), 6400 * 8, 1600 * i, 0, 0);
            }
            // Without a difference there is nothing to convert, and the block passes as it is.
            const bool passes = channels == 0 && bits == 16;
            EXPECT_EQ(heard, 3u);
            EXPECT_EQ(samples, passes ? 4800u : 0u);
        }
    }
}

TEST(PcmAudioFilter, AConverterThatCannotDoTheFormatsFailsTheCreationAndStays) {
    tnPcmAudioFilter filter;
    EXPECT_EQ(filter.ConfigurationError(), 0);
    filter.SetOutputFormat(format_of(48000, 2, 16));
    EXPECT_FALSE(filter.CreateFilter(format_of(48000, 2, 24)));
    EXPECT_EQ(filter.ConfigurationError(), -1054);
    EXPECT_EQ(filter.InputFormat().fBitsPerSample.AsInt32(0), 24);
    // It goes on as any converter that fails.
    EXPECT_EQ(encode(filter, std::vector<unsigned char>(9600)).result, 0);

    for (const int bits : {16, 32}) {
        tnPcmAudioFilter mute;
        mute.SetOutputFormat(format_of(48000));
        EXPECT_FALSE(mute.CreateFilter(format_of(48000, 0, bits)));
        const Outcome outcome = encode(mute, std::vector<unsigned char>(40));
        EXPECT_EQ(outcome.result, 0);
        ASSERT_NE(outcome.buffer, nullptr);
        EXPECT_EQ(outcome.buffer->SampleCount(0), 0u);
        EXPECT_EQ(outcome.buffer->PacketSize(0), 0u);
    }
}

TEST(PcmAudioFilter, CreatingAgainWithEqualFormatsTakesTheConverterAway) {
    tnPcmAudioFilter filter;
    ASSERT_EQ(filter.Create(format_of(48000), format_of(48000, 1)), 0);
    ASSERT_EQ(filter.Create(format_of(48000), format_of(44100)), 0);
    ASSERT_EQ(filter.Create(format_of(48000), format_of(48000)), 0);
    EXPECT_EQ(encode(filter, std::vector<unsigned char>(6400)).result, 0);
    EXPECT_NE(filter.Create(format_of(48000, 2, 24), format_of(48000)), 0);
    ASSERT_EQ(filter.Create(format_of(48000), format_of(48000)), 0);
    EXPECT_EQ(filter.ConfigurationError(), 0);
}

TEST(PcmAudioFilter, AnInputWithoutARateMakesEmptyBlocks) {
    // An input without a rate has no ratio: no room, and no division by nothing.
    tnPcmAudioFilter filter;
    filter.Create(format_of(0), format_of(48000));
    const Outcome outcome = encode(filter, std::vector<unsigned char>(400));
    ASSERT_NE(outcome.buffer, nullptr);
    EXPECT_EQ(outcome.buffer->PacketSize(0), 0u);
}

}  // namespace
