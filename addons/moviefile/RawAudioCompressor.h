#pragma once

#include <vector>

#include "tarn/filters/tnAudioCompressor.h"
#include "tarn/foundation/tnMediaRecord.h"

#include "addons/support/AnsweringFilter.h"

/// A block of PCM as it was written, of any length and format.
class RawAudioBuffer final : public tnAudioCompressor::EncodedBuffer {
public:
    RawAudioBuffer(const void* data, unsigned int size, unsigned int frames, double timeMs,
                   double durationMs);
    ~RawAudioBuffer() override;

    // Whatever the index, all answer for the one packet.
    int CodecType() const override;
    int PacketCount() const override;
    unsigned int PacketSize(int packet) override;
    const unsigned char* PacketData(int packet) override;
    double Timestamp(int packet) const override;
    double DurationMilli(int packet) const override;
    unsigned int SampleCount(int packet) override;

private:
    const std::vector<unsigned char> fData;
    const unsigned int fFrames;
    const double fTimeMs;
    const double fDurationMs;
};

/// Hands sound on as it comes; the file writer converts what must be converted.
class RawAudioCompressor final : public tnAudioCompressor, public AnsweringFilter {
public:
    RawAudioCompressor();
    ~RawAudioCompressor() override;

    const tnMediaRecord& InputFormat() const override;
    const tnMediaRecord& OutputFormat() const override;
    void SetOutputFormat(const tnMediaRecord& format) override;
    /// 0; -1041 for a format without a rate, channels or bits.
    int Create(const tnMediaRecord& input, const tnMediaRecord& output) override;
    int EncodeFrame(EncodedBuffer** out, double timeMs, void* data, unsigned int count) override;
    int FramesPerPacket() const override;
    /// What Create gave; 0 before it.
    int ConfigurationError() const override { return fCreateError; }

private:
    tnMediaRecord fInputFormat;
    tnMediaRecord fOutputFormat;
    unsigned int fFrameBytes = 0;
    int fCreateError = 0;
    double fRate = 0;
};
