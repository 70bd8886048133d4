#include "ClipVideo.h"

#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
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

void make_clip(const std::string& path, const std::string& source, const std::string& how) {
    std::vector<std::string> words = {"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", source};
    std::istringstream rest(how);
    for (std::string word; rest >> word;) words.push_back(word);
    words.push_back(path);
    const tests::ProcessResult result = tests::Run(words);
    ASSERT_EQ(result.exitCode, 0) << result.err;
}

std::unique_ptr<ClipVideo> open_clip(const std::string& path, int width = 0, int height = 0) {
    std::string error;
    auto clip = ClipVideo::Open(path, width, height, error);
    EXPECT_TRUE(clip) << error;
    return clip;
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
            make_clip(path,
                      std::string("color=") + (white ? "white" : "black") +
                          ":size=64x48:rate=5:duration=1",
                      range.fWords);
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

namespace {

struct Woven {
    const char* fName;  // of the clip
    const char* fEncoder;
    bool fTopFirst;
};

// What their containers say, one after the other: TB, BT, TB, BT, BT, and nothing.
constexpr Woven kWoven[] = {
    {"prores.mov", "-c:v prores_ks -flags +ildct -vf tinterlace=4,setfield=tff", true},
    {"prores.mov", "-c:v prores_ks -flags +ildct -vf tinterlace=5,setfield=bff", false},
    {"h264.mkv", "-c:v libx264 -flags +ildct -x264opts tff=1 -vf tinterlace=4,setfield=tff", true},
    {"h264.mkv", "-c:v libx264 -flags +ildct -x264opts bff=1 -vf tinterlace=5,setfield=bff", false},
    {"dv.mov", "-c:v dvvideo -pix_fmt yuv420p -vf tinterlace=5,setfield=bff", false},
    {"dv.avi", "-c:v dvvideo -pix_fmt yuv420p -vf tinterlace=5,setfield=bff", false},
};

}  // namespace

TEST(ClipVideo, FieldsHaveTheOrderOfTheFirstPictureFromTheStart) {
    const tests::TestFolder folder;
    for (const Woven& woven : kWoven) {
        SCOPED_TRACE(std::string(woven.fName) + (woven.fTopFirst ? ", top" : ", bottom"));
        const std::string path = folder.File(woven.fName);
        make_clip(path, "testsrc2=size=720x576:rate=50:duration=0.4", woven.fEncoder);
        const auto clip = open_clip(path);
        ASSERT_TRUE(clip);
        EXPECT_EQ(clip->Format().fFieldOrder.AsInt32(0), woven.fTopFirst ? 2 : 3);
        ClipFrame frame;
        int frames = 0;
        while (clip->Next(frame)) {
            EXPECT_EQ(frame.time * 25, frames * clip->Format().AsInt64('tmsc', 1));
            ++frames;
        }
        EXPECT_EQ(frames, 10);
        EXPECT_EQ(clip->Problem(), "");
    }
}

TEST(ClipVideo, WithoutOnePictureOpensAndEndsAtOnce) {
    const tests::TestFolder folder;
    const std::string path = folder.File("clip.mov");
    make_clip(path, "testsrc2=size=64x48:rate=25:duration=1", "-c:v mjpeg -movflags +faststart");
    // Its index stands in front; of the pictures nothing is left.
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 50);
    const auto clip = open_clip(path);
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->Format().fFieldOrder.AsInt32(0), 1);
    EXPECT_EQ(clip->Problem(), "");
    ClipFrame frame;
    EXPECT_FALSE(clip->Next(frame));
    EXPECT_EQ(clip->Problem(), "ends at 0.0 of 1.0 seconds, as if it had been cut off");
    EXPECT_FALSE(clip->Next(frame));
}

namespace {

struct FieldSize {
    const char* fFormat;
    int fHeight;  // of the clip, 320 wide
    int fToWidth;
    int fToHeight;
};

constexpr FieldSize kFieldSizes[] = {
    {"yuv420p", 240, 320, 120},
    {"yuv420p", 240, 160, 120},
    {"yuv420p", 240, 320, 180},
    {"yuv422p", 240, 320, 120},
    {"yuv422p", 486, 320, 480},
    // The bottom field has a row of chroma less than it needs.
    {"yuv420p", 486, 320, 240},
    {"yuv420p", 240, 320, 122},
    {"yuv420p", 240, 320, 480},
    {"yuv420p", 241, 320, 121},
    // Chroma of every fourth row becomes that of every second.
    {"yuv410p", 240, 320, 240},
    {"yuv410p", 240, 320, 120},
};

/// Every value of each plane's row: 50 in those of the top field, 200 in those of the bottom one.
void expect_stripes(const unsigned char* rows, int stride, int width, int height) {
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            ASSERT_NEAR(rows[y * stride + x], y % 2 ? 200 : 50, 1) << "at " << x << ',' << y;
        }
    }
}

}  // namespace

TEST(ClipVideo, ScalingKeepsTheFieldsApart) {
    const tests::TestFolder folder;
    const std::string path = folder.File("stripes.mkv");
    for (const FieldSize& size : kFieldSizes) {
        SCOPED_TRACE(fmt::format("{} {} to {}x{}", size.fFormat, size.fHeight, size.fToWidth,
                                 size.fToHeight));
        const std::string stripes = "if(mod(Y\\,2)\\,200\\,50)";
        make_clip(path, fmt::format("nullsrc=size=320x{}:rate=25:duration=0.08", size.fHeight),
                  fmt::format("-vf format={},geq=lum={}:cb={}:cr={},setfield=tff -c:v ffv1 -level "
                              "3 -flags +ildct",
                              size.fFormat, stripes, stripes, stripes));
        const auto clip = open_clip(path, size.fToWidth, size.fToHeight);
        ASSERT_TRUE(clip);
        ASSERT_EQ(clip->Format().fFieldOrder.AsInt32(0), 2);
        ClipFrame frame;
        ASSERT_TRUE(clip->Next(frame));
        const unsigned char* pixels = frame.pixels->GetData();
        const int stride = frame.pixels->GetStride();
        if (clip->Format().fColourspace.AsInt32(0) == '2vuy') {
            expect_stripes(pixels, stride, 2 * size.fToWidth, size.fToHeight);
            continue;
        }
        ASSERT_EQ(clip->Format().fColourspace.AsInt32(0), 'I420');
        const int chromaRows = (size.fToHeight + 1) / 2;
        const unsigned char* const u = pixels + stride * size.fToHeight;
        expect_stripes(pixels, stride, size.fToWidth, size.fToHeight);
        expect_stripes(u, stride / 2, size.fToWidth / 2, chromaRows);
        expect_stripes(u + stride / 2 * chromaRows, stride / 2, size.fToWidth / 2, chromaRows);
    }
}

namespace {

struct Shape {
    const char* fSize;
    const char* fAspect;  // of a pixel
    int fToWidth;
    int fToHeight;
    double fShape;  // width by height as shown
};

constexpr double kWide = 16.0 / 9;

constexpr Shape kShapes[] = {
    {"720x576", "64/45", 0, 0, kWide},      {"720x576", "64/45", 720, 288, kWide},
    {"720x576", "64/45", 360, 288, kWide},  {"720x576", "64/45", 1024, 576, kWide},
    {"720x576", "64/45", 1280, 720, kWide}, {"720x576", "16/15", 720, 480, 4.0 / 3},
    {"1920x1080", "1/1", 640, 480, kWide},  {"1920x1080", "1/1", 854, 480, 854.0 / 480},
    {"1920x1080", "1/1", 960, 540, kWide},  {"1920x1080", "0/1", 1280, 1080, kWide},
};

}  // namespace

TEST(ClipVideo, IsShownInTheShapeThatItHasWhateverTheSize) {
    const tests::TestFolder folder;
    const std::string path = folder.File("shape.mkv");
    for (const Shape& shape : kShapes) {
        SCOPED_TRACE(fmt::format("{} {} to {}x{}", shape.fSize, shape.fAspect, shape.fToWidth,
                                 shape.fToHeight));
        make_clip(path, fmt::format("color=size={}:rate=25:duration=0.04", shape.fSize),
                  fmt::format("-vf setsar={} -c:v mpeg4", shape.fAspect));
        const auto clip = open_clip(path, shape.fToWidth, shape.fToHeight);
        ASSERT_TRUE(clip);
        const tnMediaRecord& format = clip->Format();
        const int height = format.fHeight.AsInt32(0);
        const int width = format.AsInt32('tnSQ', format.fWidth.AsInt32(0));
        EXPECT_EQ(format.AsInt32('tnSH', height), height);
        EXPECT_NEAR(static_cast<double>(width) / height, shape.fShape, 0.5 / height);
    }
}
