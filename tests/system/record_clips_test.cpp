// `tarn record` of clips that are unusual as files: how they are named, what else is in them, how
// they end.

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"

using tests::CountFrames;
using tests::ProbeSeconds;
using tests::ProbeStream;
using tests::ProcessResult;
using tests::TestFolder;

namespace {

const std::string kTool = TARN_TOOL;

/// In `folder`, so that names without a path can be given.
ProcessResult RunIn(const TestFolder& folder, std::vector<std::string> words) {
    words.insert(words.begin(), {"env", "-C", folder.Path()});
    return tests::Run(words);
}

ProcessResult RecordIn(const TestFolder& folder, const std::string& input,
                       const std::string& output, std::vector<std::string> options) {
    options.insert(options.begin(), {kTool, "record", input, output});
    return RunIn(folder, options);
}

/// A clip of test pictures at 25 a second and a tone, made by ffmpeg with `options`.
std::string MakeClip(const TestFolder& folder, const std::string& name, double pictureSeconds,
                     double soundSeconds, std::vector<std::string> options) {
    std::vector<std::string> words = {"ffmpeg", "-v", "error"};
    const auto add = [&words](const std::string& source) {
        words.insert(words.end(), {"-f", "lavfi", "-i", source});
    };
    if (pictureSeconds > 0) add("testsrc2=s=160x120:r=25:d=" + std::to_string(pictureSeconds));
    if (soundSeconds > 0) add("sine=r=48000:d=" + std::to_string(soundSeconds));
    words.insert(words.end(), options.begin(), options.end());
    words.push_back(folder.File(name));
    const ProcessResult made = tests::Run(words);
    EXPECT_EQ(made.exitCode, 0) << made.err;
    return folder.File(name);
}

// What stands before a colon looks like the name of a protocol.
class NamesWithColons : public testing::TestWithParam<const char*> {};

TEST_P(NamesWithColons, AreFilesAsInputAndAsOutput) {
    const TestFolder folder;
    const std::string name = GetParam();
    MakeClip(folder, "base.mov", 1, 1, {"-c:v", "mjpeg", "-c:a", "pcm_s16le"});
    const ProcessResult written =
        RecordIn(folder, "base.mov", name, {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(written.exitCode, 0) << written.err;
    EXPECT_NE(written.out.find("(25 frames)"), std::string::npos) << written.out;
    ASSERT_TRUE(std::filesystem::exists(folder.File(name)));
    EXPECT_EQ(CountFrames(folder.File(name)), 25);

    const ProcessResult read =
        RecordIn(folder, name, "copy.mov", {"--video", "MJPEG", "--audio", "pcm"});
    EXPECT_EQ(read.exitCode, 0) << read.err;
    EXPECT_EQ(CountFrames(folder.File("copy.mov")), 25);
}

INSTANTIATE_TEST_SUITE_P(All, NamesWithColons,
                         testing::Values("10:30 a.mov", "show: part 1.mov", "file:x.mov",
                                         "cache:z.mov", "pipe:0.mov", "concat:a|b.mov",
                                         "subfile,,start,1,end,2,,:x.mov"));

}  // namespace
