#pragma once

#include "tarn/replay/tnReplayManifest.h"

/// The segment whose range covers `time`, or null. No reference is added.
inline tnReplaySegment* segment_at(const tnReplayManifest::Segments& segments, long long time) {
    tnReplaySegment** const found = segments.FindWith([time](const tnReplaySegment* inTree) {
        if (inTree->fStart > time) return -1;
        return inTree->fStop <= time ? 1 : 0;
    });
    return found != nullptr ? *found : nullptr;
}
