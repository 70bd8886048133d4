// Times that no clock tells, through real encoders into a real file: a host's mistake costs its own
// recording its times, and nothing else.

#include <climits>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "orb/CByteArray.h"
#include "orb/CPixelBufferDataReference.h"
#include "tarn/writers/tnWriteORB2.h"

#include "tests/support/Probe.h"
#include "tests/support/TestFolder.h"

using namespace Quillon::Orb;

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 32;

struct Time {
    long long time;
    long long duration;
};

struct Case {
    const char* name;
    std::vector<Time> frames;
    long long timescale = 30000;
    unsigned long long frameDuration = 1001;
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class GreyFrame final : public tnVideoCompressor2::EncodedBuffer {
public:
    explicit GreyFrame(Time time) : fTime(time) {}

    void SetBytesWritten(int) override {}
    EncodedBufferTiming GetTiming() override { return {1, fTime.time, 1, fTime.duration}; }
    CPixelDataReference* GetPixelData() override {
        const std::vector<unsigned char> grey(kWidth * 2 * kHeight, 128);
        const RObject<CByteArray> bytes(new CByteArray(grey.data(), static_cast<int>(grey.size())));
        return new CPixelBufferDataReference(bytes.Get(), kWidth, kHeight, kWidth * 2);
    }

private:
    const Time fTime;
};

class Sound final : public tnAudioCompressor2::EncodedBuffer {
public:
    void SetBytesWritten(int) override {}
};

class FarTimes : public testing::TestWithParam<Case> {};

void record(const Case& row, const char* codec, const std::string& path) {
    tnMediaRecord source(TN_MEDIA_VIDEO);
    source.fColourspace.SetInt32('2vuy');
    source.fWidth.SetInt32(kWidth);
    source.fHeight.SetInt32(kHeight);
    tnMediaRecord encoded(source);
    encoded.SetBool('mena', true);
    encoded.SetCString('mcon', codec);
    encoded.SetInt32('mtbr', 2000);
    encoded.SetInt64('tmsc', row.timescale);
    encoded.SetUInt64('dura', row.frameDuration);
    tnMediaRecord pcm;
    pcm.MakeDefaultAudioFormat();
    pcm.fSampleRate.SetInt32(48000);
    pcm.fChannels.SetInt32(2);
    pcm.fBitsPerSample.SetInt32(16);
    tnMediaRecord encodedPcm(pcm);
    encodedPcm.SetBool('mena', true);

    tnWriteORB2* writer = new tnWriteORB2;
    ASSERT_EQ(writer->Open(path.c_str(), 'mov ', 1, 1), 0);
    writer->SetSourceVideoFormat(source);
    writer->SetEncodedVideoFormat(encoded);
    writer->SetSourceAudioFormat(pcm);
    writer->SetEncodedAudioFormat(encodedPcm);
    const std::vector<unsigned char> block(1600 * 4);
    Sound sound;
    for (const Time& time : row.frames) {
        GreyFrame frame(time);
        ASSERT_EQ(writer->WriteVideo(frame), 0);
        ASSERT_EQ(
            writer->WriteAudioPacket(&sound, 0, 0, block.data(), static_cast<int>(block.size())),
            0);
    }
    writer->Close();
    writer->Release();
}

TEST_P(FarTimes, EveryPictureIsInTheFile) {
    const tests::TestFolder folder;
    for (const char* codec : {"MJPEG", "ProRes", "x264", "Mpeg2"}) {
        const std::string path = folder.File("movie.mov");
        record(GetParam(), codec, path);
        EXPECT_EQ(tests::ProbeStream(path, "v:0", "nb_frames"),
                  std::to_string(GetParam().frames.size()))
            << codec;
        EXPECT_EQ(tests::ProbeStream(path, "a:0", "nb_frames"),
                  std::to_string(GetParam().frames.size() * 1600))
            << codec;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Every, FarTimes,
    testing::Values(
        Case{"the last frame at the end", {{0, 1001}, {1001, 1001}, {LLONG_MAX, 1001}}},
        Case{"the first frame at the beginning", {{LLONG_MIN, 1001}, {0, 1001}, {1001, 1001}}},
        Case{"from the beginning on", {{LLONG_MIN, 1001}, {LLONG_MIN + 1001, 1001}}},
        Case{"up to the end", {{LLONG_MAX - 1001, 1001}, {LLONG_MAX, LLONG_MAX}}},
        Case{"to and fro",
             {{0, 1001},
              {LLONG_MAX, LLONG_MAX},
              {LLONG_MIN, LLONG_MIN},
              {LLONG_MAX, 1001},
              {0, 1001},
              {1001, 1001}}},
        Case{"in few ticks", {{LLONG_MAX, 1}, {LLONG_MIN, 1}, {LLONG_MAX, LLONG_MAX}}, 25, 1},
        Case{"of a fine clock",
             {{LLONG_MIN, 333667}, {LLONG_MAX, 333667}, {0, LLONG_MAX}},
             10000000,
             333667}));

}  // namespace
