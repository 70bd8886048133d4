// `tarn record` of interlaced clips: which field comes first, and pixels that are not square, have
// to stand in every kind of file.

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

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

/// A second of 576i25 with 16:15 pixels.
std::string interlaced_clip(const TestFolder& folder, const Fields& fields) {
    const std::string clip = folder.File("fields.mpg");
    const std::string weave = std::string("tinterlace=mode=") + fields.tinterlace +
                              ",setfield=" + fields.setfield + ",setsar=16/15,format=yuv420p";
    const ProcessResult made =
        tests::Run({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc2=size=720x576:rate=50:duration=1", "-vf", weave, "-c:v", "mpeg2video",
                    "-q:v", "2", "-flags", "+ilme+ildct", "-top", fields.top, clip});
    EXPECT_EQ(made.exitCode, 0) << made.err;
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

}  // namespace
