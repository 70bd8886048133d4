#pragma once

#include "spar/zRecordable.h"
#include "spar/zRefCount.h"
#include "tarn/export.h"

/// One segment of a replay recording: its number, and the stretch of the recording's timeline that
/// its movie file holds.
///
/// Counted: whoever makes it holds the first reference. The three values do not change once the
/// segment stands in a manifest, so any thread may read them.
class TARN_API tnReplaySegment : public zRecordable, public zRefCount {
public:
    /// All zero, and so not valid.
    tnReplaySegment() = default;
    /// The same three values with a reference count of its own.
    tnReplaySegment(const tnReplaySegment& source) = default;
    tnReplaySegment(unsigned int id, long long start, long long stop);
    tnReplaySegment& operator=(const tnReplaySegment& source) = default;
    ~tnReplaySegment() override;

    /// Takes "id", "start" and "stop": 0, or -1 when the id is missing or 0 (nothing changes then
    /// but the id) or the stop does not lie behind the start. `options` is not used.
    int Read(const zRecord& record, unsigned int options) override;
    /// Gives the element name "segment" and the three values. Always 0; `full` is not used.
    int Write(zRecord& record, bool full) override;

    bool IsValid() const { return fId != 0 && fStop > fStart; }
    void Print() const {}

    /// The order of segments in a zRedBlack: by time range. A segment that starts inside the range
    /// of `inTree` takes its place.
    static int compare(const tnReplaySegment* segment, const tnReplaySegment* inTree) {
        if (segment->fStart < inTree->fStart) return -1;
        return segment->fStart < inTree->fStop ? 0 : 1;
    }

    unsigned int fId = 0;  ///< 0 is none; also the stem of the file's name
    long long fStart = 0;  ///< on the recording's timeline, in the units of whoever records
    long long fStop = 0;   ///< exclusive, in the same units
};
