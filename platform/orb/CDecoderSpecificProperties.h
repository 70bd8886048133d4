#pragma once

#include "orb/CByteArray.h"
#include "orb/CObject.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// What a decoder must know before the first sample, as bytes: the avcC record of H.264, the
/// AudioSpecificConfig of AAC. An encoder hangs it on its output properties under 'mspe'.
class ORB_API CDecoderSpecificProperties : public CObject {
public:
    static constexpr unsigned int kType = 'mspe';

    CDecoderSpecificProperties();

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    virtual bool HasDecoderInfo() const;
    /// Shares the bytes; null clears them.
    virtual Result SetDecoderInfo(CByteArray* info);
    /// ResultOK with an empty handle when there are none.
    virtual Result GetDecoderInfo(RObject<CByteArray>& info);

protected:
    explicit CDecoderSpecificProperties(unsigned int type);

private:
    RObject<CByteArray> fInfo;
};

}  // namespace Quillon::Orb
