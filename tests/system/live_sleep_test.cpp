// `tarn live --sleep`: delay at chosen points of a running show. Each frame's sleep is a lower
// bound of its time, so the number of frames has an upper one, however slow the machine is.

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/system/liveKit.h"

using namespace liveKit;

namespace {

constexpr double kSleepSeconds = 0.15;

/// What a show of bars and a clip says at its end; the clip decodes, the bars do not.
std::string DoneWith(const TestFolder& folder, const std::vector<std::string>& sleep) {
    const std::string show =
        WriteShow(folder, Bars() + Clip("cup", kCup) +
                              Output("bars", "take", "QuickTime", folder.File("take.mov"),
                                     R"(<video codecname="MJPEG"/>)"));
    std::vector<std::string> words = {kTool, "live", show, "--json", "--seconds", "3"};
    words.insert(words.end(), sleep.begin(), sleep.end());
    const ProcessResult result = tests::Run(words);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return DoneLine(result);
}

double FramesOf(const std::string& done, const std::string& source) {
    return NumberOf(done, "frames", done.find("\"name\":\"" + source + "\""));
}

/// Frames that fit into the show when each sleeps.
double MostFrames(const std::string& done) {
    return NumberOf(done, "seconds") / kSleepSeconds + 2;
}

}  // namespace

TEST(LiveSleep, SlowRendererHoldsEverySourceUp) {
    const TestFolder folder;
    const std::string done = DoneWith(folder, {"--sleep", "renderer:150-160"});
    EXPECT_GE(FramesOf(done, "bars"), 1) << done;
    EXPECT_LE(FramesOf(done, "bars"), MostFrames(done)) << done;
    EXPECT_GE(FramesOf(done, "cup"), 1) << done;
    EXPECT_LE(FramesOf(done, "cup"), MostFrames(done)) << done;
    // The movie is whole all the same.
    const std::vector<int> numbers = NumbersIn(folder.File("take.mov"), folder);
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(numbers.front(), 0);
    ExpectInSequence(numbers, "take.mov");
}

TEST(LiveSleep, SlowDecompressorHoldsClipsUp) {
    const TestFolder folder;
    const std::string done = DoneWith(folder, {"--sleep", "decompressor:150"});
    EXPECT_GE(FramesOf(done, "cup"), 1) << done;
    EXPECT_LE(FramesOf(done, "cup"), MostFrames(done)) << done;
    EXPECT_GE(FramesOf(done, "bars"), 1) << done;
}

TEST(LiveSleep, SaysWhatIsWrong) {
    const TestFolder folder;
    const std::string show = WriteShow(folder, Bars());
    for (const char* sleep : {"renderer", "encoder:20", "renderer:fast", "renderer:1-2-3"}) {
        const ProcessResult result =
            tests::Run({kTool, "live", show, "--seconds", "0.1", "--sleep", sleep});
        EXPECT_NE(result.exitCode, 0) << sleep;
        EXPECT_NE((result.out + result.err).find("--sleep"), std::string::npos) << result.err;
    }
}
