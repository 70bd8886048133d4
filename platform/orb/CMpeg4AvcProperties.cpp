#include "orb/CMpeg4AvcProperties.h"

namespace Quillon::Orb {

CMpeg4AvcProperties::CMpeg4AvcProperties() : CDecoderSpecificProperties(kType) {}

CMpeg4AvcProperties::CMpeg4AvcProperties(CMpeg4AvcDecoderConfiguration* configuration)
    : CDecoderSpecificProperties(kType) {
    SetDecoderConfiguration(configuration);
}

bool CMpeg4AvcProperties::HasDecoderInfo() const {
    return static_cast<bool>(fConfiguration);
}

Result CMpeg4AvcProperties::SetDecoderInfo(CByteArray* info) {
    RObject<CMpeg4AvcDecoderConfiguration> configuration;
    if (info) {
        configuration = new CMpeg4AvcDecoderConfiguration();
        if (!configuration) return ResultOutOfMemory();
        Result result = configuration->Parse(info->GetData(), info->GetLength());
        if (result.Failed()) return result;
    }
    fConfiguration = configuration;
    return 0;
}

Result CMpeg4AvcProperties::GetDecoderInfo(RObject<CByteArray>& info) {
    info.Clear();
    return fConfiguration ? fConfiguration->Render(info) : Result(0);
}

CMpeg4AvcDecoderConfiguration* CMpeg4AvcProperties::GetDecoderConfiguration() const {
    return RObject<CMpeg4AvcDecoderConfiguration>(fConfiguration).Detach();
}

void CMpeg4AvcProperties::SetDecoderConfiguration(CMpeg4AvcDecoderConfiguration* configuration) {
    fConfiguration = RObject<CMpeg4AvcDecoderConfiguration>::Share(configuration);
}

}  // namespace Quillon::Orb
