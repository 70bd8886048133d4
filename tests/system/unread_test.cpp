// Standard output that nobody reads, or that takes nothing: `tarn ... | head -n 1`, a full disk.

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
using tests::ProcessResult;
using tests::TestFolder;

namespace {

const std::string kTool = TARN_TOOL;
const std::string kCup = TARN_CLIPS "/cup.mp4";

std::vector<std::string> Record(const std::string& movie, std::vector<std::string> options) {
    options.insert(options.begin(), {kTool, "record", kCup, movie, "--video", "MJPEG", "--audio",
                                     "pcm", "--limit", "3"});
    return options;
}

ProcessResult Bash(const std::string& script, std::vector<std::string> words) {
    words.insert(words.begin(), {"bash", "-c", script, "bash"});
    return tests::Run(words);
}

}  // namespace

// Real time passes here: three seconds of a clip at its own pace, of which a line comes each
// second.
TEST(UnreadOutput, RecordingGoesOnToItsEndWithoutAReader) {
    const TestFolder folder;
    const std::string watched = folder.File("watched.mov");
    const std::string left = folder.File("left.mov");
    ASSERT_EQ(tests::Run(Record(watched, {})).exitCode, 0);
    const ProcessResult result =
        Bash("set -o pipefail; env --default-signal=PIPE \"$@\" | head -n 1",
             Record(left, {"--live", "--json"}));
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << result.err;
    EXPECT_NE(result.out.find(R"("event":"progress")"), std::string::npos) << result.out;
    EXPECT_EQ(CountFrames(left), CountFrames(watched));
    EXPECT_NEAR(ProbeSeconds(left, "v:0"), ProbeSeconds(left, "a:0"), 0.0375);
}

TEST(UnreadOutput, EveryCommandComesToItsEndWithoutAReader) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mov");
    const std::string settings = folder.File("iso.xml");
    std::ofstream(settings) << "<iso_output output_display_name=\"one\"/>";
    struct Case {
        std::vector<std::string> words;
        int exitCode;
    };
    const Case cases[] = {
        {{"--help"}, 0},
        {{"probe"}, 0},
        {{"probe", "--json"}, 0},
        {{"clock", "--seconds", "0.3", "--rate", "100"}, 0},
        {{"clock", "--seconds", "0.3", "--rate", "100", "--json"}, 0},
        {{"sync", "signal", clip, "--seconds", "4", "--size", "160x160", "--rate", "25"}, 0},
        {{"sync", "measure", clip}, 0},
        {{"sync", "measure", clip, "--json"}, 0},
        {{"iso", "check", settings}, 1},
        {{"iso", "check", settings, "--json"}, 1},
        {{"iso", "check", settings, "--watch"}, 0},
        {Record(folder.File("movie.mov"), {}), 0},
    };
    for (const Case& c : cases) {
        std::vector<std::string> words = c.words;
        if (words.front() != kTool) words.insert(words.begin(), kTool);
        const ProcessResult result = tests::RunUnread(words);
        EXPECT_EQ(result.exitCode, c.exitCode) << testing::PrintToString(words);
        EXPECT_TRUE(result.err.empty()) << testing::PrintToString(words) << result.err;
    }
    EXPECT_EQ(CountFrames(clip), 100);
    EXPECT_GT(CountFrames(folder.File("movie.mov")), 60);
}

TEST(UnreadOutput, ClosedStreamsAreNotTakenForFiles) {
    const TestFolder folder;
    const std::string movie = folder.File("movie.mov");
    const ProcessResult result =
        Bash("exec \"$@\" <&- >&- 2>&-", Record(movie, {"--live", "--json"}));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_GT(CountFrames(movie), 60);
}

TEST(UnreadOutput, TextThatIsLostIsTold) {
    const ProcessResult result = Bash("exec \"$@\" > /dev/full", {kTool, "probe"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err,
              "tarn: standard output: No space left on device; what it did not take is lost\n");
}
