#include "spar/zFSPath.h"
#include "spar/zFileStream.h"
#include "tarn/replay/segmentTree.h"
#include "tarn/replay/tnReplayManifest.h"

// Look-ups, each with a reference for the caller.

static tnReplaySegment* referenced(tnReplaySegment* segment) {
    if (segment != nullptr) segment->AddRef();
    return segment;
}

bool tnReplayManifest::IsEmpty() const {
    const zCriticalLock lock(*fSegmentsCritical);
    return fSegments.IsEmpty();
}

long long tnReplayManifest::VideoDuration() const {
    const zCriticalLock lock(*fSegmentsCritical);
    return fVideoDuration;
}

int tnReplayManifest::GetSegmentPath(const tnReplaySegment* segment, zString& path) const {
    zString name;
    {
        const zMutexLock lock(fFormatsLock);
        // "%d" of an unsigned id is kept: recordings with ids past 2147483647 have negative names.
        name.sprintf("%d.%s", static_cast<int>(segment->fId),
                     fVideoFormat.AsCString("file_extension", "mov"));
    }
    zFSPath file(fFolder);
    file.GoChild(name);
    path = file.Path();
    return zFileStream::Exists(path) ? 0 : -1;
}

tnReplaySegment* tnReplayManifest::get_segment_by_id(unsigned int id) const {
    const zCriticalLock lock(*fSegmentsCritical);
    for (tnReplaySegment* segment : fSegments) {
        if (segment->fId == id) return referenced(segment);
    }
    return nullptr;
}

tnReplaySegment* tnReplayManifest::GetFirstSegment() {
    const zCriticalLock lock(*fSegmentsCritical);
    zString path;
    for (tnReplaySegment* segment : fSegments) {
        if (GetSegmentPath(segment, path) == 0) return referenced(segment);
    }
    return nullptr;
}

tnReplaySegment* tnReplayManifest::GetSegmentByTime(long long time) {
    const zCriticalLock lock(*fSegmentsCritical);
    tnReplaySegment* const segment = segment_at(fSegments, time);
    zString path;
    if (segment == nullptr || GetSegmentPath(segment, path) != 0) return nullptr;
    return referenced(segment);
}

/// Whether `segment` holds the mark or touches the stretch between the marks. All ends count.
static bool is_marked(const tnReplaySegment& segment, const long long* mark,
                      const long long* markIn, const long long* markOut) {
    if (mark != nullptr && segment.fStart <= *mark && segment.fStop >= *mark) return true;
    return markIn != nullptr && segment.fStop >= *markIn && segment.fStart <= *markOut;
}

void tnReplayManifest::AppendSegmentIDsByMarks(Segments& segments, long long* mark,
                                               long long* markIn, long long* markOut) {
    const zCriticalLock lock(*fSegmentsCritical);
    for (tnReplaySegment* segment : fSegments) {
        if (!is_marked(*segment, mark, markIn, markOut)) continue;
        if (segment_at(segments, segment->fStart) != nullptr) continue;
        segments.Set(referenced(segment));
    }
}

void tnReplayManifest::RegisterPlayer(tnReplayManifestPlayer_XI* player) {
    const zCriticalLock lock(*fSegmentsCritical);
    fPlayer = player;
}

void tnReplayManifest::UnRegisterPlayer(tnReplayManifestPlayer_XI* player) {
    const zCriticalLock lock(*fSegmentsCritical);
    if (fPlayer == player) fPlayer = nullptr;
}
