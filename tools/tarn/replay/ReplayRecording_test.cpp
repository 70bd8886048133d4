#include "ReplayRecording.h"

#include <atomic>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tarn/replay/tnReplayManifest.h"

#include "ReplayCut.h"
#include "ReplayList.h"
#include "ReplayPurge.h"
#include "tests/support/MakeClip.h"
#include "tests/support/Probe.h"
#include "tests/support/TestFolder.h"

namespace {

TEST(ReplayTime, ReadsSecondsMinutesAndHours) {
    struct Case {
        const char* fText;
        long long fTime;
    };
    const Case cases[] = {{"0", 0},
                          {"12.5", 12'500'000},
                          {"0.000001", 1},
                          {"1:02.5", 62'500'000},
                          {"1:00:00", 3'600'000'000},
                          {"100:00", 6'000'000'000},
                          {"-10", -10'000'000},
                          {"-1:00", -60'000'000}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.fText);
        long long time = 1;
        EXPECT_TRUE(ParseReplayTime(one.fText, time));
        EXPECT_EQ(time, one.fTime);
    }
}

TEST(ReplayTime, RefusesWhatIsNoTime) {
    for (const char* text : {"", "-", "soon", "1:", ":1", "1:60", "1.5:00", "1:2:3:4", "1e3", "nan",
                             "inf", "--1", "1:-2", " 1", "1 ", "99999999999"}) {
        SCOPED_TRACE(text);
        long long time = 7;
        EXPECT_FALSE(ParseReplayTime(text, time));
        EXPECT_EQ(time, 7);
    }
}

//     |-- 1 --|-- 2 --|          |-- 4 --|
//     0       1       2          3       4 s
ReplayRecording with_gap() {
    ReplayRecording recording;
    recording.folder = "cam";
    recording.pieces = {{1, 0, 1'000'000, "cam/1.mov", 1000},
                        {2, 1'000'001, 2'000'000, "cam/2.mov", 1000},
                        {4, 3'000'000, 4'000'000, "cam/4.mov", 1000}};
    return recording;
}

TEST(ReplayList, TimelineShowsGaps) {
    EXPECT_EQ(ReplayTimeline(with_gap(), 8), "####..##");
    EXPECT_EQ(ReplayTimeline(with_gap(), 4), "##.#");
    EXPECT_EQ(ReplayTimeline(with_gap(), 2), "#+");
}

TEST(ReplayList, RoundingOfTimesIsNoGap) {
    const std::vector<ReplayGap> gaps = GapsOf(with_gap());
    ASSERT_EQ(gaps.size(), 1u);
    EXPECT_EQ(gaps[0].start, 2'000'000);
    EXPECT_EQ(gaps[0].stop, 3'000'000);
}

/// A manifest with these segments, and something that stands for their movies.
class ReplayFolder : public testing::Test {
protected:
    struct Segment {
        long long start;
        long long stop;
    };
    void Make(const std::vector<Segment>& segments, unsigned int id = 1) const {
        tnReplayManifest manifest(fFolder.File("replay.xml").c_str());
        ASSERT_EQ(manifest.BeginRecording(fVideo, fAudio), 0);
        for (const Segment& segment : segments) {
            std::ofstream(Movie(id)) << "movie";
            ASSERT_EQ(manifest.AddSegment(id++, segment.start, segment.stop), 0);
        }
    }
    std::string Movie(unsigned int id) const { return fFolder.File(std::to_string(id) + ".mov"); }

    const ReplayLibrary fLibrary;
    const tests::TestFolder fFolder;
    tnMediaRecord fVideo{TN_MEDIA_VIDEO};
    tnMediaRecord fAudio{TN_MEDIA_AUDIO};
    std::string fError;
};

/// A recorder that is done with a new manifest while its reader is between two looks. The list from
/// before is a pipe: a reader that opens it waits there, until `whole` has become the manifest and
/// the list has gone.
class DoneBetweenLooks {
public:
    DoneBetweenLooks(const std::string& manifest, const std::string& whole) {
        const std::string before = manifest + ".before";
        EXPECT_EQ(mkfifo(before.c_str(), 0600), 0);
        fThread = std::thread([this, before, manifest, whole] {
            int pipe = -1;
            while (pipe < 0 && !fEnd) {
                pipe = open(before.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
                if (pipe < 0) std::this_thread::yield();
            }
            std::error_code failed;
            std::filesystem::rename(whole, manifest, failed);
            std::filesystem::remove(before, failed);
            close(pipe);
        });
    }
    ~DoneBetweenLooks() {
        fEnd = true;
        fThread.join();
    }
    DoneBetweenLooks(const DoneBetweenLooks&) = delete;
    DoneBetweenLooks& operator=(const DoneBetweenLooks&) = delete;

private:
    std::thread fThread;
    std::atomic<bool> fEnd{false};
};

TEST_F(ReplayFolder, TimesBeyondAllMeasureAreListedAndPurged) {
    constexpr long long kLeast = std::numeric_limits<long long>::min();
    constexpr long long kMost = std::numeric_limits<long long>::max();
    struct Case {
        std::vector<Segment> segments;
        std::size_t purged;
    };
    const Case cases[] = {
        {{{kLeast, kMost}}, 0},
        {{{kLeast, kLeast + 1}, {kMost - 1, kMost}}, 1},
        {{{kLeast, -5}, {0, 10}, {20, kMost}}, 2},
        {{{kMost - 2, kMost - 1}, {kMost - 1, kMost}}, 0},
        {{{kLeast, kLeast + 1}, {kLeast + 1, kLeast + 2}}, 0},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.segments.front().start);
        std::filesystem::remove(fFolder.File("replay.xml"));
        Make(one.segments);
        ReplayRecording recording;
        ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
        ASSERT_EQ(recording.pieces.size(), one.segments.size());
        EXPECT_NE(TextOfReplay(recording).find(" segments, "), std::string::npos);
        EXPECT_NE(JsonOfReplay(recording).find("\"gaps\":["), std::string::npos);
        EXPECT_EQ(ReplayTimeline(recording, 60).size(), 60u);
        ReplayPurged purged;
        EXPECT_TRUE(PurgeReplay(
            fFolder.Path(), kReplayUnitsPerSecond, false, [](double) {}, purged, fError))
            << fError;
        EXPECT_EQ(purged.removed, one.purged);
        EXPECT_EQ(purged.kept, one.segments.size() - one.purged);
    }
}

// A recorder that is killed while it writes its manifest anew leaves the list from before, and none
// or some of the new one.
TEST_F(ReplayFolder, ListFromBeforeStandsInForOneThatWasCutOff) {
    const std::string manifest = fFolder.File("replay.xml");
    for (const std::size_t listedAnew : {0u, 1u, 3u}) {
        SCOPED_TRACE(listedAnew);
        std::filesystem::remove(manifest);
        Make({{0, 10}, {10, 20}, {20, 30}, {30, 40}});
        std::filesystem::rename(manifest, manifest + ".before");
        const std::vector<Segment> all = {{10, 20}, {20, 30}, {30, 40}};
        if (listedAnew > 0) Make({all.begin(), all.begin() + static_cast<long>(listedAnew)}, 2);
        std::filesystem::remove(Movie(1));
        ReplayRecording recording;
        ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
        EXPECT_EQ(recording.pieces.size(), 3u);
        EXPECT_EQ(recording.listedBefore, listedAnew < 2);
    }
}

TEST_F(ReplayFolder, DeletionThatEndsBetweenTwoLooksHidesNothing) {
    const std::string manifest = fFolder.File("replay.xml");
    const std::string whole = fFolder.File("whole.xml");
    const std::vector<Segment> all = {{10, 20}, {20, 30}, {30, 40}};
    for (const std::size_t listedAtFirst : {0u, 1u}) {
        SCOPED_TRACE(listedAtFirst);
        std::filesystem::remove(manifest);
        Make(all);
        std::filesystem::rename(manifest, whole);
        if (listedAtFirst > 0) Make({all.front()});
        const DoneBetweenLooks recorder(manifest, whole);
        ReplayRecording recording;
        ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
        EXPECT_EQ(recording.pieces.size(), 3u);
        EXPECT_FALSE(recording.listedBefore);
    }
}

// Sound that is not compressed cannot be written without its format, and the picture's colour
// stands nowhere else.
TEST_F(ReplayFolder, CutFindsTheFormatsWhileTheManifestIsWrittenAnew) {
    const std::string manifest = fFolder.File("replay.xml");
    fVideo.fColorSpace.SetInt32('r709');
    fAudio.fBitsPerSample.SetInt32(16);
    fAudio.fChannels.SetInt32(1);
    fAudio.fSampleRate.SetInt32(48000);
    for (const bool isDoneBetween : {false, true}) {
        SCOPED_TRACE(isDoneBetween);
        std::filesystem::remove(manifest + ".before");
        Make({{0, 1'000'000}});
        ASSERT_TRUE(tests::MakeClip(Movie(1),
                                    "-f lavfi -i testsrc=size=320x180:rate=25:duration=1 "
                                    "-f lavfi -i sine=r=48000:d=1 -c:v libx264 -c:a pcm_s16le"));
        ReplayRecording recording;
        ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
        const std::string aside = isDoneBetween ? fFolder.File("whole.xml") : manifest + ".before";
        std::filesystem::rename(manifest, aside);
        std::optional<DoneBetweenLooks> recorder;
        if (isDoneBetween) recorder.emplace(manifest, aside);
        const tests::TestFolder outputs;
        ReplayCutWish wish;
        wish.output = outputs.File("cut.mov");
        wish.out = 1'000'000;
        ReplayCutResult result;
        ASSERT_TRUE(CutReplay(
            recording, wish, false, [](double) {}, result, fError))
            << fError;
        EXPECT_EQ(tests::ProbeStream(wish.output, "v:0", "color_space"), "bt709");
        EXPECT_EQ(tests::ProbeStream(wish.output, "a:0", "codec_name"), "pcm_s16le");
    }
}

TEST_F(ReplayFolder, PurgeGoesOnFromTheListFromBefore) {
    const std::string manifest = fFolder.File("replay.xml");
    Make({{0, 1'000'000}, {1'000'000, 2'000'000}, {2'000'000, 3'000'000}});
    std::filesystem::rename(manifest, manifest + ".before");
    ReplayPurged purged;
    const auto purge = [&](bool force) {
        return PurgeReplay(
            fFolder.Path(), 1'500'000, force, [](double) {}, purged, fError);
    };
    EXPECT_FALSE(purge(false));
    EXPECT_NE(fError.find("--force"), std::string::npos) << fError;
    EXPECT_TRUE(purge(true)) << fError;
    EXPECT_EQ(purged.removed, 1u);
    EXPECT_EQ(purged.kept, 2u);
    EXPECT_FALSE(std::filesystem::exists(manifest + ".before"));
    ReplayRecording recording;
    ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
    EXPECT_EQ(recording.pieces.size(), 2u);
    EXPECT_FALSE(recording.listedBefore);
}

TEST_F(ReplayFolder, PurgeThatCannotPutTheListFromBeforeBackLeavesIt) {
    const std::string manifest = fFolder.File("replay.xml");
    Make({{0, 1'000'000}, {1'000'000, 2'000'000}});
    std::filesystem::rename(manifest, manifest + ".before");
    std::filesystem::create_directories(manifest + "/in the way");
    ReplayPurged purged;
    EXPECT_FALSE(PurgeReplay(
        fFolder.Path(), 500'000, true, [](double) {}, purged, fError));
    EXPECT_NE(fError.find("cannot be written anew"), std::string::npos) << fError;
    EXPECT_TRUE(std::filesystem::exists(manifest + ".before"));
    EXPECT_TRUE(std::filesystem::exists(Movie(1)));
}

TEST_F(ReplayFolder, CutThatIsStoppedBeforeItBeginsSaysSo) {
    Make({{0, 1'000'000}});
    ReplayRecording recording;
    ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
    const tests::TestFolder outputs;
    ReplayCutWish wish;
    wish.output = outputs.File("cut.mov");
    wish.out = 1'000'000;
    ReplayCutResult result;
    const std::atomic<bool> stop{true};
    EXPECT_FALSE(CutReplay(
        recording, wish, stop, [](double) {}, result, fError));
    EXPECT_EQ(fError, "'" + wish.output + "': stopped before anything was copied");
    EXPECT_TRUE(result.stopped);
    EXPECT_FALSE(std::filesystem::exists(wish.output));
}

// A stop comes while the second second of a minute is encoded, or soon after: what is told is what
// stands in the movie, wherever it ends.
TEST_F(ReplayFolder, ExactCutThatIsStoppedTellsWhatItHolds) {
    constexpr long long kFrame = 40'000;
    Make({{0, 30'000'000}, {40'000'000, 70'000'000}});
    for (const unsigned int id : {1, 2}) {
        ASSERT_TRUE(tests::MakeClip(Movie(id),
                                    "-f lavfi -i testsrc=size=320x180:rate=25:duration=30 "
                                    "-c:v libx264 -preset ultrafast"));
    }
    ReplayRecording recording;
    ASSERT_TRUE(ReadReplay(fFolder.Path(), recording, fError)) << fError;
    const tests::TestFolder outputs;
    ReplayCutWish wish;
    wish.output = outputs.File("cut.mov");
    wish.in = 10 * kFrame;
    wish.out = 70'000'000;
    wish.exact = true;
    ReplayCutResult result;
    std::atomic<bool> stop{false};
    ASSERT_TRUE(CutReplay(
        recording, wish, stop, [&stop](double part) { stop = part > 0.02; }, result, fError))
        << fError;
    EXPECT_TRUE(result.stopped);
    EXPECT_TRUE(result.encoded);
    EXPECT_EQ(result.from, wish.in);
    EXPECT_GT(result.frames, 0);
    EXPECT_NEAR(result.to - result.from - result.gaps, result.frames * kFrame, 1);
    EXPECT_EQ(result.gaps, result.segments == 1 ? 0 : 10'000'000);
    EXPECT_EQ(tests::CountFrames(wish.output), result.frames);
}

TEST(ReplayList, EmptyRecordingIsListed) {
    ReplayRecording recording;
    recording.folder = "cam";
    EXPECT_EQ(TextOfReplay(recording),
              "cam: no segments; not closed: it goes on, or was cut off\n");
    EXPECT_NE(JsonOfReplay(recording).find("\"segments\":[],\"gaps\":[]"), std::string::npos);
}

}  // namespace
