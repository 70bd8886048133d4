#pragma once

#include <memory>
#include <vector>

#include "spar/zRefCount.h"
#include "tarn/filters/tnFilter.h"

class zBuffer;

namespace Quillon::Orb {
class CAudioSample;
}

/// An audio encoder. One thread at a time; EncodeFrame returns its buffer, there is no callback.
class TARN_API tnAudioCompressor : public tnFilter {
public:
    /// What came out of the encoder at once: one packet or more. Observers share it by its count.
    class TARN_API EncodedBuffer : public zRefCount {
    public:
        virtual int CodecType() const = 0;
        virtual int PacketCount() const = 0;
        /// Bytes of that packet, and where they are.
        virtual unsigned int PacketSize(int packet) = 0;
        virtual const unsigned char* PacketData(int packet) = 0;
        virtual Quillon::Orb::CAudioSample* AudioSample(int packet);
        /// Milliseconds: when the packet begins, as the encoder counts, and how long it lasts.
        virtual double Timestamp(int packet) const = 0;
        virtual double DurationMilli(int packet) const = 0;
        /// How many sample frames it decodes to.
        virtual unsigned int SampleCount(int packet) = 0;

        /// One time a packet in milliseconds, -1 while unset. The filter manager writes them; there
        /// are 32 whatever the number of packets, and those beyond have none.
        std::vector<long long> fTimestamps = std::vector<long long>(32, -1);
    };

    bool CreateFilter(const tnMediaRecord& input) override;
    std::shared_ptr<const std::vector<unsigned char>> DecoderInfo() override;

    // GetDecoderDescription is the last of these, where in tnVideoCompressor it is the first:
    // add-ons are built against both.

    /// Gets ready to make `output` of `input`: 0 or a negative code.
    virtual int Create(const tnMediaRecord& input, const tnMediaRecord& output) = 0;
    /// Encodes `count` bytes of PCM that begin at `timeMs`. 0 with `*out` set, which the caller
    /// releases; 0 with null when there is nothing to deliver yet; an error with null.
    virtual int EncodeFrame(tnAudioCompressor::EncodedBuffer** out, double timeMs, void* data,
                            unsigned int count) = 0;
    /// Sample frames that a full packet decodes to.
    virtual int FramesPerPacket() const = 0;
    virtual int GetDecoderDescription(zBuffer& out);

private:
    std::shared_ptr<const std::vector<unsigned char>> fDecoderInfo;
};
