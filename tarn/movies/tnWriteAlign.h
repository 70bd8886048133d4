#pragma once

#include "spar/zRefCount.h"
#include "tarn/export.h"

/// Lets a writer that handles its times itself start sound and picture together: sound marks its
/// start, the first picture at or after it asks for a key frame and fixes the picture's start, and
/// sound goes out from one gap before that.
///
/// Times are in one unit, milliseconds in the hosts' use. No lock: the caller serialises.
class TARN_API tnWriteAlign : public zRefCount {
public:
    void IncrementStreamCount() { ++fStreamCount; }
    int StreamCount() const { return fStreamCount; }

    /// With fewer than two streams everything goes out.
    bool CanOutputVideoFrame(double time);
    bool CanOutputAudioFrame(double time);
    /// Notes how close to the first video frame this audio frame lies.
    void FindClosestAudioFrame(double time);
    /// True once only, at the first video frame with sound before it.
    bool ShouldRequestVideoKeyframe(double time);
    double FirstVideoFrameTime() const { return fFirstVideoTime; }

private:
    double fFirstAudioTime = -1.0;   // negative while unknown
    double fFirstVideoTime = -1.0;   // negative while unknown
    double fClosestAudioGap = 34.0;  // a frame of 30 fps, rounded up, until a smaller one is seen
    bool fKeyframeRequested = false;
    int fStreamCount = 0;
};
