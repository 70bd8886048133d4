#pragma once

#include <vector>

#include "tarn/filters/tnAudioCompressor.h"

/// A block of PCM as one packet.
class TARN_API tnPcmAudioFilterBuffer : public tnAudioCompressor::EncodedBuffer {
public:
    /// Zeroed room for `frames` sample frames of 16-bit stereo that begin at `time` milliseconds.
    tnPcmAudioFilterBuffer(double time, int frames);
    ~tnPcmAudioFilterBuffer() override;

    // Whatever the index, all answer for the one packet.
    int CodecType() const override;
    int PacketCount() const override;
    unsigned int PacketSize(int packet) override;
    const unsigned char* PacketData(int packet) override;
    double Timestamp(int packet) const override;
    /// A thirtieth of a second, whatever the block holds: hosts write in that step.
    double DurationMilli(int packet) const override;
    unsigned int SampleCount(int packet) override;

private:
    friend class tnPcmAudioFilter;

    std::vector<unsigned char> fData;
    unsigned int fSampleCount;
    unsigned int fPacketSize;  // bytes
    double fTimestamp;         // milliseconds
};
