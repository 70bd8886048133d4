#pragma once

#include <vector>

#include "orb/CAudioSample.h"
#include "orb/RObject.h"
#include "tarn/filters/tnAudioCompressor.h"

/// AAC packets in the order of time. An index out of range answers 0, null, or a time of -1.
class TARN_API tnAacAudioBuffer : public tnAudioCompressor::EncodedBuffer {
public:
    static constexpr int kCodecType = 'mp4a';

    tnAacAudioBuffer();
    ~tnAacAudioBuffer() override;

    int CodecType() const override;
    int PacketCount() const override;
    unsigned int PacketSize(int packet) override;
    const unsigned char* PacketData(int packet) override;
    /// With a reference for the caller. Its time counts frames from the start of the stream, the
    /// encoder's priming included.
    Quillon::Orb::CAudioSample* AudioSample(int packet) override;
    /// When the packet's sound is heard: priming lies before the time of the first block.
    double Timestamp(int packet) const override;
    double DurationMilli(int packet) const override;
    unsigned int SampleCount(int packet) override;

private:
    friend class tnAacAudioCompressor;

    struct Packet {
        Quillon::Orb::RObject<Quillon::Orb::CAudioSample> sample;
        const unsigned char* data;
        unsigned int size;  // bytes
        double timeMs;      // of its first frame
        double durationMs;
    };

    void add(Quillon::Orb::RObject<Quillon::Orb::CAudioSample> sample, double timeMs,
             double durationMs);
    const Packet* at(int packet) const;

    std::vector<Packet> fPackets;
};
