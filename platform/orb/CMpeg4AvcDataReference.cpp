#include "orb/CMpeg4AvcDataReference.h"

namespace Quillon::Orb {

CMpeg4AvcDataReference::CMpeg4AvcDataReference(CMpeg4AvcAccessUnit* unit)
    : CDataReference(kType), fUnit(RObject<CMpeg4AvcAccessUnit>::Share(unit)) {}

CMpeg4AvcAccessUnit* CMpeg4AvcDataReference::GetAccessUnit() const {
    return RObject<CMpeg4AvcAccessUnit>(fUnit).Detach();
}

Result CMpeg4AvcDataReference::ToDataReference(unsigned int format, CMpeg4AvcProperties* properties,
                                               CMemoryDataReference*& reference) const {
    reference = nullptr;
    if (!fUnit) return ResultNullPointer("no access unit");
    RObject<CByteArray> bytes;
    Result result = 0;
    if (format == 'avc1') {
        RObject<CMpeg4AvcDecoderConfiguration> configuration(
            properties ? properties->GetDecoderConfiguration() : nullptr);
        if (!configuration) return ResultNullPointer("no decoder configuration");
        result = fUnit->RenderLengthPrefixed(configuration->GetNalUnitLengthSize(), bytes);
    } else if (format == 'h264') {
        result = fUnit->RenderAnnexB(bytes);
    } else {
        return ResultNotSupported("an access unit renders as 'avc1' or 'h264'");
    }
    if (result.Failed()) return result;
    reference = new CMemoryDataReference(bytes.Get());
    return reference ? Result(0) : Result(ResultOutOfMemory());
}

}  // namespace Quillon::Orb
