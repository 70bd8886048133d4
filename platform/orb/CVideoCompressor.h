#pragma once

#include "orb/CTransformFilterT.h"

namespace Quillon::Orb {

/// Encodes pictures. H.264 comes out as CMpeg4AvcDataReference without parameter sets in the
/// stream, everything else as CMemoryDataReference.
///
/// Samples come out in decode order. The nth one has the time and the duration of the nth picture
/// that went in; its composition offset leads from there to its display time. The output
/// properties carry the decoder's needs from a successful Begin on: 'h264' (CMpeg4AvcProperties)
/// and 'mspe' (its avcC record) for H.264, and SetReorderDepth. A picture with the hint
/// kHintKeyFrame becomes a key picture. ProcessSample with null drains.
class ORB_API CVideoCompressor : public CTransformFilterT<CVideoFilter> {
protected:
    /// Declares CodeBookProperty::MediaFilter::UsingHardwareAcceleration, which is false until the
    /// component says otherwise with UpdateFlag.
    explicit CVideoCompressor(unsigned int type);
};

}  // namespace Quillon::Orb
