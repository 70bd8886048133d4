#include "tests/movies/Readers.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "tests/movies/MovieCheck.h"
#include "tests/movies/MovieFolder.h"

using namespace Quillon::Orb;

namespace {

constexpr const char* kInputs =
    "-f lavfi -i testsrc2=s=320x180:r=25:d=2 -f lavfi -i sine=f=440:r=48000:d=2 ";

struct Material {
    const char* name;
    std::string arguments;
    const char* format;  // as our own parser reads it from a mov file
};

const Material kMaterials[] = {
    {"H264Aac", "-c:v libx264 -preset veryfast -bf 2 -g 12 -pix_fmt yuv420p -c:a aac", "avc1"},
    {"H264OpenGop", "-c:v libx264 -x264-params open-gop=1:b-pyramid=normal -bf 3 -g 10 -c:a aac",
     "avc1"},
    {"H264Stereo", "-c:v libx264 -bf 0 -g 25 -tune zerolatency -ac 2 -c:a aac", "avc1"},
    {"ProResProxy", "-c:v prores_ks -profile:v 0 -c:a pcm_s16le", "apco"},
    {"ProResLt", "-c:v prores_ks -profile:v 1 -c:a pcm_s16le", "apcs"},
    {"ProRes422", "-c:v prores_ks -profile:v 2 -c:a pcm_s16be", "apcn"},
    {"ProResHq", "-c:v prores_ks -profile:v 3 -ac 2 -c:a pcm_s16le", "apch"},
    {"ProRes4444", "-c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le -c:a pcm_s16le", "ap4h"},
    {"MotionJpeg", "-c:v mjpeg -q:v 3 -pix_fmt yuvj420p -c:a pcm_f32le", "jpeg"},
    {"Mpeg2", "-c:v mpeg2video -bf 2 -g 12 -q:v 3 -c:a pcm_f32be", "mp2v"},
    {"Pcm24", "-c:v mjpeg -pix_fmt yuvj420p -c:a pcm_s24le", "jpeg"},
    {"Pcm32", "-c:v mjpeg -pix_fmt yuvj420p -ac 2 -c:a pcm_s32le", "jpeg"},
    {"Pcm96k", "-c:v mjpeg -pix_fmt yuvj420p -ar 96000 -c:a pcm_s16le", "jpeg"},
};

class Readers : public testing::TestWithParam<std::tuple<Material, const char*>> {};

/// Real material through our writer: three readers open it, and what they decode is what the
/// encoders' own file decodes to.
TEST_P(Readers, DecodeWhatTheEncoderMade) {
    const auto& [material, container] = GetParam();
    const MediaClip& clip = MakeClip(kInputs + material.arguments);
    const std::string path = MovieFolder() + "/" + material.name + "." + container;
    WriteOptions options;
    options.container = std::string(container) == "mp4" ? 'mp4 ' : 'mov ';
    const Result result = WriteClipTo(path, clip, options);
    ASSERT_EQ(result, 0) << result.GetMessage();

    const BoxFile file = ParseBoxFile(path);
    const Kept kept = CompareWithClip(file, BytesOf(path), clip);
    EXPECT_EQ(kept.complaints, "") << file.Text();
    EXPECT_NEAR(kept.seconds[0], 2, 0.001);
    if (options.container == 'mov ') {
        EXPECT_EQ(file.tracks[0].format, material.format);
    }

    for (const auto& opinion : {Ffprobe(path), Mediainfo(path), GstDiscoverer(path)}) {
        EXPECT_EQ(opinion.complaints, "");
        EXPECT_NEAR(opinion.seconds, 2, 0.03);
    }
    EXPECT_EQ(GstDecode(path).complaints, "");
    const std::vector<std::string> pictures = DecodedFrames(path, "v:0");
    EXPECT_EQ(pictures.size(), 50U);
    EXPECT_EQ(pictures, DecodedFrames(clip.path, "v:0"));
    EXPECT_EQ(DecodedSound(path, "a:0"), DecodedSound(clip.path, "a:0"));
}

INSTANTIATE_TEST_SUITE_P(Materials, Readers,
                         testing::Combine(testing::ValuesIn(kMaterials),
                                          testing::Values("mov", "mp4")),
                         [](const auto& each) {
                             return std::string(std::get<0>(each.param).name) + "_" +
                                    std::get<1>(each.param);
                         });

/// The state behind every checkpoint, as a kill would leave it, decodes to the first frames of the
/// whole: the edit list of pictures that were reordered must not cut any of them.
TEST(CrashState, DecodesToTheFirstFramesOfTheWhole) {
    for (const MediaClip* clip : {&H264AacClip(), &ProResPcmClip()}) {
        const std::string path = MovieFolder() + "/state.mov";
        const std::vector<std::string> whole = DecodedFrames(clip->path, "v:0");
        int states = 0;
        WriteOptions options;
        options.checkpointEvery = 25;
        ASSERT_EQ(
            WriteClipTo(path, *clip, options,
                        [&] {
                            const BoxFile file = ParseBoxFile(path);
                            const Kept kept = CompareWithClip(file, BytesOf(path), *clip);
                            ASSERT_EQ(kept.complaints, "");
                            std::vector<std::string> frames = DecodedFrames(path, "v:0");
                            ASSERT_EQ(static_cast<long long>(frames.size()), kept.samples[0]);
                            // Of the pictures that were decoded ahead some stand behind a gap in
                            // time.
                            for (const std::string& frame : frames)
                                ASSERT_NE(std::find(whole.begin(), whole.end(), frame), whole.end())
                                    << frame;
                            ASSERT_NEAR(kept.seconds[0], kept.seconds[1], 0.5);
                            ASSERT_EQ(GstDiscoverer(path).complaints, "");
                            ASSERT_EQ(Mediainfo(path).complaints, "");
                            states++;
                        }),
            0);
        EXPECT_GE(states, 3);
    }
}

}  // namespace
