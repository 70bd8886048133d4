// Who shares an encoder with whom, who comes and goes, and that no output ever hears a frame twice
// or one of another codec.

#include <atomic>
#include <random>
#include <thread>

#include "tarn/filters/tnX264VideoCompressor.h"
#include "tarn/movies/tnEncodedSink.h"
#include "tarn/movies/tnOutputStream.h"
#include "tarn/movies/tnSharedEncoders.h"

#include "tests/support/addonHost.h"

using namespace addonTest;

namespace {

constexpr double kFrame = 1001.0 / 30000;

int gMade = 0;

std::shared_ptr<tnFilter> make_counted() {
    ++gMade;
    return {new tnX264VideoCompressor(), [](tnFilter* filter) { filter->Release(); }};
}

class Sharing : public AddonTest {
protected:
    Sharing() {
        gMade = 0;
        tnFilterManager::Default()->RegisterFactory("counted", make_counted);
    }
    static tnMediaRecord counted(const Camera& camera, int bitRate = 0) {
        tnMediaRecord record = camera.H264();
        record.SetCString('mcon', "counted");
        if (bitRate > 0) record.SetInt32('mtbr', bitRate);
        return record;
    }
    static std::vector<std::string> packet_hashes(const std::string& path) {
        const std::string text = tests::Run({"ffmpeg", "-v", "error", "-nostdin", "-i", path,
                                             "-map", "0:v:0", "-c", "copy", "-f", "framemd5", "-"})
                                     .out;
        std::vector<std::string> hashes;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.empty() || line[0] == '#') continue;
            hashes.push_back(line.substr(line.rfind(' ') + 1));
        }
        return hashes;
    }
};

TEST_F(Sharing, LikeOutputsShareOneEncoderAndHoldTheSameStream) {
    Camera camera(1);
    Show a("Shared QuickTime", {counted(camera), camera.Aac()});
    Show b("Shared QuickTime", {counted(camera), camera.Aac()});
    Show c("Shared MPEG-4", {counted(camera), camera.Aac()});
    ASSERT_EQ(a.Add(fFolder.File("a.mov")), 0);
    ASSERT_EQ(b.Add(fFolder.File("b.mov")), 0);
    ASSERT_EQ(c.Add(fFolder.File("c.mp4")), 0);
    EXPECT_EQ(tnSharedEncoders::CountUsers(1, counted(camera)), 3);
    camera.Write(0, 90);
    for (Show* show : {&a, &b, &c}) show->End();
    EXPECT_EQ(gMade, 1);
    EXPECT_EQ(tnSharedEncoders::CountUsers(1, counted(camera)), 0);
    const std::vector<std::string> first = packet_hashes(fFolder.File("a.mov"));
    EXPECT_GT(first.size(), 60u);
    EXPECT_EQ(packet_hashes(fFolder.File("b.mov")), first);
    EXPECT_EQ(packet_hashes(fFolder.File("c.mp4")), first);
}

TEST_F(Sharing, OtherSourcesHaveEncodersOfTheirOwn) {
    Camera one(1);
    Camera two(11);
    Show a("Shared QuickTime", {counted(one)});
    Show b("Shared QuickTime", {counted(two)});
    ASSERT_EQ(a.Add(fFolder.File("a.mov")), 0);
    ASSERT_EQ(b.Add(fFolder.File("b.mov")), 0);
    EXPECT_EQ(gMade, 2);
}

// Frames 0 to 60 a and b, then b alone, then b and c: the encoder runs on through all of it.
TEST_F(Sharing, TheEncoderOutlivesTheOutputThatBroughtIt) {
    Camera camera(1);
    Show b("Shared QuickTime", {counted(camera), camera.Aac()});
    Show c("Shared QuickTime", {counted(camera), camera.Aac()});
    {
        Show a("Shared QuickTime", {counted(camera), camera.Aac()});
        ASSERT_EQ(a.Add(fFolder.File("a.mov")), 0);
        ASSERT_EQ(b.Add(fFolder.File("b.mov")), 0);
        camera.Write(0, 60);
    }
    camera.Write(60, 100);
    ASSERT_EQ(c.Add(fFolder.File("c.mov")), 0);
    camera.Write(100, 180);
    b.End();
    c.End();
    EXPECT_EQ(gMade, 1);
    ExpectEveryFrame(fFolder.File("a.mov"), 0, kFrame, 40);
    ExpectEveryFrame(fFolder.File("b.mov"), 0, kFrame, 150);
    ExpectEveryFrame(fFolder.File("c.mov"), 0, kFrame, 40);

    // What came late is the end of what was there all along, from a key frame on.
    const std::vector<std::string> whole = packet_hashes(fFolder.File("b.mov"));
    const std::vector<std::string> late = packet_hashes(fFolder.File("c.mov"));
    const auto begins = std::search(whole.begin(), whole.end(), late.begin(), late.end());
    ASSERT_NE(begins, whole.end());
    EXPECT_EQ((begins - whole.begin()) % 15, 0);
    for (const char* name : {"b.mov", "c.mov"}) ExpectClean(fFolder.File(name));
}

// Alike in all that the filter manager compares: only the plan keeps them apart.
TEST_F(Sharing, AnotherCodecOrSettingOfTheSameShapeGetsItsOwn) {
    Camera camera(1);
    tnMediaRecord slow = counted(camera);
    slow.SetCString("encoder_preset", "medium");
    Show h264("Shared QuickTime", {counted(camera)});
    Show jpeg("Shared QuickTime", {camera.Picture("MJPEG")});
    Show proRes("Shared QuickTime", {camera.Picture("ProRes")});
    Show other("Shared QuickTime", {slow});
    Show raw("QuickTime", {camera.Picture("MJPEG")});
    Show rawMp4("MPEG-4", {camera.Picture("x264")});
    Show like("Shared QuickTime", {slow});
    const char* names[] = {"h264", "jpeg", "prores", "other", "raw", "rawmp4", "like"};
    Show* shows[] = {&h264, &jpeg, &proRes, &other, &raw, &rawMp4, &like};
    for (std::size_t i = 0; i < std::size(shows); ++i) {
        ASSERT_EQ(shows[i]->Add(fFolder.File(std::string(names[i]) + ".mov")), 0) << names[i];
    }
    camera.Write(0, 60);
    for (Show* show : shows) show->End();
    EXPECT_EQ(gMade, 2);
    const char* codecs[] = {"h264", "mjpeg", "prores", "h264", "mjpeg", "h264", "h264"};
    for (std::size_t i = 0; i < std::size(shows); ++i) {
        const std::string path = fFolder.File(std::string(names[i]) + ".mov");
        EXPECT_EQ(tests::ProbeStream(path, "v:0", "codec_name"), codecs[i]) << names[i];
        ExpectEveryFrame(path, 0, kFrame, 15);
    }
    EXPECT_EQ(packet_hashes(fFolder.File("other.mov")), packet_hashes(fFolder.File("like.mov")));
}

TEST_F(Sharing, EncodersOfOneRateDifferByAThousandBitsAtMost) {
    Camera camera(1);
    tnMediaRecord slow = counted(camera, 900);
    slow.SetCString("encoder_preset", "medium");
    Show a("Shared QuickTime", {counted(camera, 900)});
    Show b("Shared QuickTime", {slow});
    ASSERT_EQ(a.Add(fFolder.File("a.mov")), 0);
    ASSERT_EQ(b.Add(fFolder.File("b.mov")), 0);
    EXPECT_EQ(gMade, 2);
    tnMediaRecord asked = counted(camera, 901);
    EXPECT_TRUE(tnFilterManager::Default()->HasEqualOutput(1, asked));
    asked.SetInt32('mtbr', 902);
    EXPECT_FALSE(tnFilterManager::Default()->HasEqualOutput(1, asked));
    EXPECT_FALSE(tnFilterManager::Default()->HasEqualOutput(99, asked));
}

// A request that went to the manager past the plan: nobody of the plan joins it unawares.
TEST_F(Sharing, AStrangersOutputIsNotJoined) {
    Camera camera(1);
    const auto stranger = std::make_shared<zObject>();
    tnFilterManager::Default()->ObserveVideoFilter(1, stranger, camera.Picture("MJPEG"), {}, {});
    Show a("Shared QuickTime", {counted(camera)});
    ASSERT_EQ(a.Add(fFolder.File("a.mov")), 0);
    camera.Write(0, 45);
    a.End();
    tnFilterManager::Default()->StopObservingFilter(1, stranger);
    EXPECT_EQ(tests::ProbeStream(fFolder.File("a.mov"), "v:0", "codec_name"), "h264");
    ExpectEveryFrame(fFolder.File("a.mov"), 0, kFrame, 15);
}

/// Hears, and counts.
class CountingSink final : public tnEncodedSink {
public:
    void WriteVideo(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) override {
        fTimes.push_back(buffer->BufferTimeInMilliseconds());
    }
    void WriteAudio(std::shared_ptr<tnFilter>,
                    std::shared_ptr<tnAudioCompressor::EncodedBuffer>) override {}
    std::vector<double> fTimes;
};

TEST_F(Sharing, AStreamJoinsOnceAndLeavesOnce) {
    Camera camera(1);
    auto sync = std::make_shared<tnOutputStreamSync>();
    auto* const stream = new tnOutputStream(1, counted(camera), sync);
    const auto sink = std::make_shared<CountingSink>();
    stream->SetSink(sink);
    sync->AddStream(stream);
    tnSharedEncoders::Leave(*stream);  // it never joined
    EXPECT_EQ(tnSharedEncoders::Join(*stream), 0);
    EXPECT_EQ(tnSharedEncoders::Join(*stream), -22);
    camera.Write(0, 40);
    tnSharedEncoders::Leave(*stream);
    camera.Write(40, 60);
    EXPECT_GT(sink->fTimes.size(), 15u);
    for (std::size_t i = 1; i < sink->fTimes.size(); ++i) {
        EXPECT_GT(sink->fTimes[i], sink->fTimes[i - 1]);
    }
    stream->Release();
    EXPECT_EQ(gMade, 1);
}

TEST_F(Sharing, ACodecThatNobodyMakesChangesNothing) {
    const Camera camera(1);
    auto* const stream =
        new tnOutputStream(1, camera.Picture("nobody"), std::make_shared<tnOutputStreamSync>());
    EXPECT_EQ(tnSharedEncoders::Join(*stream), -1041);
    EXPECT_EQ(tnSharedEncoders::CountUsers(1, camera.Picture("nobody")), 0);
    stream->Release();
}

// Outputs come and go from several threads while two cameras write: nothing is torn, and what a
// file holds decodes. The thread sanitizer watches.
TEST_F(Sharing, OutputsComeAndGoFromSeveralThreads) {
    constexpr int kThreads = 3;
    constexpr int kTurns = 6;
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (const int source : {1, 11}) {
        writers.emplace_back([&done, source] {
            Camera camera(source);
            for (int frame = 0; !done; ++frame) camera.Write(frame, frame + 1);
        });
    }
    std::vector<std::thread> hosts;
    for (int host = 0; host < kThreads; ++host) {
        hosts.emplace_back([&, host] {
            std::minstd_rand random(static_cast<unsigned int>(host + 1));
            for (int turn = 0; turn < kTurns; ++turn) {
                const int source = random() % 2 == 0 ? 1 : 11;
                const Camera shape(source);
                const char* formats[] = {"Shared QuickTime", "Shared MPEG-4", "MPEG-TS",
                                         "QuickTime"};
                const char* format = formats[random() % 4];
                Show show(format, {shape.H264(), shape.Aac()});
                const std::string name = std::to_string(host) + "_" + std::to_string(turn) + ".mov";
                EXPECT_EQ(show.Add(fFolder.File(name)), 0);
                while (show.Statistics(TN_MEDIA_VIDEO).fStatus == 0 && random() % 50 != 0) {
                    std::this_thread::yield();
                }
                EXPECT_EQ(show.Remove(), 0);
                EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0) << format;
            }
        });
    }
    for (std::thread& host : hosts) host.join();
    done = true;
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(tnSharedEncoders::CountUsers(1, Camera(1).H264()), 0);
}

}  // namespace
