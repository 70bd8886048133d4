#include <memory>

#include "spar/zFileStream.h"
#include "spar/zThread.h"
#include "tarn/replay/DeleteReplayFilesThread.h"
#include "tarn/replay/segmentTree.h"
#include "tarn/replay/tnReplayManifest.h"
#include "tarn/replay/tnReplayManifestPlayer_XI.h"

static constexpr long long kNoLimit = -1;
// Background work, at a niceness that leaves the disk's other users alone.
static constexpr char kRemoverClass = 3;
static constexpr char kRemoverNumber = 6;

/// Drops the tree's reference and says true if it was the last; else the reference stays.
///
/// Counted up and down rather than down and up: whoever holds the other reference may drop it in
/// between, and the segment must not be gone then. Nobody new can come to hold it meanwhile, since
/// look-ups wait for the lock of the tree.
static bool release_if_last(tnReplaySegment* segment) {
    segment->AddRef();
    if (segment->Release() > 1) return false;
    segment->Release();
    return true;
}

/// Nobody waits for the thread and nothing depends on the files being gone.
static void start_removing(zList<zString>* paths) {
    auto* const remover = new DeleteReplayFilesThread(paths);
    const std::unique_ptr<zThread> thread(
        zThread::Factory("media_player_segment_remove", remover, kRemoverClass, kRemoverNumber));
    // Where the system has no thread to give, the files go here: nobody would come back for them.
    if (!thread) remover->Main(0, nullptr);
}

/// Empties the tree: each segment moves to `active` or goes. Gives the files of those that go, or
/// null.
zList<zString>* tnReplayManifest::split_for_deletion(Segments& active, long long before) {
    std::unique_ptr<zList<zString>> paths;
    for (tnReplaySegment* segment : fSegments) {
        if (segment_at(active, segment->fStart) != nullptr) {
            segment->Release();  // lives on in `active`
            continue;
        }
        if (before != kNoLimit && segment->fStop > before) {
            active.Set(segment);  // with the tree's reference
            continue;
        }
        zString path;
        GetSegmentPath(segment, path);
        if (!release_if_last(segment)) {
            active.Set(segment);
            continue;
        }
        if (!paths) paths = std::make_unique<zList<zString>>();
        paths->Append(path);
    }
    fSegments.RemoveAll();
    return paths.release();
}

int tnReplayManifest::DeleteNonActiveSegments(Segments& active, long long before) {
    const bool isRecording = IsRecording();
    if (before == kNoLimit && isRecording) return 0;
    if (!isRecording) tell_player_of_deletion();
    zList<zString>* paths = nullptr;
    {
        const zCriticalLock lock(*fSegmentsCritical);
        paths = split_for_deletion(active, before);
    }
    if (paths != nullptr) start_removing(paths);
    rewrite(active);
    return 0;
}

/// Outside the lock, so that the player can give segments back and ask for others.
void tnReplayManifest::tell_player_of_deletion() {
    tnReplayManifestPlayer_XI* player = nullptr;
    {
        const zCriticalLock lock(*fSegmentsCritical);
        player = fPlayer;
    }
    if (player != nullptr) player->OnSegmentsDeleting();
}

/// Writes the manifest anew with `active` and lists these again; a recording goes on in the new
/// file. If the path does not come free or the file cannot be created, nothing is listed and the
/// recording is over.
void tnReplayManifest::rewrite(Segments& active) {
    const zCriticalLock lock(*fFileCritical);
    const bool wasRecording = IsRecording();
    if (wasRecording) StopRecording();
    remove_manifest_file();
    begin_recording();
    for (tnReplaySegment* segment : active) add_segment(segment);
    if (!wasRecording) StopRecording();
}

/// Renamed first: a removal that takes long or fails is then in nobody's way.
void tnReplayManifest::remove_manifest_file() {
    zString aside = fPath;
    aside += ".remove";
    // What a kill left under that name may be the manifest's own file, by another link: a rename
    // would then do nothing, and say that it had.
    zFileStream::RemoveFile(aside);
    const bool isAside = zFileStream::RenameFile(fPath, aside) == 0;
    zFileStream::RemoveFile(isAside ? aside : fPath);
}
