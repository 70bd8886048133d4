#include "tarn/replay/tnReplayManifest.h"

#include <csignal>
#include <sys/resource.h>
#include <thread>

#include "spar/zDirectory.h"
#include "tarn/replay/tnReplayManifestPlayer_XI.h"

#include "tests/support/ReplayFixture.h"

// The registry, and recording.

using tests::Ids;
using tests::ReadText;
using tests::WriteText;

namespace {

constexpr char kEnd[] = "</segments>\n</larkspur_replay_manifest>";

class Player : public tnReplayManifestPlayer_XI {
public:
    virtual ~Player() = default;
    void OnManifestClosing() override { ++fClosings; }
    void OnSegmentsDeleting() override { ++fDeletions; }
    int fClosings = 0;
    int fDeletions = 0;
};

class ReplayRegistry : public tests::ReplayTest {};
class ReplayRecording : public tests::ReplayTest {
protected:
    /// Lets files grow to `bytes` at most, as a full disk does; 0 lifts the limit.
    static void LimitFiles(unsigned long bytes) {
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = bytes == 0 ? limit.rlim_max : bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ReplayRecording() : fBefore(std::signal(SIGXFSZ, SIG_IGN)) {}
    ~ReplayRecording() override {
        LimitFiles(0);
        std::signal(SIGXFSZ, fBefore);
    }

private:
    void (*fBefore)(int);
};

// Registry ---------------------------------------------------------------------------------------

TEST_F(ReplayRegistry, ShutdownForgetsItAll) {
    Close();
    tnReplayManifest::Shutdown();
    EXPECT_EQ(tnReplayManifest::fManifests, nullptr);
    EXPECT_EQ(tnReplayManifest::fManifestsCritical, nullptr);
    tnReplayManifest::Startup();
    ASSERT_NE(tnReplayManifest::fManifests, nullptr);
    EXPECT_TRUE(tnReplayManifest::fManifests->IsEmpty());
    EXPECT_NE(tnReplayManifest::fManifestsCritical, nullptr);
}

TEST_F(ReplayRegistry, OnePathIsOneManifest) {
    tnReplayManifest* const again = tnReplayManifest::GetManifest(Path().c_str());
    EXPECT_EQ(again, fManifest);
    EXPECT_EQ(again->AddRef(), 4);  // the map's, two of ours, and this one
    EXPECT_EQ(again->Release(), 3);
    EXPECT_NE(tnReplayManifest::fManifests->Find(Path().c_str()), nullptr);
    tnReplayManifest::ReleaseManifest(again);
    EXPECT_NE(tnReplayManifest::fManifests->Find(Path().c_str()), nullptr);
    Close();
    EXPECT_EQ(tnReplayManifest::fManifests->Find(Path().c_str()), nullptr);
    EXPECT_FALSE(zFileStream::Exists(Path().c_str()));
}

TEST_F(ReplayRegistry, TwoSpellingsAreTwoManifests) {
    const std::string other = fFolder.Path() + "/./replay.xml";
    tnReplayManifest* const manifest = tnReplayManifest::GetManifest(other.c_str());
    EXPECT_NE(manifest, fManifest);
    tnReplayManifest::ReleaseManifest(manifest);
}

TEST_F(ReplayRegistry, ReferenceKeepsAManifest) {
    tnReplayManifest::ReferenceManifest(fManifest);
    tnReplayManifest::ReleaseManifest(fManifest);
    EXPECT_NE(tnReplayManifest::fManifests->Find(Path().c_str()), nullptr);
}

TEST_F(ReplayRegistry, ManifestStaysWhileItRecords) {
    tnReplayManifest* const recorder = tnReplayManifest::GetManifest(Path().c_str());
    Record(1);
    Close();
    EXPECT_TRUE(recorder->IsRecording());
    Reopen();
    EXPECT_EQ(fManifest, recorder);
    tnReplayManifest::ReleaseManifest(recorder);
    EXPECT_TRUE(fManifest->IsRecording());
}

TEST_F(ReplayRegistry, LastReleaseClosesTheRecordingAndTellsThePlayer) {
    Record(2);
    Player player;
    fManifest->RegisterPlayer(&player);
    Close();
    EXPECT_EQ(player.fClosings, 1);
    EXPECT_EQ(player.fDeletions, 0);
    EXPECT_TRUE(ReadText(Path()).ends_with(kEnd));
    EXPECT_EQ(InFile(), (Ids{1, 2}));
}

TEST_F(ReplayRegistry, PlayerThatLeftIsNotTold) {
    Player player;
    Player other;
    fManifest->RegisterPlayer(&player);
    fManifest->UnRegisterPlayer(&other);
    fManifest->RegisterPlayer(&other);  // replaces the first
    fManifest->UnRegisterPlayer(&player);
    Close();
    EXPECT_EQ(player.fClosings, 0);
    EXPECT_EQ(other.fClosings, 1);
    Reopen();
    fManifest->RegisterPlayer(&player);
    fManifest->UnRegisterPlayer(&player);
    Close();
    EXPECT_EQ(player.fClosings, 0);
}

TEST_F(ReplayRegistry, SegmentsOutliveTheManifest) {
    Record(1);
    tnReplaySegment* const segment = fManifest->GetFirstSegment();
    ASSERT_NE(segment, nullptr);
    Close();
    EXPECT_EQ(segment->fId, 1u);
    EXPECT_EQ(segment->Release(), 0);
}

TEST_F(ReplayRegistry, ThreadsGetAndReleaseOnePath) {
    Close();
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([this] {
            for (int round = 0; round < 2000; ++round) {
                tnReplayManifest* const manifest = tnReplayManifest::GetManifest(Path().c_str());
                EXPECT_TRUE(manifest->IsEmpty());
                tnReplayManifest::ReferenceManifest(manifest);
                tnReplayManifest::ReleaseManifest(manifest);
                tnReplayManifest::ReleaseManifest(manifest);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(tnReplayManifest::fManifests->IsEmpty());
}

// Removing a manifest ----------------------------------------------------------------------------

TEST_F(ReplayRegistry, DeleteManifestTakesTheFileAndItsFolder) {
    const std::string folder = fFolder.File("show");
    ASSERT_EQ(std::unique_ptr<zDirectory>(zDirectory::Factory())->Create(folder.c_str()), 0);
    const std::string path = folder + "/replay.xml";
    WriteText(path, "manifest");
    tnReplayManifest::DeleteManifest(path.c_str());
    EXPECT_FALSE(zFileStream::Exists(folder.c_str()));
    tnReplayManifest::DeleteManifest(path.c_str());  // nothing is left to do
    EXPECT_TRUE(zDirectory::Exists(fFolder.Path().c_str()));
}

TEST_F(ReplayRegistry, DeleteManifestLeavesAManifestInUse) {
    WriteText(Path(), "manifest");
    tnReplayManifest::DeleteManifest(Path().c_str());
    EXPECT_EQ(ReadText(Path()), "manifest");
    EXPECT_TRUE(zDirectory::Exists(fFolder.Path().c_str()));
}

TEST_F(ReplayRegistry, DeleteManifestLeavesWhatIsNotOurs) {
    Close();
    WriteText(Path(), "manifest");
    WriteText(fFolder.File("notes.txt"), "mine");
    const long long before = zTime::MicroNow();
    tnReplayManifest::DeleteManifest(Path().c_str());
    EXPECT_GE(zTime::MicroNow() - before, 3 * 15000) << "no time for a remover to end";
    EXPECT_FALSE(zFileStream::Exists(Path().c_str()));
    EXPECT_EQ(ReadText(fFolder.File("notes.txt")), "mine");
}

// A remover of segment files that ends while the folder is asked for. It sleeps for real, so that
// the first attempt comes before it; where the machine is so busy that it comes after the last one,
// the next round has another try.
TEST_F(ReplayRegistry, FolderThatEmptiesMeanwhileGoes) {
    const std::string folder = fFolder.File("show");
    const std::string path = folder + "/replay.xml";
    EXPECT_TRUE(tests::WaitUntil([&] {
        std::unique_ptr<zDirectory>(zDirectory::Factory())->Create(folder.c_str());
        WriteText(path, "manifest");
        WriteText(folder + "/1.mov", "movie");
        std::thread remover([&] {
            while (zFileStream::Exists(path.c_str())) std::this_thread::yield();
            zThread::MicroSleep(5000);
            zFileStream::RemoveFile((folder + "/1.mov").c_str());
        });
        tnReplayManifest::DeleteManifest(path.c_str());
        remover.join();
        return !zFileStream::Exists(folder.c_str());
    }));
}

// Recording --------------------------------------------------------------------------------------

TEST_F(ReplayRecording, BeginsWithAnEmptyList) {
    EXPECT_TRUE(fManifest->IsEmpty());
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_EQ(fManifest->VideoDuration(), 0);
    ASSERT_EQ(Begin(), 0);
    EXPECT_TRUE(fManifest->IsRecording());
    EXPECT_TRUE(fManifest->IsEmpty());
}

TEST_F(ReplayRecording, FileAtThePathIsNeverOverwritten) {
    WriteText(Path(), "somebody's");
    EXPECT_EQ(Begin(), -1);
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_FALSE(tnReplayManifestAccess::HasStream(*fManifest));
    EXPECT_EQ(ReadText(Path()), "somebody's");
    // The formats are taken over before the file is looked for.
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 640);
    EXPECT_EQ(tnReplayManifestAccess::AudioFormat(*fManifest).fSampleRate.AsInt32(0), 48000);
}

TEST_F(ReplayRecording, BeginningTwiceKeepsTheFormats) {
    ASSERT_EQ(Begin(), 0);
    tnMediaRecord other = Video();
    other.fWidth = 1;
    EXPECT_EQ(fManifest->BeginRecording(other, Audio()), -1);
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 640);
    EXPECT_TRUE(fManifest->IsRecording());
}

TEST_F(ReplayRecording, ContentIsNeverRecordedInto) {
    Record(1);
    fManifest->StopRecording();
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    tnMediaRecord other = Video();
    other.fWidth = 1;
    EXPECT_EQ(fManifest->BeginRecording(other, Audio()), -1);
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 640);
}

TEST_F(ReplayRecording, EmptyRecordingBeginsAgainWhenItsFileIsGone) {
    ASSERT_EQ(Begin(), 0);
    fManifest->StopRecording();
    EXPECT_EQ(Begin(), -1);
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    EXPECT_EQ(Begin(), 0);
}

TEST_F(ReplayRecording, FolderThatIsMissingIsTheStreamsError) {
    tnReplayManifest manifest(fFolder.File("nowhere/replay.xml").c_str());
    EXPECT_EQ(manifest.BeginRecording(Video(), Audio()), -5002);
    EXPECT_FALSE(manifest.IsRecording());
    EXPECT_FALSE(tnReplayManifestAccess::HasStream(manifest));
    EXPECT_EQ(manifest.AddSegment(1, 0, 10), -1);
}

TEST_F(ReplayRecording, AddingNeedsARecording) {
    EXPECT_EQ(fManifest->AddSegment(1, 0, 10), -1);
    Record(1);
    fManifest->StopRecording();
    EXPECT_EQ(fManifest->AddSegment(2, 100, 200), -1);
    EXPECT_EQ(Listed(), Ids{1});
}

TEST_F(ReplayRecording, AddingAsksForNeitherFileNorValues) {
    ASSERT_EQ(Begin(), 0);
    EXPECT_EQ(fManifest->AddSegment(0, 10, 10), 0);
    EXPECT_EQ(Listed(), Ids{0});
    EXPECT_EQ(fManifest->VideoDuration(), 10);
    EXPECT_EQ(InFile(), Ids{});
}

TEST_F(ReplayRecording, SegmentInsideAnotherTakesItsPlace) {
    ASSERT_EQ(Begin(), 0);
    MakeMovie(1);
    MakeMovie(2);
    const tests::DisplacedSegments displaced;
    ASSERT_EQ(fManifest->AddSegment(1, 0, 100), 0);
    tnReplaySegment* const first = fManifest->GetFirstSegment();
    ASSERT_EQ(fManifest->AddSegment(2, 99, 150), 0);
    EXPECT_EQ(Listed(), Ids{2});
    EXPECT_EQ(fManifest->VideoDuration(), 150);
    const std::string text = Text();
    EXPECT_NE(text.find("uint32:1\""), std::string::npos);
    EXPECT_NE(text.find("uint32:2\""), std::string::npos);
    EXPECT_EQ(first->Release(), 1);  // the list's reference was dropped, not released
    EXPECT_EQ(first->Release(), 0);
}

TEST_F(ReplayRecording, NeighboursBothStand) {
    ASSERT_EQ(Begin(), 0);
    EXPECT_EQ(fManifest->AddSegment(1, 0, 100), 0);
    EXPECT_EQ(fManifest->AddSegment(2, 100, 200), 0);
    EXPECT_EQ(Listed(), (Ids{1, 2}));
    EXPECT_EQ(fManifest->VideoDuration(), 200);
    EXPECT_EQ(fManifest->AddSegment(3, -100, 0), 0);
    EXPECT_EQ(Listed(), (Ids{3, 1, 2}));
    EXPECT_EQ(fManifest->VideoDuration(), 0);  // of the one taken in last
}

TEST_F(ReplayRecording, StoppingTwiceClosesOnce) {
    Record(1);
    fManifest->StopRecording();
    const std::string text = Text();
    fManifest->StopRecording();
    EXPECT_EQ(Text(), text);
    EXPECT_EQ(text.find("</segments>"), text.rfind("</segments>"));
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_EQ(Listed(), Ids{1});
}

TEST_F(ReplayRecording, EveryFlushIsReadableElsewhere) {
    ASSERT_EQ(Begin(), 0);
    int result = 0;
    EXPECT_EQ(InFile(&result), Ids{});
    EXPECT_EQ(result, -1);  // a list that is open and empty does not count as one yet
    Ids expected;
    for (unsigned int id = 1; id <= 20; ++id) {
        Add(id);
        expected.push_back(id);
        EXPECT_EQ(InFile(&result), expected);
        EXPECT_EQ(result, 0);
    }
}

/// The disk is full at each byte in turn; room comes back for the segment after. What was refused
/// is not listed; what was not, in memory and in the file alike.
TEST_F(ReplayRecording, FullDiskLosesNothingThatWasListed) {
    Record(3);
    fManifest->StopRecording();
    const unsigned long whole = Text().size();
    for (unsigned long room = 1; room <= whole; ++room) {
        SCOPED_TRACE(room);
        Close();
        ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
        Reopen();
        LimitFiles(room);
        ASSERT_EQ(Begin(), 0);
        Ids expected;
        for (unsigned int id = 1; id <= 2; ++id) {
            const long long start = (id - 1) * 100LL;
            const int added = fManifest->AddSegment(id, start, start + 100);
            EXPECT_TRUE(added == 0 || added == -5027) << added;
            if (added == 0) expected.push_back(id);
        }
        LimitFiles(0);
        EXPECT_TRUE(fManifest->IsRecording());
        ASSERT_EQ(fManifest->AddSegment(3, 200, 300), 0);
        expected.push_back(3);
        EXPECT_EQ(Listed(), expected);
        EXPECT_EQ(InFile(), expected);
        fManifest->StopRecording();
        EXPECT_EQ(InFile(), expected);
    }
}

TEST_F(ReplayRecording, RecorderAndPlayersShareTheList) {
    ASSERT_EQ(Begin(), 0);
    constexpr unsigned int kSegments = 400;
    std::atomic<bool> done{false};
    std::vector<std::thread> players;
    for (int index = 0; index < 2; ++index) {
        players.emplace_back([&] {
            unsigned int seen = 0;
            while (!done.load() || seen == 0) {
                const long long duration = fManifest->VideoDuration();
                if (duration == 0) continue;
                tnReplaySegment* const last = fManifest->GetSegmentByTime(duration - 1);
                ASSERT_NE(last, nullptr);  // what the duration speaks of is listed
                EXPECT_GE(last->fId, seen);
                seen = last->fId;
                last->Release();
                EXPECT_FALSE(fManifest->IsEmpty());
            }
        });
    }
    for (unsigned int id = 1; id <= kSegments; ++id) Add(id);
    done = true;
    for (std::thread& player : players) player.join();
    EXPECT_EQ(Listed().size(), kSegments);
}

}  // namespace
