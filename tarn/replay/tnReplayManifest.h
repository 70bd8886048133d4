#pragma once

#include <atomic>

#include "spar/zCritical.h"
#include "spar/zList.h"
#include "spar/zMap.h"
#include "spar/zMutex.h"
#include "spar/zRedBlack.h"
#include "spar/zRefCount.h"
#include "spar/zString.h"
#include "tarn/export.h"
#include "tarn/foundation/tnMediaRecord.h"
#include "tarn/replay/tnReplaySegment.h"

class SegmentRows;
class tnReplayManifestPlayer_XI;
class zFileStream;

/// The list of segments of one replay recording, in memory and in its manifest file.
///
/// A recording is a folder with a movie file for each segment, named by the segment's id, and the
/// manifest, a text that grows by an element with each segment and is flushed each time: another
/// process, or this one after a crash, reads everything up to the last flush.
///
/// One object stands for one path in the process; the registry hands it to the recorder and to any
/// number of players alike. A manifest is new (nothing recorded or read), then recording and later
/// closed, or loaded from its file. Content is never recorded into again.
///
/// Any thread calls any operation. Only DeleteNonActiveSegments is kept apart from Read and from
/// AddSegment by the host, most simply by one thread for all three: what Read would find in the
/// file meanwhile is the list that is about to be replaced, and a segment that AddSegment has
/// written but not yet listed would be missing from the file that the deletion writes.
/// Operations that write the file block as long as the disk does. Results are 0 or negative: -1,
/// or the codes of zFileStream and zXML. Nothing is traced.
///
/// Lock order: registry > file > segments > formats.
class TARN_API tnReplayManifest : public zRefCount {
public:
    /// A set of segments in order of time. Each pointer that it holds owns a reference, which the
    /// owner of the set releases.
    using Segments = zRedBlack<tnReplaySegment*, tnReplaySegment>;

    // The registry. Between Startup and Shutdown, which the module's boot calls.

    static void Startup();
    /// The manifests are released by then; those that are not stay as they are.
    static void Shutdown();
    /// The manifest of `path`, made if nobody holds it yet; no file is touched. Two spellings of a
    /// path are two manifests. The caller gives it back through ReleaseManifest.
    static tnReplayManifest* GetManifest(const char* path);
    /// One more reference for ReleaseManifest.
    static void ReferenceManifest(tnReplayManifest* manifest);
    /// The last caller's reference destroys the object; a recording is closed properly then. All of
    /// that happens with the registry locked: who asks for a manifest meanwhile waits for the disk.
    static void ReleaseManifest(tnReplayManifest* manifest);
    /// Removes the manifest file and then its folder, if that holds nothing else any more: what is
    /// not ours stays. Does nothing while somebody holds the manifest. A file remover that is still
    /// at work gets up to 45 ms, during which the registry is locked.
    static void DeleteManifest(const char* path);

    /// Outside the registry, which does not know this object then.
    explicit tnReplayManifest(const char* path);
    ~tnReplayManifest() override;
    tnReplayManifest(const tnReplayManifest&) = delete;
    tnReplayManifest& operator=(const tnReplayManifest&) = delete;

    // Recording

    /// Creates the file. The video format's string "file_extension" is that of the segment files,
    /// "mov" without one. -1 while recording, when segments are listed already, and when the path
    /// is taken: no file is ever overwritten. In this last case, and when the file cannot be
    /// created, the formats are taken over all the same.
    int BeginRecording(const tnMediaRecord& video, const tnMediaRecord& audio);
    /// Lists a segment, in the file first. Its movie file is complete by then; nobody looks for it
    /// here. -1 when not recording. After a failed write the segment is not listed, and the
    /// recording goes on. A segment that starts inside a listed one takes its place in the list,
    /// not in the file.
    int AddSegment(unsigned int id, long long start, long long stop);
    /// Completes the file. Nothing when not recording.
    void StopRecording();
    bool IsRecording() const;

    // Reading

    /// Loads the file, once: 0 with nothing done while recording or when segments are listed. A
    /// file that a crash cut short gives the segments that stand complete in it. Entries that are
    /// not valid, or whose movie file is missing, are left out. -1 without exactly two formats or
    /// without a list of segments; codes of zXML::ParseFile.
    int Read();
    bool IsEmpty() const;
    /// The stop of the segment that was taken in last, 0 before any.
    long long VideoDuration() const;

    // Look-ups. The caller releases what it gets.

    /// The first segment whose file exists, or null.
    tnReplaySegment* GetFirstSegment();
    /// The segment that covers `time`; null if there is none or its file is missing.
    tnReplaySegment* GetSegmentByTime(long long time);
    /// Adds to `segments` those that hold `*mark` (both ends count, so that a mark on a boundary
    /// gives both neighbours) or that touch the closed range from `*markIn` to `*markOut`, unless
    /// they start inside one that is there already. Null pointers select nothing; with `markIn`
    /// comes `markOut`.
    void AppendSegmentIDsByMarks(Segments& segments, long long* mark, long long* markIn,
                                 long long* markOut);
    /// Where the segment's movie file stands or would stand: 0, or -1 if there is none.
    int GetSegmentPath(const tnReplaySegment* segment, zString& path) const;

    // Deletion

    /// Deletes what is not wanted and not in use, and writes the manifest anew with the rest.
    ///
    /// `active` is what must stay. A segment that ends behind `before` stays too, and one that
    /// somebody holds; both move to `active`, which the caller releases afterwards. Without a limit
    /// (-1) a running recording is left alone. The files go on a thread that nobody waits for.
    /// Look-ups find nothing while the file is written. When it cannot be written anew, the list
    /// stays empty and a recording has ended. Always 0.
    int DeleteNonActiveSegments(Segments& active, long long before);

    /// One player at most, told of deletions and of the end; not counted.
    void RegisterPlayer(tnReplayManifestPlayer_XI* player);
    /// Nothing if another player is registered.
    void UnRegisterPlayer(tnReplayManifestPlayer_XI* player);

    // NOLINTBEGIN(readability-identifier-naming): members that hosts know by these names
    static zMap<zString, tnReplayManifest*, zStringCmp>* fManifests;
    static zCritical* fManifestsCritical;
    // NOLINTEND(readability-identifier-naming)

private:
    tnReplaySegment* get_segment_by_id(unsigned int id) const;

    int write_begin();
    int write_segment(const tnReplaySegment* segment);
    int write_end();
    int write_head() SPAR_REQUIRES(*fFileCritical);
    int write_record(const zRecord& record) SPAR_REQUIRES(*fFileCritical);
    void blank_from(long long position) SPAR_REQUIRES(*fFileCritical);

    int begin_recording();
    int add_segment(tnReplaySegment* segment);
    bool may_add() const;

    void take_formats(const zRecord& formats);
    zString file_extension() const;
    void take_segments(const zRecord& segments, const SegmentRows& rows)
        SPAR_REQUIRES(*fSegmentsCritical);

    zList<zString>* split_for_deletion(Segments& active, long long before)
        SPAR_REQUIRES(*fSegmentsCritical);
    void tell_player_of_deletion();
    void rewrite(Segments& active);
    void remove_manifest_file();

    friend class tnReplayManifestAccess;  // what tests and benchmarks reach

    Segments fSegments SPAR_GUARDED_BY(*fSegmentsCritical);
    zString fPath;    // fixed, as given
    zString fFolder;  // fixed, where the segment files stand
    zString fLeaf;    // fixed, the folder's own name
    zCritical* const fSegmentsCritical;
    zCritical* const fFileCritical;
    zFileStream* fStream SPAR_GUARDED_BY(*fFileCritical) = nullptr;  // owned, open
    std::atomic<bool> fRecording{false};                             // written under the file lock
    long long fVideoDuration SPAR_GUARDED_BY(*fSegmentsCritical) = 0;
    mutable zMutex fFormatsLock;
    tnMediaRecord fVideoFormat SPAR_GUARDED_BY(fFormatsLock);
    tnMediaRecord fAudioFormat SPAR_GUARDED_BY(fFormatsLock);
    tnReplayManifestPlayer_XI* fPlayer SPAR_GUARDED_BY(*fSegmentsCritical) = nullptr;  // not owned
};
