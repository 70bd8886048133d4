#pragma once

#include "orb/CTransformFilterT.h"

namespace Quillon::Orb {

/// Changes the pixel format of raw pictures; size, time, duration and hint stay.
class ORB_API CVideoConverter : public CTransformFilterT<CVideoFilter> {
protected:
    explicit CVideoConverter(unsigned int type) : CTransformFilterT<CVideoFilter>(type) {}
};

}  // namespace Quillon::Orb
