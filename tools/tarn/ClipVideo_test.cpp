#include "ClipVideo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/MakeClip.h"
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
    ASSERT_TRUE(tests::MakeClip(path, "-f lavfi -i " + source + " " + how));
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

namespace {

struct Matrix {
    const char* fName;
    double fRed;
    double fBlue;  // weights of luma
};

constexpr Matrix k601 = {"smpte170m", 0.299, 0.114};
constexpr Matrix k709 = {"bt709", 0.2126, 0.0722};
constexpr Matrix kForeign[] = {
    {"bt2020nc", 0.2627, 0.0593}, {"smpte240m", 0.212, 0.087}, {"fcc", 0.30, 0.11}};

using Colour = std::array<double, 3>;

/// From R, G and B of 0 to 1 to code values of 8 bits.
Colour coded_of(const Colour& rgb, const Matrix& matrix, bool full) {
    const double luma =
        matrix.fRed * rgb[0] + (1 - matrix.fRed - matrix.fBlue) * rgb[1] + matrix.fBlue * rgb[2];
    const double chroma = full ? 127.5 : 112;
    return {full ? 255 * luma : 16 + 219 * luma,
            128 + chroma * (rgb[2] - luma) / (1 - matrix.fBlue),
            128 + chroma * (rgb[0] - luma) / (1 - matrix.fRed)};
}

constexpr Colour kColours[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1},         {1, 1, 0},
                               {1, 1, 1}, {0, 0, 0}, {0.75, 0.5, 0.25}, {0.2, 0.6, 0.7}};

/// A clip that is all of one colour, and the record's colour of it.
void expect_colour(const std::string& path, const Colour& rgb, const Matrix& from, bool full,
                   int height) {
    const bool isTall = height >= 720;
    const int deep = isTall ? 4 : 1;  // ten bits in 4:2:2, or eight in 4:2:0
    const Colour coded = coded_of(rgb, from, full);
    const auto value = [&](std::size_t plane) {
        return std::min(std::lround(deep * coded[plane]), deep * 256L - 1);
    };
    make_clip(path, fmt::format("nullsrc=size=64x{}:rate=25:duration=0.04", height),
              fmt::format("-vf format={},geq=lum={}:cb={}:cr={},setparams=colorspace={}:range={} "
                          "-c:v ffv1",
                          isTall ? "yuv422p10" : "yuv420p", value(0), value(1), value(2),
                          from.fName, full ? "full" : "limited"));
    const auto clip = open_clip(path);
    ASSERT_TRUE(clip);
    EXPECT_EQ(clip->Cautions().size(), 0U);
    ASSERT_EQ(clip->Format().fColorSpace.AsInt32(0), isTall ? 'r709' : 'r601');
    ASSERT_EQ(clip->Format().fNominalRange.AsInt32(0), full ? 'full' : 'limt');
    const Colour wanted = coded_of(rgb, isTall ? k709 : k601, full);
    ClipFrame frame;
    ASSERT_TRUE(clip->Next(frame));
    const unsigned char* const pixels = frame.pixels->GetData();
    const int stride = frame.pixels->GetStride();
    const int plane = stride * height;
    const int middle = stride * (height / 2);
    const Colour got = isTall ? Colour{1.0 * pixels[middle + 33], 1.0 * pixels[middle + 32],
                                       1.0 * pixels[middle + 34]}
                              : Colour{1.0 * pixels[middle + 32], 1.0 * pixels[plane + 16],
                                       1.0 * pixels[plane + plane / 4 + 16]};
    // Code values in are whole numbers, and so are the RGB ones in between.
    for (std::size_t at : {0U, 1U, 2U}) EXPECT_NEAR(got[at], wanted[at], 2) << "plane " << at;
}

}  // namespace

// A recording says 601 or 709 alone. Both sides are computed here in double precision.
TEST(ClipVideo, ColoursOfOtherMatricesAreConverted) {
    const tests::TestFolder folder;
    const std::string path = folder.File("colour.mkv");
    for (const Matrix& matrix : kForeign) {
        for (const int height : {48, 720}) {
            for (const bool full : {false, true}) {
                for (const Colour& rgb : kColours) {
                    SCOPED_TRACE(fmt::format("{} {} rows {} of {} {} {}", matrix.fName, height,
                                             full ? "full" : "limited", rgb[0], rgb[1], rgb[2]));
                    expect_colour(path, rgb, matrix, full, height);
                }
            }
        }
    }
}

TEST(ClipVideo, SaysWhatWillLookOtherThanInTheClip) {
    const std::pair<const char*, const char*> kTold[] = {
        {"color_trc=smpte2084", "(PQ)"},
        {"color_trc=arib-std-b67:colorspace=bt2020nc", "(HLG)"},
        {"colorspace=ycgco", "'ycgco'"},
        {"colorspace=bt2020c", "'bt2020c'"},
        {"color_trc=bt709:colorspace=bt709", ""},
        {"color_trc=bt2020-10:colorspace=bt2020nc", ""},
    };
    const tests::TestFolder folder;
    const std::string path = folder.File("told.mkv");
    for (const auto& [parameters, told] : kTold) {
        SCOPED_TRACE(parameters);
        make_clip(
            path, "color=red:size=64x48:rate=25:duration=0.04",
            std::string("-pix_fmt yuv420p -c:v ffv1 -vf format=yuv420p,setparams=") + parameters);
        const auto clip = open_clip(path);
        ASSERT_TRUE(clip);
        const std::vector<std::string> lines = clip->Cautions();
        ASSERT_EQ(lines.size(), *told ? 1U : 0U);
        if (!*told) continue;
        EXPECT_NE(lines[0].find(told), std::string::npos) << lines[0];
        EXPECT_EQ(lines[0].find("'" + path + "': "), 0U) << lines[0];
    }
}

TEST(ClipVideo, SaysThatItIsMeantToBeShownTurned) {
    const tests::TestFolder folder;
    const std::string upright = folder.File("upright.mp4");
    make_clip(upright, "testsrc2=size=64x48:rate=25:duration=0.2", "-c:v mpeg4");
    ASSERT_EQ(open_clip(upright)->Cautions().size(), 0U);
    for (const int degrees : {90, 180, 270}) {
        SCOPED_TRACE(degrees);
        const std::string turned = folder.File("turned.mp4");
        ASSERT_TRUE(tests::MakeClip(
            turned, fmt::format("-i {} -c copy -metadata:s:v:0 rotate={}", upright, degrees)));
        const auto clip = open_clip(turned);
        ASSERT_TRUE(clip);
        EXPECT_EQ(clip->Format().fWidth.AsInt32(0), 64);
        const std::vector<std::string> lines = clip->Cautions();
        ASSERT_EQ(lines.size(), 1U);
        const std::string told = fmt::format("turned by {} degrees", degrees == 270 ? 90 : degrees);
        EXPECT_NE(lines[0].find(told), std::string::npos) << lines[0];
    }
}

TEST(ClipVideo, SaysWhatItsPicturesThemselvesTellOfHowTheyAreShown) {
    const std::pair<const char*, const char*> kTold[] = {
        {"rotate=90", "shown turned by 90 degrees,"},
        {"flip=horizontal", "shown mirrored,"},
        {"flip=vertical", "shown mirrored,"},
    };
    const tests::TestFolder folder;
    const std::string path = folder.File("told.mkv");
    for (const auto& [orientation, told] : kTold) {
        SCOPED_TRACE(orientation);
        make_clip(path, "testsrc2=size=64x48:rate=25:duration=0.2",
                  std::string("-c:v libx264 -bsf:v h264_metadata=display_orientation=insert:") +
                      orientation);
        const auto clip = open_clip(path);
        ASSERT_TRUE(clip);
        const std::vector<std::string> lines = clip->Cautions();
        ASSERT_EQ(lines.size(), 1U);
        EXPECT_NE(lines[0].find(told), std::string::npos) << lines[0];
    }
}
