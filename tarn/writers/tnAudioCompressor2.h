#pragma once

#include "tarn/export.h"

/// What an add-on hands to a movie file writer with each audio packet.
class TARN_API tnAudioCompressor2 {
public:
    class TARN_API EncodedBuffer {
    public:
        virtual ~EncodedBuffer() = default;
        /// Told at the end of a write: bytes that this call added to the file's audio track.
        virtual void SetBytesWritten(int bytes) = 0;
    };
};
