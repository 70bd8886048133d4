#pragma once

#include <memory>

#include "orb/CContainerWriter.h"
#include "orb/CMediaProperties.h"
#include "orb/CMediaSample.h"
#include "orb/CObject.h"
#include "orb/CValueList.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

class TrackPipe;

/// A track of a file that is being written: what the video and the audio kind share.
///
/// The order is SetInputFormat, CAssetWriter::AddVideoWriter or AddAudioWriter, Begin, then Begin
/// on the asset, WriteSample, WriteSample(nullptr), End. Samples go through bounded queues: a
/// compressing track has an encoder thread of its own, and one thread of the asset writes the file.
/// WriteSample comes from one thread at a time; IsReady and GetBytesWritten from any, without lock.
class ORB_API CAssetTrackWriter : public CObject {
public:
    ~CAssetTrackWriter() override;

    /// The track's own description. SetDuration on it before the asset begins sizes the index.
    virtual CMediaProperties* GetProperties() = 0;
    /// What SetInputFormat takes, best first; null when the track has no compressor of its code.
    virtual CValueList<unsigned int>* GetInputFormats() = 0;
    /// ResultNotSupported for a format that is not listed, or an output that the compressor
    /// refuses.
    virtual Result SetInputFormat(unsigned int format) = 0;
    /// Begins the compressor. Fails as that does, or before the track was added to an asset.
    virtual Result Begin() = 0;
    /// Waits until everything that was written has gone to the container, and ends the compressor.
    virtual Result End();
    /// Queues a sample, which the track shares; null ends the stream. Blocks while the queue is
    /// full; nothing is dropped. The queue of a compressing track has one place more than IsReady
    /// speaks of: the first write to a track that has just become full does not block.
    ///
    /// A failure means that this sample was not taken. A failure of the file comes back from every
    /// call from then on, with the reason; one of the encoder comes back once, and writing goes on.
    virtual Result WriteSample(CMediaSample* sample);

    /// True when WriteSample would not block: there is room, or it would fail at once.
    bool IsReady() const;
    /// Bytes of this track that the file has taken.
    long long GetBytesWritten() const;
    /// The container that has taken the track; null before that.
    CContainerWriter* GetContainerWriter() const;

protected:
    /// `kind` is the class of sample that the track takes: 'vsmp' or 'asmp'.
    CAssetTrackWriter(unsigned int type, unsigned int kind);
    TrackPipe& Pipe() const noexcept { return *fPipe; }

private:
    friend class CAssetWriter;

    const std::unique_ptr<TrackPipe> fPipe;
};

}  // namespace Quillon::Orb
