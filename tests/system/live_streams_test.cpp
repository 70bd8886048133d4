// `tarn live`: whole shows on real clips and on generated pictures, checked with ffprobe,
// mediainfo, GStreamer and ffmpeg. A show takes real time by its nature; these run a few seconds
// each, wait for what the show reports rather than for the clock, and set no limit to how late
// anything is.

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "tests/support/WaitUntil.h"
#include "tests/system/liveKit.h"

using namespace liveKit;

namespace {

/// A port of this machine that somebody listens to, until it is closed: the one that is asked for,
/// or any.
class Listener {
public:
    explicit Listener(int port = 0) : fSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (bind(fSocket, reinterpret_cast<sockaddr*>(&address), length) != 0) return;
        getsockname(fSocket, reinterpret_cast<sockaddr*>(&address), &length);
        fPort = ntohs(address.sin_port);
    }
    ~Listener() { close(fSocket); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    bool Listens() const { return fPort != 0; }
    std::string Address() const { return "udp://127.0.0.1:" + std::to_string(fPort); }

private:
    const int fSocket;
    int fPort = 0;
};

/// A port that nobody has, below those that the system gives to whoever asks for any: a test beside
/// this one shall not get it before it is listened to here.
std::string free_address() {
    constexpr int kPorts = 12000;
    for (int i = 0; i < kPorts; ++i) {
        const Listener free(20000 + (getpid() + i) % kPorts);
        if (free.Listens()) return free.Address();
    }
    ADD_FAILURE() << "every port is taken";
    return "";
}

/// Waits until the file has not grown for a second: what was on its way to it is there then.
void wait_until_it_stands(const std::string& path) {
    std::uintmax_t before = 0;
    int alike = 0;
    EXPECT_TRUE(tests::WaitUntil(
        [&] {
            std::error_code error;
            const std::uintmax_t size = std::filesystem::file_size(path, error);
            alike = !error && size > 0 && size == before ? alike + 1 : 0;
            before = size;
            return alike == 10;
        },
        std::chrono::milliseconds(100)));
}

}  // namespace

TEST(Live, SixOutputsOfTwoClipsWithOneAddedAndOneRemoved) {
    const TestFolder folder;
    const std::string address = free_address();
    RunningShow show(WriteShow(
        folder, Clip("cup", kCup) + Clip("box", kBox) +
                    Output("cup", "prores", "QuickTime", folder.File("prores.mov"), kProRes) +
                    Output("box", "mjpeg", "QuickTime", folder.File("mjpeg.mov"), kMjpeg) +
                    Output("cup", "mov", "Shared QuickTime", folder.File("shared.mov"), kX264) +
                    Output("cup", "mp4", "Shared MPEG-4", folder.File("shared.mp4"), kX264) +
                    Output("cup", "ts", "MPEG-TS", folder.File("shared.ts"), kX264) +
                    Output("cup", "udp", "MPEG-TS", address, kX264)));
    ASSERT_TRUE(show.PlayTo(0.5)) << show.End().err;
    // The receiver ends by itself only when nothing comes for so long that the show must be gone.
    BackgroundProcess receiver({"ffmpeg", "-v", "error", "-nostdin", "-y", "-i",
                                address + "?timeout=60000000&fifo_size=100000", "-c", "copy",
                                folder.File("received.ts")});
    ASSERT_TRUE(show.PlayTo(3));
    ASSERT_TRUE(show.Command(
        "add " + Output("box", "late", "Shared QuickTime", folder.File("late.mov"), kX264)))
        << show.Line();
    ASSERT_TRUE(show.PlayTo(5));
    ASSERT_TRUE(show.Command("remove mp4")) << show.Line();
    ASSERT_TRUE(show.PlayTo(8));
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    EXPECT_EQ(end.err, "") << "quiet in a pipe";
    const std::string done = DoneLine(end);
    EXPECT_EQ(NumberOf(done, "skipped"), 0) << done;
    EXPECT_EQ(done.find("\"failed\""), std::string::npos) << done;

    const double cup = 1000.0 / 26777;
    const double box = 1001.0 / 30000;
    ExpectWholeMovie(folder.File("prores.mov"), "prores", cup, 200);
    ExpectWholeMovie(folder.File("mjpeg.mov"), "mjpeg", box, 200);
    // An encoder that looks ahead keeps the last pictures.
    ExpectWholeMovie(folder.File("shared.mov"), "h264", cup, 180);
    ExpectWholeMovie(folder.File("shared.mp4"), "h264", cup, 100);
    ExpectWholeMovie(folder.File("shared.ts"), "h264", cup, 180);
    ExpectWholeMovie(folder.File("late.mov"), "h264", box, 90);
    wait_until_it_stands(folder.File("received.ts"));
    // The first ends it when the next datagram comes, the second at once.
    receiver.Signal(SIGINT);
    receiver.Signal(SIGTERM);
    receiver.Wait();
    ExpectSteadyPictures(folder.File("received.ts"), cup, 90);
    EXPECT_EQ(ProbeStream(folder.File("received.ts"), "v:0", "codec_name"), "h264");
    EXPECT_EQ(ProbeStream(folder.File("received.ts"), "a:0", "codec_name"), "aac");
}

// A datagram to nobody is lost without a word; where the socket is connected the system says that
// the peer is gone.
TEST(Live, AReceiverThatIsGoneStopsThatOutputAlone) {
    const TestFolder folder;
    auto receiver = std::make_unique<Listener>();
    auto other = std::make_unique<Listener>();
    ASSERT_TRUE(receiver->Listens() && other->Listens());
    RunningShow show(WriteShow(
        folder, Bars("tone=\"440\"") +
                    Output("bars", "told", "MPEG-TS", receiver->Address() + "?connect=1", kX264) +
                    Output("bars", "untold", "MPEG-TS", other->Address(), kX264) +
                    Output("bars", "file", "Shared MPEG-4", folder.File("file.mp4"), kX264)));
    ASSERT_TRUE(show.PlayTo(1)) << show.End().err;
    receiver.reset();
    other.reset();
    ASSERT_TRUE(show.ReadUntil([](const std::string& line) {
        return PartOf(line, "told").find("\"failed\"") != std::string::npos;
    }));
    ASSERT_TRUE(show.PlayTo(5));
    const ProcessResult end = show.Quit();
    EXPECT_EQ(end.exitCode, 1) << "an output failed";
    const std::string done = DoneLine(end);
    EXPECT_LT(NumberOf(PartOf(done, "told"), "status"), 0) << done;
    EXPECT_NE(PartOf(done, "untold").find(R"("state":"ended")"), std::string::npos) << done;
    EXPECT_NE(PartOf(done, "file").find(R"("state":"ended")"), std::string::npos) << done;
    const std::vector<int> numbers = NumbersIn(folder.File("file.mp4"), folder);
    EXPECT_GT(numbers.size(), 90u);
    EXPECT_EQ(numbers.front(), 0);
    ExpectInSequence(numbers, "file.mp4");
}
