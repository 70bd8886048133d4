#pragma once

#include "orb/CMediaSample.h"

namespace Quillon::Orb {

/// A run of packets of sound. For PCM a packet is one frame, a sample of every channel. A coded
/// packet comes alone: one packet, and the duration says how many frames it stands for.
class ORB_API CAudioSample : public CMediaSample {
public:
    static constexpr unsigned int kType = 'asmp';

    explicit CAudioSample(long long packets);

    bool IsType(unsigned int type) const override {
        return type == kType || CMediaSample::IsType(type);
    }

    /// Packets.
    long long GetLength() const noexcept { return fPackets; }

private:
    long long fPackets = 0;
};

}  // namespace Quillon::Orb
