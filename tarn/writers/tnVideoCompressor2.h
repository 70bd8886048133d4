#pragma once

#include "tarn/export.h"

namespace Quillon::Orb {
class CPixelDataReference;
}

/// When a frame is shown and for how long, in ticks of the encoded video record's timescale.
/// A value whose fHas... member is 0 counts as 0.
struct EncodedBufferTiming {
    long long fHasTime = 0;
    long long fTime = 0;
    long long fHasDuration = 0;
    long long fDuration = 0;
};

/// What an add-on hands to a movie file writer for each video frame. The add-on implements it; the
/// writer calls it within one write only and keeps no pointer.
class TARN_API tnVideoCompressor2 {
public:
    class TARN_API EncodedBuffer {
    public:
        virtual ~EncodedBuffer() = default;
        /// Called last by a write, with the bytes by which it made the video track longer.
        virtual void SetBytesWritten(int bytes) = 0;
        virtual EncodedBufferTiming GetTiming() = 0;
        /// The frame's pixels, with a reference that the caller releases. The pixels stay as they
        /// are until the last reference goes, which may be on another thread.
        virtual Quillon::Orb::CPixelDataReference* GetPixelData() = 0;
    };
};
