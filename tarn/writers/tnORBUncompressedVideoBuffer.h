#pragma once

#include "tarn/export.h"
#include "tarn/filters/tnVideoCompressor.h"

/// A raw frame on its way into a tnWriteORB, which leaves in it what the frame cost in the file.
/// Add-ons derive from it.
class TARN_API tnORBUncompressedVideoBuffer : public tnVideoCompressor::EncodedBuffer {
public:
    ~tnORBUncompressedVideoBuffer() override;

    /// Bytes that the file's video track grew by during the write that took this frame. The track
    /// encodes behind the write, so they are mostly those of earlier frames.
    int fBytesWritten = 0;
};
