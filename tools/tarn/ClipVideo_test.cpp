#include "ClipVideo.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

namespace {

struct Range {
    const char* fWords;  // how FFmpeg makes the clip
    int fAsked;          // raster type, 0 for the nearest
    int fRaster;         // what it is to be
    bool fIsFull;
};

constexpr const char* kFullByTag =
    "-vf scale=out_range=full,format=yuv422p -color_range pc -c:v ffv1";

constexpr Range kRanges[] = {
    {"-vf format=yuvj420p -c:v mjpeg", 0, 'I420', true},
    {"-vf format=yuvj422p -c:v mjpeg", 0, '2vuy', true},
    {"-vf format=yuvj444p -c:v mjpeg", 0, '2vuy', true},
    {kFullByTag, 0, '2vuy', true},
    {"-vf format=gray -c:v png", 0, 'I420', true},
    {"-vf split[a][b];[a]palettegen[p];[b][p]paletteuse -c:v png", 0, 'rgba', true},
    {"-vf format=yuv420p -c:v mpeg4", 0, 'I420', false},
    {"-vf format=yuv422p -c:v ffv1", 0, '2vuy', false},
    {"-vf format=yuv422p10 -c:v ffv1", 0, '2vuy', false},
    // Who asks for a type looks at limited range, whatever the clip has.
    {"-vf format=yuvj420p -c:v mjpeg", '2vuy', '2vuy', false},
    {"-vf format=yuvj422p -c:v mjpeg", '2vuy', '2vuy', false},
    {kFullByTag, '2vuy', '2vuy', false},
    {"-vf format=yuv420p -c:v mpeg4", '2vuy', '2vuy', false},
    {"-vf format=bgr0 -c:v ffv1", '2vuy', '2vuy', false},
};

void make_clip(const std::string& path, const char* colour, const char* how) {
    std::vector<std::string> words = {
        "ffmpeg", "-v",
        "error",  "-y",
        "-f",     "lavfi",
        "-i",     std::string("color=") + colour + ":size=64x48:rate=5:duration=1"};
    std::istringstream rest(how);
    for (std::string word; rest >> word;) words.push_back(word);
    words.push_back(path);
    const tests::ProcessResult result = tests::Run(words);
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

}  // namespace

// White is 255 where the record says full range and 235 where it says limited, black 0 and 16:
// else every recording of the clip is pale, or too hard.
TEST(ClipVideo, PixelsHaveTheRangeThatTheRecordSays) {
    const tests::TestFolder folder;
    const std::string path = folder.File("clip.mkv");
    for (const Range& range : kRanges) {
        for (const bool white : {true, false}) {
            SCOPED_TRACE(std::string(range.fWords) + (white ? ", white" : ", black"));
            make_clip(path, white ? "white" : "black", range.fWords);
            std::string error;
            const auto clip = ClipVideo::Open(path, 0, 0, error, range.fAsked);
            ASSERT_TRUE(clip) << error;
            const tnMediaRecord& format = clip->Format();
            EXPECT_EQ(format.fColourspace.AsInt32(0), range.fRaster);
            EXPECT_EQ(format.fNominalRange.AsInt32(0), range.fIsFull ? 'full' : 'limt');
            ClipFrame frame;
            int frames = 0;
            while (clip->Next(frame)) {
                const int luma = frame.pixels->GetData()[range.fRaster == '2vuy' ? 1 : 0];
                const int expected = range.fIsFull ? (white ? 255 : 0) : (white ? 235 : 16);
                EXPECT_NEAR(luma, expected, 1);
                ++frames;
            }
            EXPECT_EQ(frames, 5);
        }
    }
}
