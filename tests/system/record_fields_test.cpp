// `tarn record` of interlaced clips: which field comes first, and pixels that are not square, have
// to stand in every kind of file.

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::MakeClip;
using tests::MediaInfo;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::Psnr;
using tests::TestFolder;

namespace {

struct Fields {
    const char* name;
    const char* tinterlace;  // how ffmpeg weaves two pictures into one
    const char* setfield;
    const char* top;
    const char* order;  // as ffprobe says it: of woven fields, the first displayed in front
    const char* scanOrder;
};

constexpr Fields kFields[] = {
    {"TopFirst", "interleave_top", "tff", "1", "tb", "TFF"},
    {"BottomFirst", "interleave_bottom", "bff", "0", "bt", "BFF"},
};

void PrintTo(const Fields& fields, std::ostream* out) {
    *out << fields.name;
}

/// What the decoder says of the first picture: whether it is of two fields, and whether the top one
/// comes first.
std::string first_picture(const std::string& file) {
    const ProcessResult probed = tests::Run(
        {"ffprobe", "-v", "error", "-select_streams", "v:0", "-read_intervals", "%+#1",
         "-show_entries", "frame=interlaced_frame,top_field_first", "-of", "default=nw=1", file});
    return probed.out.substr(0, probed.out.find('\n', probed.out.find("top_field_first")));
}

std::string fields_of(const char* topFirst) {
    return std::string("interlaced_frame=1\ntop_field_first=") + topFirst;
}

/// A second of 576i25 with 16:15 pixels.
std::string interlaced_clip(const TestFolder& folder, const Fields& fields) {
    const std::string clip = folder.File("fields.mpg");
    const std::string weave = std::string("tinterlace=mode=") + fields.tinterlace +
                              ",setfield=" + fields.setfield + ",setsar=16/15,format=yuv420p";
    EXPECT_TRUE(MakeClip(clip, "-f lavfi -i testsrc2=size=720x576:rate=50:duration=1 -vf " + weave +
                                   " -c:v mpeg2video -q:v 2 -flags +ilme+ildct -top " +
                                   fields.top));
    return clip;
}

class RecordedFields : public testing::TestWithParam<Fields> {};

TEST_P(RecordedFields, KeepTheirOrderAndTheShapeOfTheirPixels) {
    const TestFolder folder;
    const Fields& fields = GetParam();
    const std::string clip = interlaced_clip(folder, fields);
    const std::vector<std::string> kinds[] = {
        {"ProRes", "--quality", "prores_422_hq"},
        {"MJPEG"},
        {"x264", "--bitrate", "8000"},
        {"Mpeg2", "--bitrate", "15000"},
    };
    for (const std::vector<std::string>& kind : kinds) {
        SCOPED_TRACE(kind[0]);
        const std::string file = folder.File(kind[0] + ".mov");
        std::vector<std::string> words = {TARN_TOOL, "record", clip,     file,
                                          "--audio", "none",   "--video"};
        words.insert(words.end(), kind.begin(), kind.end());
        const ProcessResult run = tests::Run(words);
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_EQ(ProbeStream(file, "v:0", "field_order"), fields.order);
        // JPEG pictures do not say how their rows are woven.
        if (kind[0] != "MJPEG") {
            EXPECT_EQ(first_picture(file), fields_of(fields.top));
        }
        EXPECT_EQ(ProbeStream(file, "v:0", "sample_aspect_ratio"), "16:15");
        EXPECT_EQ(MediaInfo(file, "Video", "ScanOrder"), fields.scanOrder);
        EXPECT_EQ(MediaInfo(file, "Video", "ScanType_StoreMethod"), "InterleavedFields");
        // Chroma of ProRes takes the way to 4:2:2 and back by other filters; a picture whose fields
        // were taken for the other's is far below this.
        EXPECT_GE(Psnr(file, clip), 30);
    }
}

INSTANTIATE_TEST_SUITE_P(Orders, RecordedFields, testing::ValuesIn(kFields),
                         [](const auto& test) { return test.param.name; });

struct Clip {
    const char* file;
    const char* encoder;
    const char* top;
};

/// A fifth of a second of 576i25, of pictures that ffmpeg says are woven as `top` says.
void make_woven(const std::string& file, const Clip& clip) {
    const Fields& fields = kFields[*clip.top == '1' ? 0 : 1];
    const std::string weave =
        std::string("tinterlace=mode=") + fields.tinterlace + ",setfield=" + fields.setfield;
    ASSERT_TRUE(MakeClip(file, "-f lavfi -i testsrc2=size=720x576:rate=50:duration=0.4 -vf " +
                                   weave + " " + clip.encoder));
    ASSERT_EQ(first_picture(file), fields_of(clip.top));
}

// Containers call the order of woven fields by several names, and some are silent about it.
TEST(RecordFields, OfEveryKindOfClipKeepTheirOrder) {
    const char* const prores = "-c:v prores_ks -flags +ildct";
    const char* const top = "-c:v libx264 -flags +ildct -x264opts tff=1";
    const char* const bottom = "-c:v libx264 -flags +ildct -x264opts bff=1";
    const char* const dv = "-c:v dvvideo -pix_fmt yuv420p";
    const Clip clips[] = {{"prores.mov", prores, "1"}, {"prores.mov", prores, "0"},
                          {"h264.mkv", top, "1"},      {"h264.mkv", bottom, "0"},
                          {"dv.mov", dv, "0"},         {"dv.avi", dv, "0"}};
    const TestFolder folder;
    for (const Clip& clip : clips) {
        SCOPED_TRACE(std::string(clip.file) + ", top first: " + clip.top);
        const std::string input = folder.File(clip.file);
        make_woven(input, clip);
        for (const char* encoder : {"x264", "ProRes"}) {
            SCOPED_TRACE(encoder);
            const std::string file = folder.File("out.mov");
            const ProcessResult run = tests::Run(
                {TARN_TOOL, "record", input, file, "--audio", "none", "--video", encoder});
            ASSERT_EQ(run.exitCode, 0) << run.err;
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(first_picture(file), fields_of(clip.top));
            EXPECT_EQ(MediaInfo(file, "Video", "ScanOrder"), *clip.top == '1' ? "TFF" : "BFF");
            EXPECT_EQ(tests::CountFrames(file), 10);
        }
    }
}

/// Two pictures whose top field is dark and whose bottom field is bright, with 16:15 pixels.
void make_stripes(const std::string& file, const std::string& size) {
    ASSERT_TRUE(MakeClip(
        file,
        "-f lavfi -i nullsrc=rate=25:duration=0.08:size=" + size +
            " -vf format=yuv420p,geq=lum=if(mod(Y\\,2)\\,200\\,50):cb=128:cr=128,setfield=tff,"
            "setsar=16/15 -c:v ffv1 -level 3 -flags +ildct"));
}

TEST(RecordFields, AreStillTwoWherePicturesAreScaled) {
    const TestFolder folder;
    const std::string clip = folder.File("stripes.mkv");
    const std::string reference = folder.File("half.mkv");
    make_stripes(clip, "720x576");
    make_stripes(reference, "720x288");
    const std::string file = folder.File("half.mov");
    const ProcessResult run =
        tests::Run({TARN_TOOL, "record", clip, file, "--audio", "none", "--size", "720x288",
                    "--video", "ProRes", "--quality", "prores_422_hq"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(first_picture(file), fields_of("1"));
    EXPECT_EQ(ProbeStream(file, "v:0", "display_aspect_ratio"), "4:3");
    EXPECT_GE(Psnr(file, reference), 40);
}

TEST(RecordPictures, ThatAreMeantToBeTurnedAreRecordedWithAWord) {
    const TestFolder folder;
    const std::string upright = folder.File("upright.mp4");
    const std::string turned = folder.File("turned.mp4");
    ASSERT_TRUE(
        MakeClip(upright, "-f lavfi -i testsrc2=size=160x120:rate=25:duration=0.4 -c:v mpeg4"));
    ASSERT_TRUE(MakeClip(turned, "-i " + upright + " -c copy -metadata:s:v:0 rotate=90"));
    const ProcessResult run =
        tests::Run({TARN_TOOL, "record", turned, folder.File("out.mov"), "--audio", "none"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "tarn record: '" + turned +
                           "': is meant to be shown turned by 90 degrees, and is recorded as its "
                           "pixels lie; turn it first, as any conversion by ffmpeg does\n");
}

}  // namespace
