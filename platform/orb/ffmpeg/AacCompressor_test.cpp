#include "orb/ffmpeg/AacCompressor.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

#include "orb/BlockPool.h"
#include "orb/CComponentInventory.h"
#include "orb/CDecoderSpecificProperties.h"
#include "orb/ffmpeg/audioTestSupport.h"
#include "orb/testMemory.h"

namespace Quillon::Orb {
namespace {

constexpr int kRate = 48000;

struct Packet {
    Bytes fData;
    long long fTime;
    long long fDuration;
};

RObject<CAudioCompressor> prepared(unsigned int format = 'sowt', int channels = 2,
                                   int rate = kRate) {
    RObject<CAudioCompressor> compressor(
        CComponentInventory<CComponentFactory<CAudioCompressor>>::CreateInstance('caac'));
    EXPECT_TRUE(compressor);
    EXPECT_EQ(compressor->SetInputProperties(pcm_properties(format, channels, rate).Get()), 0);
    return compressor;
}

void take_packets(CAudioFilter& filter, std::vector<Packet>& packets) {
    for (;;) {
        RObject<CMediaSample> sample;
        ASSERT_EQ(filter.GetSample(0, sample), 0);
        if (!sample) return;
        EXPECT_EQ(static_cast<CAudioSample&>(*sample).GetLength(), 1);
        const RObject<CMemoryDataReference> data(sample->GetDataReference<CMemoryDataReference>());
        EXPECT_TRUE(data);
        packets.push_back({bytes_of_sample(*sample), sample->GetTime(), sample->GetDuration()});
    }
}

/// Begins, encodes `pcm` in blocks of `blockBytes` and drains.
std::vector<Packet> encoded(CAudioFilter& filter, const Bytes& pcm, std::size_t blockBytes) {
    std::vector<Packet> packets;
    EXPECT_EQ(filter.Begin(), 0);
    put_in_blocks(filter, pcm, blockBytes, [&] { take_packets(filter, packets); });
    return packets;
}

/// A different tone in each channel, 16 bits, little-endian.
Bytes tones(int frames, int channels, int rate = kRate) {
    std::vector<std::int16_t> samples;
    for (int i = 0; i < frames; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            const double hertz =
                channels > 2 && channel == 3 ? 60.0 : 500.0 * (channel + 1);  // one is for bass
            samples.push_back(static_cast<std::int16_t>(
                8000 * std::sin(2 * std::numbers::pi * hertz * i / rate)));
        }
    }
    Bytes bytes(samples.size() * 2);
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

/// 16 bits, little-endian, as numbers of which 1 is the loudest.
std::vector<double> floats_of(const Bytes& pcm) {
    std::vector<double> floats(pcm.size() / 2);
    for (std::size_t i = 0; i < floats.size(); ++i) {
        std::int16_t sample = 0;
        std::memcpy(&sample, pcm.data() + 2 * i, 2);
        floats[i] = sample / 32768.0;
    }
    return floats;
}

/// In the byte order of this machine.
template <class Float>
Bytes bytes_of_floats(const std::vector<double>& values) {
    const std::vector<Float> floats(values.begin(), values.end());
    Bytes bytes(floats.size() * sizeof(Float));
    std::memcpy(bytes.data(), floats.data(), bytes.size());
    return bytes;
}

/// Decodes with a decoder that was told nothing but the description. Planes of floats.
std::vector<std::vector<float>> decoded(const std::vector<Packet>& packets,
                                        const CAudioProperties& output) {
    const RObject<CDecoderSpecificProperties> extension(output.GetExtension('mspe'));
    RObject<CByteArray> info;
    EXPECT_TRUE(extension && extension->GetDecoderInfo(info) == 0 && info);
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC));
    context->extradata = static_cast<unsigned char*>(
        av_mallocz(static_cast<std::size_t>(info->GetLength()) + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context->extradata, info->GetData(), static_cast<std::size_t>(info->GetLength()));
    context->extradata_size = info->GetLength();
    EXPECT_EQ(avcodec_open2(context, nullptr, nullptr), 0);
    std::vector<std::vector<float>> planes;
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    for (const Packet& source : packets) {
        av_new_packet(packet, static_cast<int>(source.fData.size()));
        std::memcpy(packet->data, source.fData.data(), source.fData.size());
        EXPECT_EQ(avcodec_send_packet(context, packet), 0);
        av_packet_unref(packet);
        while (avcodec_receive_frame(context, frame) == 0) {
            EXPECT_EQ(frame->sample_rate, output.GetSampleRate());
            planes.resize(static_cast<std::size_t>(frame->ch_layout.nb_channels));
            for (std::size_t i = 0; i < planes.size(); ++i) {
                const auto* data = reinterpret_cast<const float*>(frame->extended_data[i]);
                planes[i].insert(planes[i].end(), data, data + frame->nb_samples);
            }
        }
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return planes;
}

/// Signal to noise of channel `channel` of `pcm` in `plane`, `priming` frames on, in decibels. From
/// frame `from` on.
double fidelity(const Bytes& pcm, int channels, int channel, const std::vector<float>& plane,
                int priming, int from = 4096) {
    double signal = 0;
    double noise = 0;
    const std::size_t frames = pcm.size() / 2 / static_cast<std::size_t>(channels);
    for (std::size_t i = static_cast<std::size_t>(from); i + 4096 < frames; ++i) {
        std::int16_t sample = 0;
        std::memcpy(&sample,
                    pcm.data() + 2 * (i * static_cast<std::size_t>(channels) +
                                      static_cast<std::size_t>(channel)),
                    2);
        const double expected = sample / 32768.0;
        const double difference = plane[i + static_cast<std::size_t>(priming)] - expected;
        signal += expected * expected;
        noise += difference * difference;
    }
    return 10 * std::log10(signal / noise);
}

TEST(AacCompressor, IsFoundByItsCode) {
    const auto compressor = prepared();
    EXPECT_EQ(compressor->GetType(), 'caac');
    const RObject<CValueList<unsigned int>> formats(compressor->GetOutputFormats());
    EXPECT_TRUE(formats->HasValue('mp4a'));
    EXPECT_EQ(formats->GetCount(), 1);
}

TEST(AacCompressor, OutputPropertiesTellWhatADecoderNeeds) {
    const auto compressor = prepared();
    EXPECT_EQ(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, 128000), 0);
    EXPECT_EQ(compressor->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod, 0),
              0);
    ASSERT_EQ(compressor->Begin(), 0);
    const RObject<CAudioProperties> output(compressor->GetOutputProperties(0));
    EXPECT_EQ(output->GetFormat(), 'mp4a');
    EXPECT_EQ(output->GetFramesPerPacket(), 1024);
    EXPECT_EQ(output->GetPrimingFrames(), 1024);
    EXPECT_EQ(output->GetBytesPerPacket(), 0);
    EXPECT_EQ(output->GetBitRate(), 128000);
    EXPECT_EQ(output->GetChannels(), 2);
    EXPECT_EQ(output->GetSampleRate(), kRate);
    const RObject<CDecoderSpecificProperties> extension(output->GetExtension('mspe'));
    RObject<CByteArray> info;
    ASSERT_TRUE(extension && extension->GetDecoderInfo(info) == 0 && info);
    ASSERT_GE(info->GetLength(), 2);
    // AudioSpecificConfig: 5 bits object type (2 is AAC-LC), 4 bits rate (3 is 48000), 4 bits
    // channels.
    EXPECT_EQ(info->GetData()[0] >> 3, 2);
    EXPECT_EQ((info->GetData()[0] & 7) << 1 | info->GetData()[1] >> 7, 3);
    EXPECT_EQ(info->GetData()[1] >> 3 & 15, 2);
}

TEST(AacCompressor, DurationsSumUpToPrimingAndInput) {
    for (const int frames : {1, 1023, 1024, 1025, 5000, 48000}) {
        SCOPED_TRACE(frames);
        const auto compressor = prepared();
        const auto packets = encoded(*compressor, tones(frames, 2), 4 * 480);
        long long time = 0;
        for (std::size_t i = 0; i < packets.size(); ++i) {
            EXPECT_EQ(packets[i].fTime, time);
            EXPECT_LE(packets[i].fDuration, 1024);
            EXPECT_TRUE(packets[i].fDuration == 1024 || i + 1 == packets.size());
            EXPECT_FALSE(packets[i].fData.empty());
            time += packets[i].fDuration;
        }
        EXPECT_EQ(time, 1024 + frames);
    }
}

TEST(AacCompressor, SoundComesBackBehindThePriming) {
    for (const int channels : {1, 2, 3, 4, 5, 6, 8}) {
        SCOPED_TRACE(channels);
        const Bytes pcm = tones(kRate, channels);
        const auto compressor = prepared('sowt', channels);
        EXPECT_EQ(
            compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, 128000 * channels),
            0);
        const auto packets = encoded(*compressor, pcm, pcm.size());
        const RObject<CAudioProperties> output(compressor->GetOutputProperties(0));
        const auto planes = decoded(packets, *output);
        ASSERT_EQ(planes.size(), static_cast<std::size_t>(channels));
        EXPECT_GE(planes[0].size(), std::size_t{1024} + kRate);
        for (int channel = 0; channel < channels; ++channel) {
            EXPECT_GT(
                fidelity(pcm, channels, channel, planes[static_cast<std::size_t>(channel)], 1024),
                25.0)
                << channel;
        }
    }
}

/// The end of the last packet; each must begin where the one before ended.
long long end_of(const std::vector<Packet>& packets) {
    long long time = 0;
    for (const Packet& packet : packets) {
        EXPECT_EQ(packet.fTime, time);
        time += packet.fDuration;
    }
    return time;
}

TEST(AacCompressor, ValuesThatAreNoSoundMoveNothing) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    struct Glitch {
        double fValue;
        int fFrames;
    };
    constexpr int kLong = kRate / 2;
    constexpr Glitch kGlitches[] = {
        {kNan, 1},    {kInfinity, 1}, {-kInfinity, 1},    {1e20, 1},           {-1e38, 1},
        {1e16, 1600}, {kNan, kLong},  {kInfinity, kLong}, {-kInfinity, kLong}, {1e30, kLong}};
    constexpr int kFrames = 2 * kRate;
    constexpr int kAt = 30001;
    const Bytes pcm = tones(kFrames, 2);
    for (const Glitch& glitch : kGlitches) {
        SCOPED_TRACE(testing::Message() << glitch.fFrames << " x " << glitch.fValue);
        std::vector<double> floats = floats_of(pcm);
        for (int i = 0; i < glitch.fFrames; ++i) {
            floats[static_cast<std::size_t>(2 * (kAt + i))] = glitch.fValue;
        }
        const auto hear = [&](unsigned int format, const Bytes& bytes) {
            SCOPED_TRACE(code_text(format));
            const auto compressor = prepared(format);
            const auto packets = encoded(*compressor, bytes, bytes.size() / kFrames * 1600);
            EXPECT_EQ(end_of(packets), 1024 + kFrames);
            const RObject<CAudioProperties> output(compressor->GetOutputProperties(0));
            const auto planes = decoded(packets, *output);
            ASSERT_EQ(planes.size(), 2u);
            ASSERT_GE(planes[0].size(), std::size_t{1024} + kFrames);
            for (int channel = 0; channel < 2; ++channel) {
                EXPECT_GT(fidelity(pcm, 2, channel, planes[static_cast<std::size_t>(channel)], 1024,
                                   kAt + glitch.fFrames + 8192),
                          20.0);
            }
        };
        hear(CAudioProperties::kFloat32Little, bytes_of_floats<float>(floats));
        hear('46lf', bytes_of_floats<double>(floats));
    }
}

#ifdef ORB_OWN_BLOCKS
TEST(AacCompressor, SoundBehindAFailureKeepsItsPlace) {
    // Whatever allocation fails, of ours or of the encoder's, and whenever.
    constexpr int kFrames = 8000;
    Bytes big = tones(kFrames, 2);
    for (std::size_t i = 0; i < big.size(); i += 2) std::swap(big[i], big[i + 1]);
    int failures = 1;
    for (int left = 0; failures > 0; ++left) {
        SCOPED_TRACE(left);
        const auto compressor = prepared('twos');
        ASSERT_EQ(compressor->Begin(), 0);
        std::vector<RObject<CAudioSample>> blocks;
        for (std::size_t at = 0; at < big.size(); at += 4 * 1600) {
            const std::size_t length = std::min<std::size_t>(4 * 1600, big.size() - at);
            blocks.push_back(pcm_sample(big.data() + at, length, 1));
        }
        BlockPool::Shared().Trim();
        gBlocksLeft = left;
        failures = 0;
        for (const auto& block : blocks) failures += compressor->PutSample(0, block.Get()).Failed();
        gBlocksLeft = -1;
        EXPECT_EQ(compressor->PutSample(0, nullptr), 0);
        std::vector<Packet> packets;
        take_packets(*compressor, packets);
        EXPECT_EQ(end_of(packets), 1024 + kFrames);
    }
}
#endif

TEST(AacCompressor, BlockingAndFormatChangeNothing) {
    const Bytes little = tones(10000, 2);
    Bytes big(little.size());
    for (std::size_t i = 0; i < little.size(); ++i) big[i] = little[i ^ 1];
    const Bytes floatBytes = bytes_of_floats<float>(floats_of(little));

    const auto whole = encoded(*prepared(), little, little.size());
    const auto same = [&](const std::vector<Packet>& packets) {
        ASSERT_EQ(packets.size(), whole.size());
        for (std::size_t i = 0; i < whole.size(); ++i)
            ASSERT_EQ(packets[i].fData, whole[i].fData) << i;
    };
    same(encoded(*prepared(), little, 4));
    same(encoded(*prepared(), little, 4 * 1024));
    same(encoded(*prepared(), little, 4 * 777));
    same(encoded(*prepared('twos'), big, 4 * 777));
    same(encoded(*prepared(CAudioProperties::kFloat32Little), floatBytes, 8 * 777));
}

TEST(AacCompressor, PacketsComeAsSoonAsTheirFramesAreIn) {
    const auto compressor = prepared();
    ASSERT_EQ(compressor->Begin(), 0);
    std::vector<Packet> packets;
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(compressor->PutSample(0, pcm_sample(Bytes(4 * 1024), 1024).Get()), 0);
        take_packets(*compressor, packets);
    }
    EXPECT_GE(packets.size(), 98u);   // the encoder holds one or two
    EXPECT_EQ(compressor->End(), 0);  // End drains as a null sample does
    take_packets(*compressor, packets);
    EXPECT_EQ(packets.size(), 101u);
}

double kilobits(const std::vector<Packet>& packets) {
    std::size_t bytes = 0;
    for (const Packet& packet : packets) bytes += packet.fData.size();
    return static_cast<double>(bytes) * 8 * kRate / 1024 / static_cast<double>(packets.size()) /
           1000;
}

/// Music-like: chords with attacks and noise, hard enough to need its bits.
Bytes busy(int frames) {
    std::mt19937 random(5);
    std::vector<std::int16_t> samples;
    for (int i = 0; i < frames; ++i) {
        const double decay = std::exp(-(i % 12000) / 3000.0);
        double value = 0;
        for (const double hertz : {220.0, 277.2, 329.6, 880.0, 3520.0}) {
            value += std::sin(2 * std::numbers::pi * hertz * i / kRate);
        }
        value = 4000 * decay * value + static_cast<double>(random() % 4000) - 2000;
        samples.push_back(static_cast<std::int16_t>(value));
        samples.push_back(
            static_cast<std::int16_t>(value / 2 + static_cast<double>(random() % 2000)));
    }
    Bytes bytes(samples.size() * 2);
    std::memcpy(bytes.data(), samples.data(), bytes.size());
    return bytes;
}

TEST(AacCompressor, BitRateShowsInTheStream) {
    const Bytes pcm = busy(4 * kRate);
    for (const int rate : {64000, 128000, 256000}) {
        const auto compressor = prepared();
        EXPECT_EQ(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, rate), 0);
        EXPECT_NEAR(kilobits(encoded(*compressor, pcm, 4 * 1024)), rate / 1000.0,
                    rate / 1000.0 * 0.1);
    }
}

TEST(AacCompressor, RateControlShowsInTheStream) {
    // At a constant rate the encoder spends what it is given; with a variable one the rate follows
    // the content, and another wanted rate gives another quality.
    const Bytes pcm = busy(2 * kRate);
    const auto variable = [&](int rate) {
        const auto compressor = prepared();
        EXPECT_EQ(
            compressor->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod, 3),
            0);
        EXPECT_EQ(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, rate), 0);
        return encoded(*compressor, pcm, 4 * 1024);
    };
    const auto low = variable(64000);
    const auto high = variable(256000);
    EXPECT_GT(kilobits(high), 1.5 * kilobits(low));
    const auto constant = encoded(*prepared(), pcm, 4 * 1024);
    EXPECT_NE(kilobits(variable(128000)), kilobits(constant));
}

TEST(AacCompressor, OtherRatesOfAacWork) {
    for (const int rate : {96000, 44100, 32000, 16000, 8000}) {
        SCOPED_TRACE(rate);
        const Bytes pcm = tones(2 * rate, 1, rate);
        const auto compressor = prepared('sowt', 1, rate);
        EXPECT_EQ(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, 2 * rate), 0);
        const auto packets = encoded(*compressor, pcm, 2 * 1000);
        const RObject<CAudioProperties> output(compressor->GetOutputProperties(0));
        const auto planes = decoded(packets, *output);
        ASSERT_EQ(planes.size(), 1u);
        EXPECT_GT(fidelity(pcm, 1, 0, planes[0], output->GetPrimingFrames()), 15.0);
    }
}

TEST(AacCompressor, RefusesWhatItCannotEncode) {
    RObject<CAudioCompressor> bare(new AacCompressor);
    EXPECT_EQ(bare->Begin(), ResultNullPointer::kCode);
    EXPECT_EQ(prepared('in24')->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(prepared('sowt', 0)->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(prepared('sowt', 7)->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(prepared('sowt', 9)->Begin(), ResultNotSupported::kCode);
    EXPECT_EQ(prepared('sowt', 2, 47000)->Begin(), ResultNotSupported::kCode);
    const auto compressor = prepared();
    EXPECT_EQ(compressor->SetOutputFormat('sowt'), ResultNotSupported::kCode);
    EXPECT_EQ(compressor->SetOutputFormat('mp4a'), 0);
    EXPECT_LT(compressor->SetProperty(CodeBookProperty::AudioCompressor::BitRate, 0), 0);
    EXPECT_LT(compressor->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod, 4),
              0);
    EXPECT_LT(compressor->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod, 2),
              0);
    EXPECT_LT(compressor->SetProperty(CodeBookProperty::VideoCompressor::BitRate, 128000), 0);
    EXPECT_EQ(compressor->SetProperty(CodeBookProperty::CoreAudioCompressor::RateControlMethod, 1),
              0);
}

TEST(AacCompressor, SamplesOutsideAStreamAreFailures) {
    const auto compressor = prepared();
    const auto sample = pcm_sample(Bytes(4), 1);
    EXPECT_EQ(compressor->PutSample(0, sample.Get()), ResultError::kCode);
    ASSERT_EQ(compressor->Begin(), 0);
    EXPECT_EQ(compressor->PutSample(0, RObject<CAudioSample>(new CAudioSample(1)).Get()),
              ResultNullPointer::kCode);
    EXPECT_EQ(compressor->PutSample(0, unreachable_sound().Get()), ResultNullPointer::kCode);
    EXPECT_EQ(compressor->PutSample(0, pcm_sample(Bytes(), 0).Get()), 0);
    EXPECT_EQ(compressor->PutSample(0, nullptr), 0);  // an empty stream has no packets
    std::vector<Packet> packets;
    take_packets(*compressor, packets);
    EXPECT_TRUE(packets.empty());
    EXPECT_EQ(compressor->PutSample(0, sample.Get()), ResultError::kCode);
    EXPECT_EQ(compressor->End(), 0);
}

TEST(AacCompressor, AnotherStreamStartsAfresh) {
    const Bytes pcm = tones(10000, 2);
    const auto compressor = prepared();
    const auto first = encoded(*compressor, pcm, 4 * 480);
    ASSERT_EQ(compressor->Begin(), 0);
    ASSERT_EQ(compressor->PutSample(0, pcm_sample(pcm, 10000).Get()), 0);
    const auto second = encoded(*compressor, pcm, 4 * 480);  // begins in the middle of another
    ASSERT_EQ(second.size(), first.size());
    for (std::size_t i = 0; i < first.size(); ++i) EXPECT_EQ(second[i].fData, first[i].fData);
}

}  // namespace
}  // namespace Quillon::Orb
