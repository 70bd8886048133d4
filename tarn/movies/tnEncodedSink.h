#pragma once

#include <memory>

#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/filters/tnVideoCompressor.h"

/// Where an output stream puts its encoded buffers; the add-on implements it.
///
/// Each stream calls it in the order in which its buffers come, never twice at once, under no lock,
/// on the thread that writes the source: while it blocks, neither the encoder nor any output behind
/// it gets on.
class tnEncodedSink {
public:
    virtual ~tnEncodedSink() = default;
    virtual void WriteVideo(std::shared_ptr<tnFilter> filter,
                            std::shared_ptr<tnVideoCompressor::EncodedBuffer> buffer) = 0;
    virtual void WriteAudio(std::shared_ptr<tnFilter> filter,
                            std::shared_ptr<tnAudioCompressor::EncodedBuffer> buffer) = 0;
};
