// An output that dies says so and dies alone: a full disk, a peer that is gone, a file that takes
// nothing more. The others miss nothing.

#include <algorithm>
#include <arpa/inet.h>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

#include "orb/MovieFileInventory.h"
#include "orb/container/MovieFile.h"
#include "tarn/writers/writerErrors.h"

#include "tests/support/FullDisk.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/addonHost.h"
#include "tests/support/orbDoubles.h"

using namespace addonTest;
using namespace Quillon::Orb;

namespace {

constexpr double kFrame = 1001.0 / 30000;

std::mutex gGateLock;
std::condition_variable gGate;
bool gGateOpen = false;  // under gGateLock
int gStuckFiles = 0;     // under gGateLock

/// A movie file on a disk that does not answer before the gate opens, if its name says so.
class StuckDisk final : public MovieFile {
public:
    StuckDisk(const char* path, const MovieFileOptions& options)
        : fIsStuck(std::string(path).find("stuck") != std::string::npos),
          fFile(MakeMovieFile(path, options)) {
        const std::lock_guard<std::mutex> lock(gGateLock);
        gStuckFiles += fIsStuck ? 1 : 0;
    }
    ~StuckDisk() override {
        const std::lock_guard<std::mutex> lock(gGateLock);
        gStuckFiles -= fIsStuck ? 1 : 0;
        gGate.notify_all();
    }
    int AddTrack(const MovieTrack& track) override { return fFile->AddTrack(track); }
    Result Begin() override { return fFile->Begin(); }
    Result WriteSample(int track, const MovieSample& sample) override {
        if (fIsStuck) {
            std::unique_lock<std::mutex> lock(gGateLock);
            gGate.wait(lock, [] { return gGateOpen; });
        }
        return fFile->WriteSample(track, sample);
    }
    Result Finish() override { return fFile->Finish(); }

private:
    const bool fIsStuck;
    const std::unique_ptr<MovieFile> fFile;
};

std::unique_ptr<MovieFile> make_stuck_disk(const char* path, const MovieFileOptions& options) {
    return std::make_unique<StuckDisk>(path, options);
}

class Failures : public AddonTest {};

// Waits for real: a tenth of a second for the end of an output that has none.
TEST_F(Failures, ADiskThatNeverAnswersKeepsNobody) {
    {
        const std::lock_guard<std::mutex> lock(gGateLock);
        gGateOpen = false;
    }
    MovieFileInventory::Add('mov ', make_stuck_disk);
    Camera camera(1);
    zRecord settings;
    settings.SetDouble("stop_seconds", 0.1);
    Show stuck("Shared QuickTime", {camera.H264(), camera.Aac()});
    Show well("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(stuck.Add(fFolder.File("stuck.mov"), &settings), 0);
    ASSERT_EQ(well.Add(fFolder.File("well.mov")), 0);
    camera.Write(0, 400);
    EXPECT_EQ(stuck.Remove(), 0);
    EXPECT_EQ(well.Remove(), 0);
    MovieFileInventory::Add('mov ', nullptr);
    EXPECT_EQ(stuck.Statistics(TN_MEDIA_VIDEO).fStatus, -14);
    EXPECT_EQ(well.Statistics(TN_MEDIA_VIDEO).fState, 0);
    ExpectEveryFrame(fFolder.File("well.mov"), 0, kFrame, 370);
    std::unique_lock<std::mutex> lock(gGateLock);
    gGateOpen = true;
    gGate.notify_all();
    gGate.wait(lock, [] { return gStuckFiles == 0; });
}

// A raw file's writes wait for their disk, but not while the others fall behind; and it goes on
// when the disk comes back. Waits for real: what a WaitAllowance has.
TEST_F(Failures, ADiskThatComesBackGoesOn) {
    gGateOpen = false;  // no file stands
    MovieFileInventory::Add('mov ', make_stuck_disk);
    Camera camera(1);
    Show stuck("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show well("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(stuck.Add(fFolder.File("stuck.mov")), 0);
    ASSERT_EQ(well.Add(fFolder.File("well.mov")), 0);
    camera.Write(0, 360);
    EXPECT_EQ(stuck.Statistics(TN_MEDIA_VIDEO).fState, 2);
    EXPECT_EQ(stuck.Statistics(TN_MEDIA_VIDEO).fStatus, kOutputLeavesOut);
    EXPECT_EQ(stuck.Statistics(TN_MEDIA_AUDIO).fState, 0);
    EXPECT_EQ(well.Statistics(TN_MEDIA_VIDEO).fState, 0);
    {
        const std::lock_guard<std::mutex> lock(gGateLock);
        gGateOpen = true;
        gGate.notify_all();
    }
    int frame = 360;
    ASSERT_TRUE(tests::WaitUntil(
        [&] {
            camera.Write(frame, frame + 1);
            ++frame;
            return stuck.Statistics(TN_MEDIA_VIDEO).fState == 0;
        },
        std::chrono::milliseconds(5)));
    camera.Write(frame, frame + 30);
    EXPECT_EQ(stuck.Remove(), 0);
    EXPECT_EQ(well.Remove(), 0);
    MovieFileInventory::Add('mov ', nullptr);
    EXPECT_EQ(stuck.Statistics(TN_MEDIA_VIDEO).fState, 0);
    ExpectEveryFrame(fFolder.File("well.mov"), 0, kFrame, 360);
    const std::vector<Packet> kept = PacketsOf(fFolder.File("stuck.mov"), "v:0");
    ASSERT_GT(kept.size(), 100u);
    EXPECT_NEAR(kept.front().shown, 0, 0.001);
    EXPECT_NEAR(kept.back().shown, camera.SecondsOf(frame + 29), 0.001) << "in its place";
    const std::vector<Packet> heard = PacketsOf(fFolder.File("stuck.mov"), "a:0");
    ASSERT_FALSE(heard.empty());
    EXPECT_NEAR(heard.back().shown + heard.back().duration, camera.SecondsOf(frame + 30), 0.001);
}

TEST_F(Failures, AFullDiskEndsOneOutputAndNoOther) {
    const tests::FullDisk disk(20, true, "full");
    Camera camera(1);
    Show full("Shared QuickTime", {camera.H264(), camera.Aac()});
    Show fullRaw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show well("Shared QuickTime", {camera.H264(), camera.Aac()});
    Show wellRaw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    ASSERT_EQ(full.Add(fFolder.File("full.mov")), 0);
    ASSERT_EQ(fullRaw.Add(fFolder.File("full_raw.mov")), 0);
    ASSERT_EQ(well.Add(fFolder.File("well.mov")), 0);
    ASSERT_EQ(wellRaw.Add(fFolder.File("well_raw.mov")), 0);
    camera.Write(0, 90);
    for (Show* show : {&full, &fullRaw, &well, &wellRaw}) EXPECT_EQ(show->Remove(), 0);

    for (Show* show : {&full, &fullRaw}) {
        const tn_output_statistics statistics = show->Statistics(TN_MEDIA_VIDEO);
        EXPECT_EQ(statistics.fState, 2);
        EXPECT_TRUE(statistics.fStatus == -1052 || statistics.fStatus == -1059 ||
                    statistics.fStatus == -1006)
            << statistics.fStatus;
    }
    EXPECT_GT(full.Statistics(TN_MEDIA_VIDEO).fStatusValue, 0);
    for (Show* show : {&well, &wellRaw}) EXPECT_EQ(show->Statistics(TN_MEDIA_VIDEO).fState, 0);
    ExpectEveryFrame(fFolder.File("well.mov"), 0, kFrame, 60);
    ExpectEveryFrame(fFolder.File("well_raw.mov"), 0, kFrame, 89);
    EXPECT_GT(PacketsOf(fFolder.File("full.mov"), "v:0").size(), 3u);
}

// Nothing looks at the answers to frames, so that such an output would be empty without a word.
TEST_F(Failures, AnEncoderThatCannotTakeTheSourceIsToldOf) {
    const Camera camera(1);
    Show show("Shared QuickTime", {camera.H264()});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);  // nobody knows the source yet
    tnMediaRecord source = camera.Picture(nullptr);
    source.fColourspace.SetInt32('what');
    tnFilterManager::Default()->SetInputFormat(1, source);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 2);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, -1037);
}

TEST_F(Failures, AnEncoderThatIsNotThereIsToldOf) {
    orbDoubles::Script script;
    orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> noX264('h264', script);
    orbDoubles::Registered<CVideoCompressor, orbDoubles::Compressor> noProRes('vtbx', script);
    noX264.GiveNull();
    noProRes.GiveNull();
    for (const char* codec : {"x264", "ProRes"}) {
        SCOPED_TRACE(codec);
        Camera camera(1);
        Show show("Shared QuickTime", {camera.Picture(codec)});
        ASSERT_EQ(show.Add(fFolder.File(std::string(codec) + ".mov")), 0);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        camera.Write(0, 2);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 2);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, -1044);
    }
}

// Files that convert sound for themselves take it as it comes, but not without a shape.
TEST_F(Failures, SoundThatNobodyDescribedIsToldOf) {
    const struct {
        int rate;
        int channels;
        int bits;
        int status;
    } rows[] = {{48000, 2, 16, 0},
                {48000, 2, 24, 0},
                {0, 2, 16, -1041},
                {48000, 0, 16, -1041},
                {48000, 2, 0, -1041}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.rate << " Hz, " << row.channels << " x " << row.bits << " bits");
        const Camera camera(1);
        Show show("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
        ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
        tnMediaRecord source = camera.Sound(nullptr);
        source.fSampleRate.SetInt32(row.rate);
        source.fChannels.SetInt32(row.channels);
        source.fBitsPerSample.SetInt32(row.bits);
        tnFilterManager::Default()->SetInputFormat(2, source);
        EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fState, row.status == 0 ? 0 : 2);
        EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, row.status);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        show.End();
    }
}

// Pictures would wait for such sound, and then begin without it.
TEST_F(Failures, SoundThatCannotBeEncodedIsToldOf) {
    const struct {
        const char* codec;
        int bits;      ///< of the source
        int channels;  ///< of the source
        const char* trouble;
        int status;
    } rows[] = {{"MPEG-4 Audio", 16, 2, "", 0},
                {"MPEG-4 Audio", 16, 0, "", -1041},
                {"MPEG-4 Audio", 24, 2, "", -1054},
                {"MPEG-4 Audio", 16, 2, "is not there", -1055},
                {"MPEG-4 Audio", 16, 2, "does not begin", -1056},
                {"MPEG-4 Audio", 16, 2, "refuses", -1057},
                {"PCM", 16, 2, "", 0},
                {"PCM", 24, 2, "", -1054}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.codec << ", " << row.bits << " bits, "
                                        << row.channels << " channels " << row.trouble);
        const std::string trouble = row.trouble;
        orbDoubles::Script script;
        script.failBegin = trouble == "does not begin";
        if (trouble == "refuses") script.refused = {"AudioCompressor::BitRate"};
        std::optional<orbDoubles::Registered<CAudioCompressor, orbDoubles::AudioDouble>> encoder;
        if (!trouble.empty()) encoder.emplace('caac', script);
        if (trouble == "is not there") encoder->GiveNull();
        const Camera camera(1);
        Show show("Shared QuickTime", {camera.H264(), camera.Sound(row.codec)});
        ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
        tnMediaRecord source = camera.Sound(nullptr);
        source.fBitsPerSample.SetInt32(row.bits);
        source.fChannels.SetInt32(row.channels);
        tnFilterManager::Default()->SetInputFormat(2, source);
        EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fState, row.status == 0 ? 0 : 2);
        EXPECT_EQ(show.Statistics(TN_MEDIA_AUDIO).fStatus, row.status);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
        show.End();
    }
}

class OddPictures : public AddonTest {
protected:
    static constexpr int kFrames = 150;

    /// Past what is borne: of the pictures that wait together for the encoder only one is told of.
    static constexpr int kManyFrames = 240;

    /// A movie whose source gives frames of another shape from `from` on, `odd` of them.
    tn_output_statistics record(const char* codec, int from, int odd, int width, int height,
                                int raster) {
        Camera camera(1);
        const bool isShared = std::string(codec) == "shared";
        Show show(isShared ? "Shared QuickTime" : "QuickTime",
                  {isShared ? camera.H264() : camera.Picture(codec), camera.Sound(sound(codec))});
        EXPECT_EQ(show.Add(path(codec)), 0);
        for (int frame = 0; frame < std::max(kFrames, from + odd); ++frame) {
            camera.WriteSound(frame);
            const bool isOdd = frame >= from && frame < from + odd;
            if (isOdd) camera.WriteOddPicture(frame, width, height, raster);
            if (!isOdd) camera.WritePicture(frame);
        }
        const tn_output_statistics running = show.Statistics(TN_MEDIA_VIDEO);
        EXPECT_EQ(show.Remove(), 0);
        const tn_output_statistics ended = show.Statistics(TN_MEDIA_VIDEO);
        return running.fState != 0 ? running : ended;
    }
    static const char* sound(const std::string& codec) {
        return codec == "shared" ? "MPEG-4 Audio" : "PCM";
    }
    std::string path(const char* codec) { return fFolder.File(std::string(codec) + ".mov"); }
};

TEST_F(OddPictures, OneIsLeftOutAndTheOthersAreKept) {
    const struct {
        const char* codec;
        int inside;  ///< what the encoder looks ahead, which nobody asks for at the end
    } rows[] = {{"MJPEG", 0}, {"ProRes", 0}, {"shared", 11}};
    for (const auto& [codec, inside] : rows) {
        SCOPED_TRACE(codec);
        EXPECT_EQ(record(codec, 60, 1, 128, 96, 'I420').fState, 0);
        // The one that follows it may be lost with it: an encoder's answer comes late.
        const std::vector<Packet> packets = PacketsOf(path(codec), "v:0");
        ASSERT_GE(packets.size(), static_cast<std::size_t>(kFrames - 2 - inside));
        EXPECT_NEAR(packets.back().shown, kFrame * (kFrames - 1 - inside), 2.5 * kFrame);
    }
}

TEST_F(OddPictures, AreToldOfWhereTheyLast) {
    for (const char* codec : {"MJPEG", "ProRes", "shared"}) {
        SCOPED_TRACE(codec);
        const tn_output_statistics small = record(codec, 30, kManyFrames, 128, 96, 'I420');
        EXPECT_EQ(small.fState, 2);
        EXPECT_TRUE(small.fStatus == -1050 || small.fStatus == -1052) << small.fStatus;
        EXPECT_GT(PacketsOf(path(codec), "v:0").size(), 15u);
        const tn_output_statistics packed = record(codec, 30, kManyFrames, 256, 144, '2vuy');
        EXPECT_EQ(packed.fState, 2);
        EXPECT_TRUE(packed.fStatus == -1050 || packed.fStatus == -1052) << packed.fStatus;
    }
}

// Sound was lost before the output began anew: less than ten seconds of pictures are a movie all
// the same.
TEST_F(Failures, PicturesWhoseSoundIsLostAreKept) {
    Camera camera(1);
    camera.LoseSound(60, 150);
    Show show("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 60);
    ASSERT_EQ(show.Remove(), 0);
    ASSERT_EQ(show.Add(fFolder.File("b.mov")), 0);
    camera.Write(60, 150);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
    ExpectEveryFrame(fFolder.File("b.mov"), 0, kFrame, 60);
}

// A source of sound that is dead from the start: its pictures are a movie all the same.
TEST_F(Failures, PicturesWithoutTheirSoundAreRecorded) {
    Camera camera(1);
    camera.LoseSound(0, 400);
    Show raw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show muxed("Shared QuickTime", {camera.H264(), camera.Aac()});
    Show stream("MPEG-TS", {camera.H264(), camera.Aac()});
    ASSERT_EQ(raw.Add(fFolder.File("raw.mov")), 0);
    ASSERT_EQ(muxed.Add(fFolder.File("muxed.mov")), 0);
    ASSERT_EQ(stream.Add(fFolder.File("a.ts")), 0);
    camera.Write(0, 400);
    for (Show* show : {&raw, &muxed, &stream}) {
        EXPECT_EQ(show->Remove(), 0);
        EXPECT_EQ(show->Statistics(TN_MEDIA_VIDEO).fStatus, 0);
        EXPECT_EQ(show->Statistics(TN_MEDIA_AUDIO).fState, 2);
        EXPECT_EQ(show->Statistics(TN_MEDIA_AUDIO).fStatus, kOutputGetsNothing);
    }
    for (const char* name : {"raw.mov", "muxed.mov", "a.ts"}) {
        const std::string path = fFolder.File(name);
        EXPECT_GT(PacketsOf(path, "v:0").size(), 380u) << path;
        EXPECT_TRUE(PacketsOf(path, "a:0").empty()) << path;
    }
}

// A host whose clock is set back by twenty seconds.
TEST_F(Failures, PicturesWhoseTimesStepBackAreRecorded) {
    Camera camera(1);
    Show raw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show muxed("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(raw.Add(fFolder.File("raw.mov")), 0);
    ASSERT_EQ(muxed.Add(fFolder.File("muxed.mov")), 0);
    camera.Write(600, 660);
    camera.Write(0, 60);
    for (Show* show : {&raw, &muxed}) EXPECT_EQ(show->Remove(), 0);
    for (const char* name : {"raw.mov", "muxed.mov"}) {
        EXPECT_GT(PacketsOf(fFolder.File(name), "v:0").size(), 100u) << name;
    }
}

TEST_F(Failures, AnOutputThatFailedMayBeginAnew) {
    const tests::FullDisk disk(20, true, "full");
    Camera camera(1);
    Show show("Shared QuickTime", {camera.H264(), camera.Aac()});
    ASSERT_EQ(show.Add(fFolder.File("full.mov")), 0);
    camera.Write(0, 60);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 2);
    ASSERT_EQ(show.Add(fFolder.File("well.mov")), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fState, 0);
    camera.Write(60, 120);
    ASSERT_EQ(show.Remove(), 0);
    EXPECT_GT(PacketsOf(fFolder.File("well.mov"), "v:0").size(), 20u);
}

TEST_F(Failures, ATransportStreamOnAFullDeviceSaysSo) {
    Camera camera(1);
    Show full("MPEG-TS", {camera.H264(), camera.Aac()});
    Show well("MPEG-TS", {camera.H264(), camera.Aac()});
    ASSERT_EQ(full.Add("/dev/full"), 0);
    ASSERT_EQ(well.Add(fFolder.File("well.ts")), 0);
    camera.Write(0, 90);
    full.Remove();
    well.Remove();
    EXPECT_EQ(full.Statistics(TN_MEDIA_VIDEO).fState, 2);
    EXPECT_EQ(well.Statistics(TN_MEDIA_VIDEO).fState, 0);
    EXPECT_GT(PacketsOf(fFolder.File("well.ts"), "v:0").size(), 60u);
}

// Threads of the file write most of it between two frames and after the last.
TEST_F(Failures, WhatWasWrittenIsToldToTheByte) {
    Camera camera(1);
    Show raw("QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    Show muxed("Shared QuickTime", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    ASSERT_EQ(raw.Add(fFolder.File("raw.mov")), 0);
    ASSERT_EQ(muxed.Add(fFolder.File("muxed.mov")), 0);
    for (int frame = 0; frame < 90; ++frame) {
        camera.WriteSound(frame);
        camera.WritePicture(frame);
    }
    for (Show* show : {&raw, &muxed}) EXPECT_EQ(show->Remove(), 0);
    const char* names[] = {"raw.mov", "muxed.mov"};
    Show* shows[] = {&raw, &muxed};
    for (int i = 0; i < 2; ++i) {
        long long bytes = 0;
        for (const char* stream : {"v:0", "a:0"}) {
            for (const Packet& packet : PacketsOf(fFolder.File(names[i]), stream)) {
                bytes += packet.size;
            }
        }
        zRecord request;
        zRecord answer;
        shows[i]->Movie().StatisticsControl(request, answer);
        EXPECT_GT(bytes, 0);
        EXPECT_EQ(answer.AsInt64("bytes", 0), bytes) << names[i];
    }
}

/// A socket that takes what is sent to it, until it is closed.
class Receiver {
public:
    Receiver() {
        fSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const int room = 8 << 20;
        setsockopt(fSocket, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(fSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        socklen_t length = sizeof address;
        getsockname(fSocket, reinterpret_cast<sockaddr*>(&address), &length);
        fPort = ntohs(address.sin_port);
    }
    ~Receiver() { Close(); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    std::string Address() const { return "udp://127.0.0.1:" + std::to_string(fPort); }
    void Drain(std::ofstream& file) {
        char packet[65536];
        for (;;) {
            const ssize_t size = recv(fSocket, packet, sizeof packet, MSG_DONTWAIT);
            if (size <= 0) return;
            EXPECT_EQ(size % 188, 0);
            EXPECT_LE(size, 1316);
            file.write(packet, size);
        }
    }
    void Close() {
        if (fSocket >= 0) close(fSocket);
        fSocket = -1;
    }

private:
    int fSocket = -1;
    int fPort = 0;
};

TEST_F(Failures, APeerReceivesTheStreamAsItIsWritten) {
    Receiver receiver;
    Camera camera(1);
    Show show("MPEG-TS", {camera.H264(2), camera.Aac()}, TN_OUTPUT_STREAMING);
    ASSERT_EQ(show.Add(receiver.Address()), 0);
    std::ofstream file(fFolder.File("received.ts"), std::ios::binary);
    for (int frame = 0; frame < 120; ++frame) {
        camera.Write(frame, frame + 1);
        receiver.Drain(file);
    }
    show.End();
    receiver.Drain(file);
    file.close();
    const std::string path = fFolder.File("received.ts");
    EXPECT_EQ(tests::ProbeStream(path, "v:0", "codec_name"), "h264");
    EXPECT_EQ(tests::ProbeStream(path, "a:0", "codec_name"), "aac");
    const std::vector<Packet> pictures = PacketsOf(path, "v:0");
    ASSERT_GT(pictures.size(), 60u);
    ExpectEveryFrame(path, pictures.front().shown, kFrame, 60);
    ExpectClean(path);
}

// Datagrams to nobody are lost without a word, as ever; where the socket is connected the system
// says that the peer is gone.
TEST_F(Failures, APeerThatGoesEndsNothingElse) {
    Receiver receiver;
    Camera camera(1);
    Show told("MPEG-TS", {camera.H264(), camera.Aac()}, TN_OUTPUT_STREAMING);
    Show untold("MPEG-TS", {camera.H264(), camera.Aac()}, TN_OUTPUT_STREAMING);
    Show file("Shared MPEG-4", {camera.H264(), camera.Aac()});
    ASSERT_EQ(told.Add(receiver.Address() + "?connect=1"), 0);
    ASSERT_EQ(untold.Add(receiver.Address()), 0);
    ASSERT_EQ(file.Add(fFolder.File("a.mp4")), 0);
    camera.Write(0, 60);
    receiver.Close();
    camera.Write(60, 180);
    for (Show* show : {&told, &untold, &file}) EXPECT_EQ(show->Remove(), 0);
    EXPECT_EQ(told.Statistics(TN_MEDIA_VIDEO).fState, 2);
    EXPECT_EQ(untold.Statistics(TN_MEDIA_VIDEO).fState, 0);
    EXPECT_EQ(file.Statistics(TN_MEDIA_VIDEO).fState, 0);
    ExpectEveryFrame(fFolder.File("a.mp4"), 0, kFrame, 150);
}

}  // namespace
