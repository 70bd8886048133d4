#pragma once

#include <memory>

#include "orb/CAudioProperties.h"
#include "orb/CMediaSample.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/CVideoProperties.h"
#include "orb/MovieQueue.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// What the file must know of a track, out of its properties. The expected duration is not among
/// it: that is asked for when the file begins.
MovieTrack describe_track(const CVideoProperties& properties);
MovieTrack describe_track(const CAudioProperties& properties);

/// Turns encoded samples into what the file stores, and gives them their place in the track.
/// One thread.
class TrackShaper {
public:
    virtual ~TrackShaper() = default;
    /// Shapes one encoded sample. ResultFalse when there is nothing to store. Sound for which there
    /// was no memory may be brought again.
    virtual Result Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) = 0;
};

/// Pictures, at the times that their samples tell.
class VideoShaper : public TrackShaper {
public:
    explicit VideoShaper(const CVideoProperties& properties);
    Result Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) override;

private:
    Result take_bytes(const CMediaSample& sample, RObject<CDataReference>& data) const;

    const RObject<CMpeg4AvcProperties> fAvc;
    bool fStarted = false;
    long long fToldTime = 0;  ///< time of the picture before, as its sample said, ticks
    long long fNextTime = 0;  ///< its end in the file, ticks
};

/// PCM and coded packets: what came before is what tells the time.
class AudioShaper : public TrackShaper {
public:
    explicit AudioShaper(const CAudioProperties& properties);
    Result Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) override;

private:
    Result shape_pcm(const CMediaSample& sample, MovieQueue::Sample& shaped);
    Result whole_packets(const RObject<CDataReference>& all, RObject<CDataReference>& whole,
                         long long& length);

    const bool fPcm;
    const int fBytesPerPacket;
    const int fFramesPerPacket;
    RObject<CByteArray> fRest;  ///< bytes of a packet whose end has not come yet
    long long fNextTime = 0;    ///< frames so far
};

}  // namespace Quillon::Orb
