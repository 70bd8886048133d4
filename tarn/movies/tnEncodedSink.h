#pragma once

#include <memory>

#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"

/// Where an output stream puts its encoded buffers; the add-on implements it.
///
/// Called on the thread that delivers the source's buffers, one call at a time per stream, in order
/// of arrival, with no lock held. A sink that blocks holds up the encoder and all later outputs of
/// the source.
class tnEncodedSink {
public:
    virtual ~tnEncodedSink() = default;
    virtual void WriteVideo(std::shared_ptr<tnFilter> filter,
                            std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) = 0;
    virtual void WriteAudio(std::shared_ptr<tnFilter> filter,
                            std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) = 0;
};
