// Replay recordings as a host makes them: segments that stand complete before they are listed.

#include <cmath>
#include <filesystem>

#include "tarn/replay/tnReplayManifest.h"

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

TEST_F(Replay, OldSegmentsGoWhileItRecordsAndHeldOnesStay) {
    Show show("Replay", {fCamera.Picture("MJPEG")});
    ASSERT_EQ(Begin(show, 0.2, 1.0), 0);
    tnReplayManifest* const manifest =
        tnReplayManifest::GetManifest((fFolderOfShow + "/replay.xml").c_str());
    tnReplaySegment* held = nullptr;
    int frame = 0;
    // The output writes on its own thread; the camera goes on until it has listed something.
    while (held == nullptr && frame < 3000) {
        fCamera.Write(frame, frame + 5);
        frame += 5;
        held = manifest->GetFirstSegment();
    }
    ASSERT_NE(held, nullptr);
    fCamera.Write(frame, frame + 300);
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

TEST_F(Replay, RecordingIsNeverWrittenInto) {
    {
        Show show("Replay", {fCamera.Picture("MJPEG")});
        ASSERT_EQ(Begin(show, 0.5, 0), 0);
        fCamera.Write(0, 30);
        ASSERT_EQ(show.Remove(), 0);
    }
    const auto before = std::filesystem::file_size(fFolderOfShow + "/replay.xml");
    Show again("Replay", {fCamera.Picture("MJPEG")});
    EXPECT_EQ(Begin(again, 0.5, 0), -1006);
    EXPECT_EQ(std::filesystem::file_size(fFolderOfShow + "/replay.xml"), before);
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

}  // namespace
