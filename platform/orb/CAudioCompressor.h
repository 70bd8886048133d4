#pragma once

#include "orb/CTransformFilterT.h"

namespace Quillon::Orb {

/// Encodes PCM. Each sample that comes out is one packet (CAudioSample(1)) with its bytes in a
/// CMemoryDataReference; its duration is the frames it stands for, and the durations of all sum up
/// to the priming and the frames that went in. From a successful Begin on the output properties
/// tell GetFramesPerPacket, GetPrimingFrames, GetBitRate and, under 'mspe', what decoders need.
class ORB_API CAudioCompressor : public CTransformFilterT<CAudioFilter> {
protected:
    explicit CAudioCompressor(unsigned int type) : CTransformFilterT<CAudioFilter>(type) {}
};

}  // namespace Quillon::Orb
