// `tarn record` that is stopped before its clip is over: the file is closed and whole.

#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/support/MakeClip.h"
#include "tests/support/Probe.h"
#include "tests/support/Process.h"
#include "tests/support/TestFolder.h"
#include "tests/system/liveKit.h"

using liveKit::NumberOf;
using tests::BackgroundProcess;
using tests::CountFrames;
using tests::ProbeSeconds;
using tests::ProcessResult;
using tests::TestFolder;

namespace {

const std::string kPhoto = TARN_CLIPS "/photo_1080p60.mkv";
constexpr int kPhotoFrames = 360;
const std::string kMusic = TARN_CLIPS "/time_to_strike.mp3";

/// A recording that runs beside the test and tells once a second how far it is. `timeout` passes a
/// signal on to its child and then to the whole group: what stops the recording comes twice.
class Recording {
public:
    Recording(const std::string& input, const std::string& output, std::vector<std::string> options)
        : fProcess(words(input, output, std::move(options))) {}

    /// Waits for a line that `isFarEnough` takes.
    template <typename IsFarEnough>
    void WaitUntil(const IsFarEnough& isFarEnough) {
        std::string line;
        bool isThere = false;
        while (!isThere && fProcess.ReadLine(line)) isThere = isFarEnough(line);
        ASSERT_TRUE(isThere) << fProcess.Wait().err;
    }
    ProcessResult StopBy(int signal) {
        fProcess.Signal(signal);
        return fProcess.Wait();
    }

private:
    static std::vector<std::string> words(const std::string& input, const std::string& output,
                                          std::vector<std::string> options) {
        options.insert(options.begin(),
                       {"timeout", "120", liveKit::kTool, "record", input, output, "--json"});
        return options;
    }

    BackgroundProcess fProcess;
};

void ExpectStopped(const ProcessResult& result) {
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("\"stopped\":true"), std::string::npos) << result.out;
}

class StoppedBy : public testing::TestWithParam<int> {};

TEST_P(StoppedBy, AtTheClipsPaceClosesTheFile) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    Recording recording(liveKit::kCup, file, {"--live", "--video", "MJPEG", "--audio", "pcm"});
    // Real time passes here: of a clip of eight seconds at its own pace.
    recording.WaitUntil([](const std::string& line) { return NumberOf(line, "seconds") >= 0.5; });
    ExpectStopped(recording.StopBy(GetParam()));
    const double video = ProbeSeconds(file, "v:0");
    EXPECT_GT(video, 0.3);
    EXPECT_LT(video, 7.0);
    EXPECT_NEAR(video, ProbeSeconds(file, "a:0"), 0.0375);
}

INSTANTIATE_TEST_SUITE_P(Signals, StoppedBy, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& row) { return "Signal" + std::to_string(row.param); });

TEST(RecordStop, AsFastAsItGoesKeepsEveryPictureThatWasTaken) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    Recording recording(kPhoto, file,
                        {"--video", "ProRes", "--audio", "pcm", "--audio-input", kMusic});
    recording.WaitUntil([](const std::string& line) { return NumberOf(line, "frames") >= 1; });
    const ProcessResult result = recording.StopBy(SIGINT);
    ExpectStopped(result);
    const int frames = CountFrames(file);
    EXPECT_EQ(frames, NumberOf(result.out, "frames", result.out.rfind("\"event\":\"done\"")));
    EXPECT_GT(frames, 0);
    EXPECT_LT(frames, kPhotoFrames);
    EXPECT_NEAR(ProbeSeconds(file, "v:0"), ProbeSeconds(file, "a:0"), 1.0 / 60);
}

TEST(RecordStop, SoundAloneClosesTheFile) {
    const TestFolder folder;
    const std::string file = folder.File("out.mov");
    Recording recording(kMusic, file, {"--video", "none", "--audio", "pcm", "--live"});
    recording.WaitUntil([](const std::string& line) { return NumberOf(line, "seconds") >= 0.5; });
    const ProcessResult result = recording.StopBy(SIGINT);
    ExpectStopped(result);
    const double told = NumberOf(result.out, "seconds", result.out.rfind("\"event\":\"done\""));
    EXPECT_NEAR(ProbeSeconds(file, "a:0"), told, 0.001);
    EXPECT_LT(told, 60);
}

// Gives every caller all of the clip but its last quarter, and then says nothing more.
const char* const kStallingServer = R"(
import socket, sys, threading, time
clip = open(sys.argv[1], 'rb').read()
def serve(peer):
    peer.sendall(clip[:len(clip) * 3 // 4])
    time.sleep(1000)
server = socket.create_server(('127.0.0.1', 0))
print(server.getsockname()[1], flush=True)
while True:
    threading.Thread(target=serve, args=[server.accept()[0]], daemon=True).start()
)";

TEST(RecordStop, ANetworkPeerThatSaysNoMoreKeepsNobodyWaiting) {
    const TestFolder folder;
    const std::string clip = folder.File("clip.mkv");
    ASSERT_TRUE(tests::MakeClip(clip,
                                "-f lavfi -i testsrc2=s=160x120:r=25:d=4 "
                                "-f lavfi -i sine=r=48000:d=4 -c:v mjpeg -c:a pcm_s16le"));
    BackgroundProcess server({"python3", "-c", kStallingServer, clip});
    std::string port;
    ASSERT_TRUE(server.ReadLine(port));

    const std::string file = folder.File("out.mov");
    Recording recording("tcp://127.0.0.1:" + port, file, {"--video", "MJPEG", "--audio", "pcm"});
    double before = -1;
    int alike = 1;
    recording.WaitUntil([&](const std::string& line) {
        const double now = NumberOf(line, "frames");
        alike = now == before ? alike + 1 : 1;
        before = now;
        return now > 0 && alike == 3;
    });
    ExpectStopped(recording.StopBy(SIGINT));
    EXPECT_GE(CountFrames(file), before);
    EXPECT_GT(CountFrames(file), 50);
    EXPECT_NEAR(ProbeSeconds(file, "v:0"), ProbeSeconds(file, "a:0"), 0.04);
}

}  // namespace
