#include "orb/CDecoderSpecificProperties.h"

namespace Quillon::Orb {

CDecoderSpecificProperties::CDecoderSpecificProperties() : CDecoderSpecificProperties(kType) {}

CDecoderSpecificProperties::CDecoderSpecificProperties(unsigned int type)
    : CObject(type, nullptr) {}

bool CDecoderSpecificProperties::HasDecoderInfo() const {
    return static_cast<bool>(fInfo);
}

Result CDecoderSpecificProperties::SetDecoderInfo(CByteArray* info) {
    fInfo = RObject<CByteArray>::Share(info);
    return 0;
}

Result CDecoderSpecificProperties::GetDecoderInfo(RObject<CByteArray>& info) {
    info = fInfo;
    return 0;
}

}  // namespace Quillon::Orb
