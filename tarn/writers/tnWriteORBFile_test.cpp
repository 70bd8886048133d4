// The earlier movie file writer with real encoders and a real file, read by programs that are not
// ours.

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tests/support/earlierWriter.h"

using namespace earlierWriter;

namespace {

constexpr int kRealWidth = 320;
constexpr int kRealHeight = 180;
constexpr int kRealFrames = 30;
constexpr int kBlockFrames = 1600;  // a thirtieth of a second

/// A grey picture, lighter from frame to frame.
FramePtr grey_frame(int raster, int number) {
    constexpr std::size_t kPixels = std::size_t{kRealWidth} * kRealHeight;
    FramePtr frame(new Frame);
    const auto shade = static_cast<unsigned char>(40 + 5 * number);
    if (tnRasterType::IsPlanarFormat(raster)) {
        frame->fBytes.assign(kPixels * 3 / 2, 128);
        std::fill_n(frame->fBytes.begin(), kPixels, shade);
    } else {
        frame->fBytes.assign(kPixels * 2, 128);
        for (std::size_t i = 1; i < frame->fBytes.size(); i += 2) frame->fBytes[i] = shade;
    }
    frame->fDuration = 1000;
    return frame;
}

std::vector<unsigned char> decoded(const tests::TestFolder& folder, const std::string& movie,
                                   const std::vector<std::string>& options) {
    const std::string raw = folder.File("decoded.raw");
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-y", "-i", movie};
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(raw);
    EXPECT_EQ(tests::Run(words).exitCode, 0);
    std::ifstream file(raw, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Records the grey frames beside the tracks of sound that `mask` says, each of one level that is
/// its own.
void record(const std::string& movie, const char* codec, int mask, int raster = '2vuy') {
    const WriterPtr writer(new tnWriteORB);
    ASSERT_TRUE(writer->Open(movie.c_str(), 1, 1));
    tnMediaRecord source = raw_video(raster, kRealWidth, kRealHeight);
    tnMediaRecord encoded = source;
    encoded.SetBool('mena', true);
    encoded.SetCString('mcon', codec);
    encoded.SetInt64('tmsc', 30000);
    encoded.SetFloat('mfps', 30.0f);
    writer->SetSourceVideoFormat(source);
    writer->SetEncodedVideoFormat(encoded);
    writer->SetSourceAudioFormat(source_audio());
    writer->SetEncodedAudioFormat(encoded_audio(mask));
    ASSERT_EQ(writer->CompleteInitialization(), 0);
    for (int i = 0; i < kRealFrames; ++i) {
        const FramePtr frame = grey_frame(raster, i);
        ASSERT_EQ(writer->WriteVideo(*frame), 0);
        for (int track = 0; track < tnWriteORB::kAudioTracks; ++track) {
            if ((mask >> track & 1) == 0) continue;
            const std::vector<short> block(2 * kBlockFrames, static_cast<short>(1000 * track + 7));
            ASSERT_EQ(writer->WriteAudioPacket(
                          nullptr, 0, 0, reinterpret_cast<const unsigned char*>(block.data()),
                          static_cast<int>(block.size() * sizeof(short)), track),
                      0);
        }
    }
    writer->close();
}

/// A busy machine may have dropped some; none is out of its place, torn or made up.
void expect_grey_frames(const std::vector<unsigned char>& luma) {
    constexpr std::size_t kSize = std::size_t{kRealWidth} * kRealHeight;
    ASSERT_EQ(luma.size() % kSize, 0u);
    EXPECT_GE(luma.size() / kSize, std::size_t{kRealFrames} / 2);
    int before = 0;
    for (std::size_t at = 0; at < luma.size(); at += kSize) {
        const auto [least, most] = std::minmax_element(
            luma.begin() + static_cast<long>(at), luma.begin() + static_cast<long>(at + kSize));
        EXPECT_LE(*most - *least, 3) << "one shade all over";
        EXPECT_GT(*most, before);
        before = *most;
    }
}

struct Kind {
    const char* fCodec;
    const char* fProbed;
    const char* fTag;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.fCodec;
}

class EarlierWriterFile : public testing::TestWithParam<Kind> {};

TEST_P(EarlierWriterFile, OtherProgramsReadEightTracksOfSoundBesideThePicture) {
    const tests::TestFolder folder;
    const std::string movie = folder.File("movie.mov");
    record(movie, GetParam().fCodec, 0xFF);
    EXPECT_EQ(gFrames, 0);

    EXPECT_EQ(tests::ProbeStream(movie, "v:0", "codec_name"), GetParam().fProbed);
    EXPECT_EQ(tests::ProbeStream(movie, "v:0", "codec_tag_string"), GetParam().fTag);
    EXPECT_EQ(tests::ProbeStream(movie, "v:0", "width"), "320");
    EXPECT_EQ(tests::ProbeStream(movie, "v:1", "codec_name"), "");
    EXPECT_EQ(tests::MediaInfo(movie, "General", "AudioCount"), "8");
    const int frames = tests::CountFrames(movie);
    EXPECT_NEAR(tests::ProbeSeconds(movie, "v:0"), frames / 30.0, 0.001) << "end to end";
    expect_grey_frames(
        decoded(folder, movie,
                {"-map", "0:v:0", "-vf", "extractplanes=y", "-pix_fmt", "gray", "-f", "rawvideo"}));

    for (int track = 0; track < tnWriteORB::kAudioTracks; ++track) {
        const std::string number = std::to_string(track);
        EXPECT_EQ(tests::ProbeStream(movie, "a:" + number, "codec_name"), "pcm_s16le");
        EXPECT_EQ(tests::ProbeStream(movie, "a:" + number, "sample_rate"), "48000");
        const std::vector<unsigned char> bytes =
            decoded(folder, movie, {"-map", "0:a:" + number, "-f", "s16le"});
        EXPECT_GE(bytes.size(), std::size_t{kBlockFrames} * 4 * kRealFrames / 2);
        EXPECT_EQ(bytes.size() % (kBlockFrames * 4), 0u) << "whole blocks";
        const int level = 1000 * track + 7;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            ASSERT_EQ(bytes[i] | bytes[i + 1] << 8, level) << "track " << track << " at " << i;
        }
    }
}

TEST_P(EarlierWriterFile, TracksOfTheMaskStandInOrder) {
    const tests::TestFolder folder;
    const std::string movie = folder.File("movie.mov");
    record(movie, GetParam().fCodec, 5);
    EXPECT_EQ(tests::MediaInfo(movie, "General", "AudioCount"), "2");
    const int levels[] = {7, 2007};
    for (int i = 0; i < 2; ++i) {
        const std::vector<unsigned char> bytes =
            decoded(folder, movie, {"-map", "0:a:" + std::to_string(i), "-f", "s16le"});
        ASSERT_GE(bytes.size(), 2u);
        EXPECT_EQ(bytes[0] | bytes[1] << 8, levels[i]);
    }
    EXPECT_TRUE(tests::GstreamerReads(movie));
}

TEST_P(EarlierWriterFile, PlanesComeThroughAsWell) {
    for (const int raster : {'I420', 'NV12'}) {
        const tests::TestFolder folder;
        const std::string movie = folder.File("movie.mov");
        record(movie, GetParam().fCodec, 0, raster);
        EXPECT_EQ(tests::ProbeStream(movie, "a:0", "codec_name"), "");
        expect_grey_frames(decoded(
            folder, movie, {"-vf", "extractplanes=y", "-pix_fmt", "gray", "-f", "rawvideo"}));
    }
}

INSTANTIATE_TEST_SUITE_P(Codecs, EarlierWriterFile,
                         testing::Values(Kind{"ProRes", "prores", "apcn"},
                                         Kind{"MJPEG", "mjpeg", "jpeg"}),
                         [](const auto& kind) { return std::string(kind.param.fCodec); });

}  // namespace
