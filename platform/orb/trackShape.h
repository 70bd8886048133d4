#pragma once

#include <deque>
#include <memory>
#include <utility>

#include "orb/CAudioProperties.h"
#include "orb/CMediaSample.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/CVideoProperties.h"
#include "orb/MovieQueue.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// What the file must know of a track, out of its properties.
MovieTrack describe_track(const CVideoProperties& properties);
MovieTrack describe_track(const CAudioProperties& properties);

/// Turns encoded samples into what the file stores, and gives them their place in the track.
/// One thread.
class TrackShaper {
public:
    virtual ~TrackShaper() = default;
    /// For a track with an encoder: a sample goes in, before the encoder sees it.
    virtual void Entering(const CMediaSample& sample);
    /// The encoder refused the sample that entered last.
    virtual void Refused();
    /// Shapes one encoded sample. ResultFalse when there is nothing to store.
    virtual Result Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) = 0;
};

/// Pictures. Times of an encoder's output are those of its input, by their place in the queue.
class VideoShaper : public TrackShaper {
public:
    explicit VideoShaper(const CVideoProperties& properties);
    void Entering(const CMediaSample& sample) override;
    void Refused() override;
    Result Shape(const CMediaSample& sample, MovieQueue::Sample& shaped) override;

private:
    Result take_bytes(const CMediaSample& sample, RObject<CDataReference>& data) const;

    const RObject<CMpeg4AvcProperties> fAvc;
    std::deque<std::pair<long long, long long>> fEntered;  ///< time and duration, ticks
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
