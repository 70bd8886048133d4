#pragma once

#include "orb/CTransformFilterT.h"

namespace Quillon::Orb {

/// Changes the pixel format of raw pictures; size, time, duration and hint stay.
class ORB_API CVideoConverter : public CTransformFilterT<CVideoFilter> {
public:
    /// What shall come out where the colours shall mean something else than those that go in:
    /// colour space and range. Before Begin; null takes it back. ResultNotSupported from a
    /// converter that cannot, ResultInvalidArgument for another size.
    virtual Result SetOutputProperties(const CVideoProperties* properties) {
        return properties ? ResultNotSupported("only the format changes") : Result(0);
    }

protected:
    explicit CVideoConverter(unsigned int type) : CTransformFilterT<CVideoFilter>(type) {}
};

}  // namespace Quillon::Orb
