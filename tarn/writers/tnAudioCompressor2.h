#pragma once

#include "tarn/export.h"

/// What an add-on hands to a movie file writer with each audio packet.
class TARN_API tnAudioCompressor2 {
public:
    class TARN_API EncodedBuffer {
    public:
        virtual ~EncodedBuffer() = default;
        /// Called last by a write, with the bytes by which it made the audio track longer.
        virtual void SetBytesWritten(int bytes) = 0;
    };
};
