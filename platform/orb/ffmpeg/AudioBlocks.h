#pragma once

#include <deque>

#include "orb/CAudioSample.h"
#include "orb/CByteArray.h"
#include "orb/CLockedDataReference.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// A run of sound in memory: the sample's bytes, locked for reading while this lives.
class AudioBlock {
public:
    explicit AudioBlock(const CMediaSample& sample);

    /// False when the sample has no data that can be read.
    bool IsValid() const { return fLock && fLock->IsLocked(); }
    const unsigned char* Data() const { return fLock->GetData(); }
    /// Whole frames; bytes of a torn frame at the end are not counted.
    int Frames(int frameBytes) const { return fLock->GetLength() / frameBytes; }

private:
    RObject<CLockedDataReference> fLock;
};

/// The samples that an audio filter has ready, in order.
class AudioReadyQueue {
public:
    /// Adds `frames` frames of PCM that begin at `time`.
    Result AddPcm(CByteArray& bytes, long long time, int frames);
    /// Adds one encoded packet.
    Result AddPacket(const unsigned char* data, int length, long long time, long long duration);

    /// Moves the first to `sample`; empties that if there is none.
    Result Take(RObject<CMediaSample>& sample);
    void Clear() { fSamples.clear(); }

private:
    Result add(CAudioSample* made, CDataReference* reference, long long time, long long duration);

    std::deque<RObject<CMediaSample>> fSamples;
};

}  // namespace Quillon::Orb
