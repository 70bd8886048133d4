#pragma once

#include "orb/CTransformFilterT.h"

namespace Quillon::Orb {

/// Changes the sample format or the rate of PCM. What it holds back at the end of a block comes
/// with the next one; a null sample drains.
class ORB_API CAudioConverter : public CTransformFilterT<CAudioFilter> {
protected:
    explicit CAudioConverter(unsigned int type) : CTransformFilterT<CAudioFilter>(type) {}
};

}  // namespace Quillon::Orb
