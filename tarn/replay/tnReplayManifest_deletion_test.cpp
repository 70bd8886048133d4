#include <algorithm>
#include <atomic>
#include <filesystem>
#include <sys/resource.h>
#include <thread>

#include "spar/zDirectory.h"
#include "tarn/replay/DeleteReplayFilesThread.h"
#include "tarn/replay/tnReplayManifestPlayer_XI.h"

#include "tests/support/ReplayFixture.h"

// Deletion: what goes, what stays, and what becomes of it when a step fails.

using tests::HeldSegments;
using tests::Ids;
using tests::ReadText;
using tests::WaitUntil;
using tests::WriteText;

namespace {

constexpr char kEnd[] = "</segments>\n</larkspur_replay_manifest>";
constexpr long long kNoLimit = -1;

class Player : public tnReplayManifestPlayer_XI {
public:
    virtual ~Player() = default;
    void OnManifestClosing() override {}
    void OnSegmentsDeleting() override {
        ++fDeletions;
        if (fHeld != nullptr) fHeld->Release();
        fHeld = nullptr;
    }
    int fDeletions = 0;
    tnReplaySegment* fHeld = nullptr;
};

class ReplayDeletion : public tests::ReplayTest {
protected:
    /// Deletes and gives the ids that stayed in `active`.
    Ids Delete(long long before) {
        HeldSegments active;
        EXPECT_EQ(fManifest->DeleteNonActiveSegments(active.fSegments, before), 0);
        return active.IDs();
    }
    bool Gone(int id) {
        return WaitUntil([&] { return !HasMovie(id); });
    }
    void MakeFolder(const std::string& path) {
        std::unique_ptr<zDirectory> directory(zDirectory::Factory());
        ASSERT_EQ(directory->Create(path.c_str()), 0);
        WriteText(path + "/content", "not empty");
    }
    std::string Aside() const { return Path() + ".remove"; }
};

// What goes and what stays -----------------------------------------------------------------------

TEST_F(ReplayDeletion, RunningRecordingIsNeverEmptied) {
    Record(3);
    const std::string text = Text();
    Player player;
    fManifest->RegisterPlayer(&player);
    EXPECT_EQ(Delete(kNoLimit), Ids{});
    EXPECT_EQ(Text(), text);
    EXPECT_EQ(Listed(), (Ids{1, 2, 3}));
    EXPECT_EQ(player.fDeletions, 0);
    EXPECT_TRUE(fManifest->IsRecording());
    fManifest->UnRegisterPlayer(&player);
}

TEST_F(ReplayDeletion, EverythingGoesFromAnEndedRecording) {
    Record(3);
    fManifest->StopRecording();
    EXPECT_EQ(Delete(kNoLimit), Ids{});
    EXPECT_TRUE(fManifest->IsEmpty());
    EXPECT_FALSE(fManifest->IsRecording());
    int result = -1;
    EXPECT_EQ(InFile(&result), Ids{});
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(Text().ends_with(kEnd));
    for (int id : {1, 2, 3}) EXPECT_TRUE(Gone(id));
    EXPECT_FALSE(zFileStream::Exists(Aside().c_str()));
}

TEST_F(ReplayDeletion, LimitKeepsWhatEndsBehindIt) {
    Record(4);
    EXPECT_EQ(Delete(200), (Ids{3, 4}));  // 2 ends at the limit and goes
    EXPECT_EQ(Listed(), (Ids{3, 4}));
    EXPECT_EQ(InFile(), (Ids{3, 4}));
    EXPECT_EQ(fManifest->VideoDuration(), 400);
    EXPECT_TRUE(Gone(1));
    EXPECT_TRUE(Gone(2));
    EXPECT_TRUE(HasMovie(3));
}

TEST_F(ReplayDeletion, RecordingGoesOnInTheNewFile) {
    Record(3);
    Delete(200);
    EXPECT_TRUE(fManifest->IsRecording());
    EXPECT_FALSE(Text().ends_with(kEnd));
    Add(4);
    EXPECT_EQ(InFile(), (Ids{3, 4}));
    fManifest->StopRecording();
    EXPECT_EQ(InFile(), (Ids{3, 4}));
    Reopen();
    ASSERT_EQ(fManifest->Read(), 0);
    EXPECT_EQ(tnReplayManifestAccess::VideoFormat(*fManifest).fWidth.AsInt32(0), 640);
    EXPECT_EQ(tnReplayManifestAccess::AudioFormat(*fManifest).fSampleRate.AsInt32(0), 48000);
}

TEST_F(ReplayDeletion, LoadedManifestIsRewrittenAndClosed) {
    Record(3);
    fManifest->StopRecording();
    Reopen();
    ASSERT_EQ(fManifest->Read(), 0);
    EXPECT_EQ(Delete(100), (Ids{2, 3}));
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_TRUE(Text().ends_with(kEnd));
    EXPECT_EQ(InFile(), (Ids{2, 3}));
    EXPECT_TRUE(Gone(1));
}

TEST_F(ReplayDeletion, SegmentThatAPlayerHoldsStays) {
    Record(4);
    tnReplaySegment* const held = fManifest->GetSegmentByTime(50);
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(Delete(300), (Ids{1, 4}));
    EXPECT_EQ(Listed(), (Ids{1, 4}));
    EXPECT_EQ(InFile(), (Ids{1, 4}));
    EXPECT_TRUE(Gone(2));
    EXPECT_TRUE(Gone(3));
    EXPECT_TRUE(HasMovie(1));
    EXPECT_EQ(held->Release(), 1);
    EXPECT_EQ(Delete(300), Ids{4});  // it comes up again
    EXPECT_TRUE(Gone(1));
}

TEST_F(ReplayDeletion, ActiveSegmentStaysWithoutAnybodyElse) {
    Record(4);
    fManifest->StopRecording();
    HeldSegments active;
    long long mark = 150;
    fManifest->AppendSegmentIDsByMarks(active.fSegments, &mark, nullptr, nullptr);
    EXPECT_EQ(fManifest->DeleteNonActiveSegments(active.fSegments, kNoLimit), 0);
    EXPECT_EQ(Listed(), Ids{2});
    EXPECT_EQ(InFile(), Ids{2});
    tnReplaySegment* const kept = active.fSegments.First()->fItem;
    EXPECT_EQ(kept->AddRef(), 3);  // the list's and the caller's
    kept->Release();
    active.Release();
    EXPECT_EQ(Listed(), Ids{2});
    for (int id : {1, 3, 4}) EXPECT_TRUE(Gone(id));
    EXPECT_TRUE(HasMovie(2));
}

TEST_F(ReplayDeletion, SecondDeletionOnlyRewrites) {
    Record(4);
    EXPECT_EQ(Delete(200), (Ids{3, 4}));
    const std::string text = Text();
    EXPECT_EQ(Delete(200), (Ids{3, 4}));
    EXPECT_EQ(Text(), text);
    EXPECT_TRUE(HasMovie(3));
    EXPECT_TRUE(HasMovie(4));
}

//   active of the caller:  |-------- 9 --------|
//                          0                  250
TEST_F(ReplayDeletion, SegmentsInsideAnActiveOneLeaveTheListAndKeepTheirFiles) {
    Record(4);
    HeldSegments active;
    active.fSegments.Set(new tnReplaySegment(9, 0, 250));
    MakeMovie(9);
    EXPECT_EQ(fManifest->DeleteNonActiveSegments(active.fSegments, 300), 0);
    EXPECT_EQ(active.IDs(), (Ids{9, 4}));
    EXPECT_EQ(Listed(), (Ids{9, 4}));
    for (int id : {1, 2, 3, 4}) EXPECT_TRUE(HasMovie(id));
}

TEST_F(ReplayDeletion, ReferencesAreCountedOnEveryWay) {
    Record(3);
    tnReplaySegment* const held = fManifest->GetSegmentByTime(0);
    tnReplaySegment* const young = fManifest->GetSegmentByTime(250);
    HeldSegments active;
    EXPECT_EQ(fManifest->DeleteNonActiveSegments(active.fSegments, 200), 0);
    EXPECT_EQ(active.IDs(), (Ids{1, 3}));
    for (tnReplaySegment* segment : {held, young}) {
        EXPECT_EQ(segment->AddRef(), 4);  // ours, the list's, that of `active`
        EXPECT_EQ(segment->Release(), 3);
    }
    active.Release();
    EXPECT_EQ(held->Release(), 1);
    EXPECT_EQ(young->Release(), 1);
}

TEST_F(ReplayDeletion, FilesThatAreGoneAlreadyDoNotMatter) {
    Record(2);
    fManifest->StopRecording();
    ASSERT_EQ(zFileStream::RemoveFile(Movie("1.mov").c_str()), 0);
    EXPECT_EQ(Delete(kNoLimit), Ids{});
    EXPECT_TRUE(Gone(2));
}

TEST_F(ReplayDeletion, OtherFilesOfTheFolderStay) {
    Record(2);
    fManifest->StopRecording();
    WriteText(Movie("3.mov"), "not listed");
    WriteText(Movie("notes.txt"), "mine");
    Delete(kNoLimit);
    EXPECT_TRUE(Gone(1));
    EXPECT_TRUE(Gone(2));
    EXPECT_TRUE(HasMovie(3));
    EXPECT_TRUE(zFileStream::Exists(Movie("notes.txt").c_str()));
}

TEST_F(ReplayDeletion, NewManifestThatWasNeverReadIsWrittenEmpty) {
    EXPECT_EQ(Delete(kNoLimit), Ids{});
    int result = -1;
    EXPECT_EQ(InFile(&result), Ids{});
    EXPECT_EQ(result, 0);
}

// The player -------------------------------------------------------------------------------------

TEST_F(ReplayDeletion, PlayerIsToldBeforeAnEndedRecordingShrinks) {
    Record(2);
    fManifest->StopRecording();
    Player player;
    player.fHeld = fManifest->GetSegmentByTime(0);
    fManifest->RegisterPlayer(&player);
    EXPECT_EQ(Delete(kNoLimit), Ids{});  // it gave its segment back in time
    EXPECT_EQ(player.fDeletions, 1);
    EXPECT_TRUE(Gone(1));
    fManifest->UnRegisterPlayer(&player);
    Delete(kNoLimit);
    EXPECT_EQ(player.fDeletions, 1);
}

TEST_F(ReplayDeletion, PlayerIsNotToldWhileRecording) {
    Record(2);
    Player player;
    fManifest->RegisterPlayer(&player);
    Delete(100);
    EXPECT_EQ(player.fDeletions, 0);
    fManifest->UnRegisterPlayer(&player);
}

TEST_F(ReplayDeletion, PlayerMayCallTheManifest) {
    class Calling : public tnReplayManifestPlayer_XI {
    public:
        explicit Calling(tnReplayManifest* manifest) : fManifest(manifest) {}
        virtual ~Calling() = default;
        void OnManifestClosing() override {}
        void OnSegmentsDeleting() override {
            // From another thread too: no lock is held over this call.
            std::thread([this] {
                tnReplaySegment* const first = fManifest->GetFirstSegment();
                fID = first->fId;
                first->Release();
            }).join();
            fManifest->UnRegisterPlayer(this);
        }
        tnReplayManifest* fManifest;
        unsigned int fID = 0;
    };
    Record(1);
    fManifest->StopRecording();
    Calling player(fManifest);
    fManifest->RegisterPlayer(&player);
    Delete(kNoLimit);
    EXPECT_EQ(player.fID, 1u);
}

// Steps that fail --------------------------------------------------------------------------------

TEST_F(ReplayDeletion, RenameThatFailsIsMadeGoodByRemoval) {
    MakeFolder(Aside());  // no file can take this name
    Record(3);
    EXPECT_EQ(Delete(200), Ids{3});
    EXPECT_TRUE(fManifest->IsRecording());
    EXPECT_EQ(InFile(), Ids{3});
    Add(4);
    EXPECT_EQ(InFile(), (Ids{3, 4}));
    EXPECT_TRUE(zDirectory::Exists(Aside().c_str()));
}

TEST_F(ReplayDeletion, RenamedFileThatCannotBeRemovedIsInNobodysWay) {
    Record(3);
    // A folder at the path can be renamed, but not removed as a file.
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    MakeFolder(Path());
    EXPECT_EQ(Delete(200), Ids{3});
    EXPECT_TRUE(fManifest->IsRecording());
    EXPECT_EQ(InFile(), Ids{3});
    EXPECT_TRUE(zDirectory::Exists(Aside().c_str()));  // stays behind
}

TEST_F(ReplayDeletion, OldFileThatStaysInTheWayEndsTheRecording) {
    MakeFolder(Aside());
    Record(3);
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    MakeFolder(Path());
    EXPECT_EQ(Delete(200), Ids{3});
    EXPECT_FALSE(fManifest->IsRecording());
    EXPECT_TRUE(fManifest->IsEmpty());
    EXPECT_FALSE(tnReplayManifestAccess::HasStream(*fManifest));
    EXPECT_TRUE(zDirectory::Exists(Path().c_str()));  // as it stood
    EXPECT_EQ(fManifest->AddSegment(4, 300, 400), -1);
    EXPECT_TRUE(Gone(1));  // queued before, and removed all the same
    EXPECT_TRUE(Gone(2));
    EXPECT_TRUE(HasMovie(3));
}

TEST_F(ReplayDeletion, FileThatCannotBeOpenedEndsTheRecording) {
    const std::string folder = fFolder.File("show");
    std::unique_ptr<zDirectory> directory(zDirectory::Factory());
    ASSERT_EQ(directory->Create(folder.c_str()), 0);
    tnReplayManifest manifest((folder + "/replay.xml").c_str());
    ASSERT_EQ(manifest.BeginRecording(Video(), Audio()), 0);
    ASSERT_EQ(manifest.AddSegment(1, 0, 100), 0);
    ASSERT_EQ(manifest.AddSegment(2, 100, 200), 0);
    ASSERT_EQ(directory->RemoveWithContent(folder.c_str()), 0);
    HeldSegments active;
    EXPECT_EQ(manifest.DeleteNonActiveSegments(active.fSegments, 100), 0);
    EXPECT_EQ(active.IDs(), Ids{2});
    EXPECT_FALSE(manifest.IsRecording());
    EXPECT_TRUE(manifest.IsEmpty());
    EXPECT_FALSE(zFileStream::Exists(folder.c_str()));
}

TEST_F(ReplayDeletion, EndedRecordingThatCannotBeRewrittenListsNothing) {
    MakeFolder(Aside());
    Record(2);
    fManifest->StopRecording();
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    MakeFolder(Path());
    EXPECT_EQ(Delete(100), Ids{2});
    EXPECT_TRUE(fManifest->IsEmpty());
    EXPECT_FALSE(fManifest->IsRecording());
}

TEST_F(ReplayDeletion, ManifestThatIsMissingIsWrittenAnew) {
    Record(2);
    fManifest->StopRecording();
    ASSERT_EQ(zFileStream::RemoveFile(Path().c_str()), 0);
    EXPECT_EQ(Delete(100), Ids{2});
    EXPECT_EQ(InFile(), Ids{2});
}

// The remover ------------------------------------------------------------------------------------

/// Whether a thread of this process that has the remover's name works at its niceness; a process
/// that is nicer itself has nicer threads.
bool remover_works_in_the_background() {
    const int niceness = std::max(6, getpriority(PRIO_PROCESS, 0));
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string name = ReadText(task.path().string() + "/comm");
        if (name != "media_player_se\n") continue;  // as much of it as a thread's name has room for
        const int id = std::stoi(task.path().filename().string());
        return getpriority(PRIO_PROCESS, static_cast<id_t>(id)) == niceness;
    }
    return false;
}

/// It is looked at while it works, on so many files that it can be caught at that; a round in which
/// it was not has a next one.
TEST_F(ReplayDeletion, RemoverIsAThreadOfItsNameInTheBackground) {
    constexpr int kRounds = 20;
    constexpr unsigned int kSegments = 1000;
    bool wasSeen = false;
    for (int round = 0; round < kRounds && !wasSeen; ++round) {
        Reopen();
        zFileStream::RemoveFile(Path().c_str());
        Record(kSegments);
        fManifest->StopRecording();
        HeldSegments none;
        fManifest->DeleteNonActiveSegments(none.fSegments, kNoLimit);
        while (!wasSeen && HasMovie(kSegments)) wasSeen = remover_works_in_the_background();
        ASSERT_TRUE(Gone(kSegments));
    }
    EXPECT_TRUE(wasSeen);
}

TEST_F(ReplayDeletion, RemoverGoesOnPastWhatItCannotRemove) {
    MakeMovie(1);
    MakeMovie(2);
    MakeFolder(Movie("folder"));
    auto* const paths = new zList<zString>;
    for (const char* name : {"1.mov", "missing.mov", "folder", "2.mov"}) {
        paths->Append(Movie(name));
    }
    EXPECT_EQ((new DeleteReplayFilesThread(paths))->Main(0, nullptr), 0);
    EXPECT_FALSE(HasMovie(1));
    EXPECT_FALSE(HasMovie(2));
    EXPECT_TRUE(zDirectory::Exists(Movie("folder").c_str()));
}

TEST_F(ReplayDeletion, FolderIsGoneAfterAllSegmentsAndTheManifest) {
    const std::string folder = fFolder.File("show");
    ASSERT_EQ(std::unique_ptr<zDirectory>(zDirectory::Factory())->Create(folder.c_str()), 0);
    const std::string path = folder + "/replay.xml";
    tnReplayManifest* const manifest = tnReplayManifest::GetManifest(path.c_str());
    ASSERT_EQ(manifest->BeginRecording(Video(), Audio()), 0);
    for (unsigned int id = 1; id <= 20; ++id) {
        WriteText(folder + "/" + std::to_string(id) + ".mov", "movie");
        ASSERT_EQ(manifest->AddSegment(id, id * 10, id * 10 + 10), 0);
    }
    manifest->StopRecording();
    HeldSegments none;
    EXPECT_EQ(manifest->DeleteNonActiveSegments(none.fSegments, kNoLimit), 0);
    tnReplayManifest::ReleaseManifest(manifest);
    EXPECT_TRUE(WaitUntil([&] {
        tnReplayManifest::DeleteManifest(path.c_str());
        return !zFileStream::Exists(folder.c_str());
    }));
}

}  // namespace
