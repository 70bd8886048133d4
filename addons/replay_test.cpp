// Replay recordings as a host makes them: segments that stand complete before they are listed.

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sys/inotify.h>
#include <unistd.h>

#include "tarn/replay/tnReplayManifest.h"

#include "tests/support/FlashAndClick.h"
#include "tests/support/ReplayFixture.h"
#include "tests/support/addonHost.h"

using namespace addonTest;
using tests::CountFrames;

namespace {

/// What a reader of its own finds in a recording's folder.
struct Listing {
    explicit Listing(const std::string& folder)
        : fManifest(new tnReplayManifest((folder + "/replay.xml").c_str())) {
        fResult = fManifest->Read();
        long long in = std::numeric_limits<long long>::min();
        long long out = std::numeric_limits<long long>::max();
        fManifest->AppendSegmentIDsByMarks(fSegments, nullptr, &in, &out);
    }
    ~Listing() {
        for (tnReplaySegment* segment : fSegments) segment->Release();
        fManifest->Release();
    }
    tnReplayManifest* fManifest;
    tnReplayManifest::Segments fSegments;
    int fResult = 0;
};

class Replay : public AddonTest {
protected:
    Replay() : fCamera(1), fFolderOfShow(fFolder.File("cam")) {}

    tnMediaRecord H264(int keyFrameRate) const {
        tnMediaRecord track = fCamera.Picture("x264");
        track.SetInt32("key_frame_rate", keyFrameRate);
        return track;
    }
    int Begin(Show& show, double segmentSeconds, double keepSeconds) {
        zRecord record;
        tnOutputAccessor output(record);
        record.SetInt32('mOyp', TN_OUTPUT_DEFAULT);
        record.SetDouble("segment_seconds", segmentSeconds);
        record.SetDouble("keep_seconds", keepSeconds);
        output.SetURL(fFolderOfShow.c_str());
        output.SetOutputEnabled(true);
        return show.Movie().UpdateOutput(output, nullptr, show.fResult, TN_OUTPUT_UPDATE_ADD);
    }
    std::string Movie(unsigned int id) const {
        return fFolderOfShow + "/" + std::to_string(id) + ".mov";
    }

    Camera fCamera;
    const std::string fFolderOfShow;
};

TEST_F(Replay, SegmentsJoinWithoutALostPicture) {
    Show show("Replay", {H264(15), fCamera.Sound("MPEG-4 Audio")});
    Show whole("Shared QuickTime", {H264(15), fCamera.Sound("MPEG-4 Audio")});
    ASSERT_EQ(Begin(show, 0.5, 0), 0);
    ASSERT_EQ(whole.Add(fFolder.File("whole.mov")), 0);
    fCamera.Write(0, 120);
    ASSERT_EQ(show.Remove(), 0);
    ASSERT_EQ(whole.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0);

    const Listing listing(fFolderOfShow);
    ASSERT_EQ(listing.fResult, 0);
    EXPECT_GE(listing.fSegments.Count(), 4u);
    std::vector<std::string> joined;
    unsigned int id = 0;
    long long end = -1;
    for (const tnReplaySegment* segment : listing.fSegments) {
        EXPECT_EQ(segment->fId, ++id);
        EXPECT_EQ(segment->fStart, id == 1 ? segment->fStart : end);
        end = segment->fStop;
        const auto hashes = PictureHashes(Movie(id));
        const double seconds = static_cast<double>(segment->fStop - segment->fStart) / 1e6;
        EXPECT_NEAR(seconds, static_cast<double>(hashes.size()) * 1001 / 30000, 0.001);
        EXPECT_NEAR(tests::ProbeSeconds(Movie(id), "a:0"), seconds, 0.1);
        joined.insert(joined.end(), hashes.begin(), hashes.end());
    }
    EXPECT_EQ(joined, PictureHashes(fFolder.File("whole.mov")));
}

TEST_F(Replay, PcmAndIntraCodecsAreCutToTheFrame) {
    Camera camera(3, 1000);  // blocks of PCM last a thirtieth of a second
    Show show("Replay", {camera.Picture("MJPEG"), camera.Sound("PCM")});
    ASSERT_EQ(Begin(show, 0.5, 0), 0);
    camera.Write(0, 75);
    ASSERT_EQ(show.Remove(), 0);
    const Listing listing(fFolderOfShow);
    ASSERT_EQ(listing.fResult, 0);
    ASSERT_GE(listing.fSegments.Count(), 3u);
    EXPECT_EQ(CountFrames(Movie(1)), 15);
    EXPECT_EQ(CountFrames(Movie(2)), 15);
    EXPECT_NEAR(tests::ProbeSeconds(Movie(2), "a:0"), 15.0 / 30, 0.05);
}

struct SetBack {
    const char* name;
    long long seconds;  ///< of pictures and sound
    const char* sound;
    bool soundAlone;  ///< its device was opened anew and counts from 0
};

class ReplayIsSetBack : public Replay, public testing::WithParamInterface<SetBack> {
protected:
    static constexpr int kFrames = 300;
    static constexpr int kBack = 140;
    static constexpr int kFlash = 217;
    static constexpr long long kOrigin = 10000;

    ReplayIsSetBack() : fSource(3, 1000) {
        fSource.FlashAt(kFlash);
        fSource.BeginAt(kOrigin);
        fSource.JumpAt(kBack, GetParam().seconds);
        if (!GetParam().soundAlone) return;
        fSource.MoveSound([this](int frame) {
            return frame < kBack ? 0 : -kOrigin * Camera::kRate - fSource.PositionOf(kBack);
        });
    }
    std::vector<tnMediaRecord> tracks() const {
        tnMediaRecord picture = fSource.Picture("x264");
        picture.SetInt32("key_frame_rate", 15);
        return {picture, fSource.Sound(GetParam().sound)};
    }
    void expect_together(unsigned int id) {
        const double origin = std::atof(tests::ProbeStream(Movie(id), "a:0", "start_time").c_str());
        EXPECT_NEAR(ClickTime(Movie(id)) + origin, FlashTime(Movie(id)), 0.025) << id;
    }

    Camera fSource;  // its blocks of sound last a thirtieth of a second
};

TEST_P(ReplayIsSetBack, ItGoesOnFromWhereItWas) {
    Show show("Replay", tracks());
    Show whole("Shared QuickTime", tracks());
    ASSERT_EQ(Begin(show, 0.5, 0), 0);
    ASSERT_EQ(whole.Add(fFolder.File("whole.mov")), 0);
    fSource.Write(0, kFrames);
    ASSERT_EQ(show.Remove(), 0);
    ASSERT_EQ(whole.Remove(), 0);
    EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0);

    const Listing listing(fFolderOfShow);
    ASSERT_EQ(listing.fResult, 0);
    EXPECT_GE(listing.fSegments.Count(), kFrames / 15 - 4u);
    std::vector<std::string> joined;
    unsigned int id = 0;
    long long end = kOrigin * 1'000'000;
    for (const tnReplaySegment* segment : listing.fSegments) {
        ASSERT_EQ(segment->fId, ++id);
        EXPECT_NEAR(static_cast<double>(segment->fStart), static_cast<double>(end), 1);
        end = segment->fStop;
        const auto hashes = PictureHashes(Movie(id));
        const double seconds = static_cast<double>(end - segment->fStart) / 1e6;
        // Encoders of sound fill up the packet in which their times step.
        const double tolerance = id == kBack / 15 + 1 ? 0.025 : 0.001;
        EXPECT_NEAR(seconds, fSource.SecondsOf(static_cast<int>(hashes.size())), tolerance) << id;
        EXPECT_NEAR(tests::ProbeSeconds(Movie(id), "a:0"), seconds, 0.1) << id;
        joined.insert(joined.end(), hashes.begin(), hashes.end());
    }
    EXPECT_EQ(joined, PictureHashes(fFolder.File("whole.mov")));
    expect_together(kFlash / 15 + 1);
}

TEST_P(ReplayIsSetBack, WhatIsOldGoesAndWhatIsNewStays) {
    Show show("Replay", tracks());
    ASSERT_EQ(Begin(show, 0.5, 3), 0);
    fSource.Write(0, kFrames);
    ASSERT_EQ(show.Remove(), 0);
    const Listing listing(fFolderOfShow);
    ASSERT_EQ(listing.fResult, 0);
    ASSERT_GE(listing.fSegments.Count(), 6u);
    EXPECT_LE(listing.fSegments.Count(), 9u);
    unsigned int id = 0;
    for (const tnReplaySegment* segment : listing.fSegments) {
        EXPECT_EQ(segment->fId, id == 0 ? segment->fId : id + 1);
        id = segment->fId;
    }
    EXPECT_GE(id, kFrames / 15 - 4u);
}

INSTANTIATE_TEST_SUITE_P(Times, ReplayIsSetBack,
                         testing::Values(SetBack{"ByTwoSeconds", -2, "MPEG-4 Audio", false},
                                         SetBack{"ByAnHour", -3600, "MPEG-4 Audio", false},
                                         SetBack{"ByAMinuteWithPcm", -60, "PCM", false},
                                         SetBack{"OfItsSoundAlone", 0, "MPEG-4 Audio", true},
                                         SetBack{"OfItsPcmAlone", 0, "PCM", true}),
                         [](const testing::TestParamInfo<SetBack>& test) {
                             return test.param.name;
                         });

TEST_F(Replay, OldSegmentsGoWhileItRecordsAndHeldOnesStay) {
    Show show("Replay", {fCamera.Picture("MJPEG")});
    ASSERT_EQ(Begin(show, 0.2, 1.0), 0);
    tnReplayManifest* const manifest =
        tnReplayManifest::GetManifest((fFolderOfShow + "/replay.xml").c_str());
    fCamera.Write(0, 30);  // a second: nothing is old yet
    ASSERT_TRUE(tests::WaitUntil([&] { return !manifest->IsEmpty(); }));
    tnReplaySegment* const held = manifest->GetFirstSegment();
    ASSERT_NE(held, nullptr);
    fCamera.Write(30, 130);
    ASSERT_EQ(show.Remove(), 0);
    zString path;
    EXPECT_EQ(manifest->GetSegmentPath(held, path), 0);
    EXPECT_FALSE(manifest->IsRecording());
    const long long end = manifest->VideoDuration();
    {
        const Listing listing(fFolderOfShow);
        ASSERT_EQ(listing.fResult, 0);
        EXPECT_EQ(listing.fSegments.First()->fItem->fId, held->fId);
        int old = 0;
        for (const tnReplaySegment* segment : listing.fSegments) {
            if (segment->fStop < end - 1'400'000) ++old;
        }
        EXPECT_LE(old, 1);  // the one that is held
    }
    held->Release();
    tnReplayManifest::ReleaseManifest(manifest);
}

/// How often a manifest in `folder` was renamed to make room for the next, since this was made.
class Rewrites {
public:
    explicit Rewrites(const std::string& folder) : fEvents(inotify_init1(IN_NONBLOCK)) {
        EXPECT_GE(inotify_add_watch(fEvents, folder.c_str(), IN_MOVED_FROM), 0);
    }
    ~Rewrites() { close(fEvents); }
    int Count() const {
        int count = 0;
        alignas(inotify_event) char bytes[4096];
        for (ssize_t size; (size = read(fEvents, bytes, sizeof bytes)) > 0;) {
            for (ssize_t at = 0; at < size;) {
                inotify_event event;
                std::memcpy(&event, bytes + at, sizeof event);
                at += static_cast<ssize_t>(sizeof event);
                if (event.len > 0 && std::strcmp(bytes + at, "replay.xml") == 0) ++count;
                at += static_cast<ssize_t>(event.len);
            }
        }
        return count;
    }

private:
    const int fEvents;
};

//   kept         10 s, and a tenth more before the next deletion
//   recorded     |1 held|--------------- 20 s of segments of 0.5 s ---------------|
TEST_F(Replay, HeldSegmentDoesNotMakeDeletionsMoreFrequent) {
    Show show("Replay", {fCamera.Picture("MJPEG")});
    ASSERT_EQ(Begin(show, 0.5, 10), 0);
    const Rewrites rewrites(fFolderOfShow);
    tnReplayManifest* const manifest =
        tnReplayManifest::GetManifest((fFolderOfShow + "/replay.xml").c_str());
    fCamera.Write(0, 30);
    ASSERT_TRUE(tests::WaitUntil([&] { return !manifest->IsEmpty(); }));
    tnReplaySegment* const held = manifest->GetFirstSegment();
    ASSERT_NE(held, nullptr);
    const long long from = manifest->VideoDuration();
    fCamera.Write(30, 630);
    ASSERT_EQ(show.Remove(), 0);
    const long long seconds = (manifest->VideoDuration() - from) / 1'000'000 + 1;
    EXPECT_GE(seconds, 19);
    const int count = rewrites.Count();
    EXPECT_GE(count, 5);
    EXPECT_LE(count, seconds - 10 + 1);  // one a second, once there is too much
    held->Release();
    tnReplayManifest::ReleaseManifest(manifest);
}

/// A movie that cannot be made ends the recording with the segments before it, and only that.
TEST_F(Replay, SegmentThatCannotBeMadeEndsTheRecordingAlone) {
    for (const bool hasSound : {true, false}) {
        SCOPED_TRACE(hasSound);
        std::vector<tnMediaRecord> tracks = {H264(15)};
        if (hasSound) tracks.push_back(fCamera.Sound("MPEG-4 Audio"));
        const std::string whole = fFolder.File(hasSound ? "sound.mov" : "silent.mov");
        std::filesystem::remove_all(fFolderOfShow);
        std::filesystem::create_directories(Movie(2) + "/in the way");
        Show show("Replay", tracks);
        Show other("Shared QuickTime", tracks);
        ASSERT_EQ(Begin(show, 0.5, 0), 0);
        ASSERT_EQ(other.Add(whole), 0);
        fCamera.Write(0, 120);
        EXPECT_EQ(show.Remove(), 0);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, -1006);
        EXPECT_EQ(other.Remove(), 0);
        EXPECT_EQ(other.Statistics(TN_MEDIA_VIDEO).fStatus, 0);
        ExpectEveryFrame(whole, 0, 1001.0 / 30000, 60);

        const std::string text = tests::ReadText(fFolderOfShow + "/replay.xml");
        EXPECT_NE(text.find("id=\"uint32:1\""), std::string::npos) << text;
        EXPECT_EQ(text.find("id=\"uint32:2\""), std::string::npos) << text;
        EXPECT_TRUE(text.ends_with("</larkspur_replay_manifest>"));
        EXPECT_GE(CountFrames(Movie(1)), 15);
        EXPECT_FALSE(std::filesystem::exists(Movie(3)));
    }
}

/// Numbers of a host that nobody checked: what is none counts as not said, and the largest keeps
/// all.
TEST_F(Replay, NumbersOutOfRangeAreBroughtIntoIt) {
    constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const std::pair<double, double> wishes[] = {{0.5, 1e13},       {0.5, kInfinity}, {0.5, kNan},
                                                {0.5, -1},         {kNan, 0},        {1e300, 0},
                                                {kInfinity, 1e300}};
    for (const auto& [segmentSeconds, keepSeconds] : wishes) {
        SCOPED_TRACE(testing::Message() << segmentSeconds << " " << keepSeconds);
        std::filesystem::remove_all(fFolderOfShow);
        Show show("Replay", {fCamera.Picture("MJPEG")});
        ASSERT_EQ(Begin(show, segmentSeconds, keepSeconds), 0);
        fCamera.Write(0, 110);
        ASSERT_EQ(show.Remove(), 0);
        EXPECT_EQ(show.Statistics(TN_MEDIA_VIDEO).fStatus, 0);
        const Listing listing(fFolderOfShow);
        ASSERT_EQ(listing.fResult, 0);
        // More than three seconds, less what an encoder holds when it ends: of half a second, of
        // two seconds where none were said, or in one piece. All are kept.
        const std::size_t count = listing.fSegments.Count();
        if (segmentSeconds < 1) {
            EXPECT_GE(count, 4u);
        } else {
            EXPECT_EQ(count, std::isnan(segmentSeconds) ? 2u : 1u);
        }
        EXPECT_EQ(listing.fSegments.First()->fItem->fId, 1u);
    }
}

TEST_F(Replay, RecordingIsNeverWrittenInto) {
    {
        Show show("Replay", {fCamera.Picture("MJPEG")});
        ASSERT_EQ(Begin(show, 0.5, 0), 0);
        fCamera.Write(0, 30);
        ASSERT_EQ(show.Remove(), 0);
    }
    const std::string manifest = fFolderOfShow + "/replay.xml";
    const auto before = std::filesystem::file_size(manifest);
    Show again("Replay", {fCamera.Picture("MJPEG")});
    EXPECT_EQ(Begin(again, 0.5, 0), -1006);
    EXPECT_EQ(std::filesystem::file_size(manifest), before);
    // What a recorder that was killed while it deleted leaves.
    std::filesystem::rename(manifest, manifest + ".before");
    Show afterKill("Replay", {fCamera.Picture("MJPEG")});
    EXPECT_EQ(Begin(afterKill, 0.5, 0), -1006);
    EXPECT_FALSE(std::filesystem::exists(manifest));
}

TEST_F(Replay, SoundAloneIsNoReplay) {
    Show show("Replay", {fCamera.Sound("PCM")});
    EXPECT_EQ(Begin(show, 0.5, 0), -1009);
}

TEST_F(Replay, FolderThatCannotBeMadeIsTold) {
    Show show("Replay", {fCamera.Picture("MJPEG")});
    zRecord record;
    tnOutputAccessor output(record);
    record.SetInt32('mOyp', TN_OUTPUT_DEFAULT);
    output.SetURL("/dev/null/replay");
    output.SetOutputEnabled(true);
    EXPECT_EQ(show.Movie().UpdateOutput(output, nullptr, show.fResult, TN_OUTPUT_UPDATE_ADD),
              -1006);
}

// What is heard while there is nothing to be seen waits in memory for the next picture.
TEST_F(Replay, SoundThatWaitsForPicturesIsBounded) {
    constexpr int kBack = 60 + 30 * 120;  // two minutes later
    Show show("Replay", {H264(15), fCamera.Aac()});
    ASSERT_EQ(Begin(show, 600, 0), 0);
    fCamera.Write(0, 60);
    for (int frame = 60; frame < kBack; ++frame) fCamera.WriteSound(frame);
    fCamera.Write(kBack, kBack + 60);
    show.End();
    double heard = 0;
    constexpr double kPacketSeconds = 1024.0 / Camera::kRate;
    for (const Packet& packet : PacketsOf(Movie(1), "a:0"))
        heard += packet.size > 0 ? kPacketSeconds : 0;
    EXPECT_GT(heard, 55);
    EXPECT_LT(heard, 70);
    EXPECT_NEAR(PacketsOf(Movie(1), "a:0").back().shown, fCamera.SecondsOf(kBack + 60), 1)
        << "in its place";
}

}  // namespace
