#pragma once

#include "orb/CDecoderSpecificProperties.h"
#include "orb/CMpeg4AvcDecoderConfiguration.h"

namespace Quillon::Orb {

/// What is known of an H.264 stream beside its picture shape. An encoder hangs it on its output
/// properties under 'h264'. Its decoder info is the configuration's avcC record.
class ORB_API CMpeg4AvcProperties : public CDecoderSpecificProperties {
public:
    static constexpr unsigned int kType = 'h264';

    CMpeg4AvcProperties();
    /// Shares the configuration; null makes an empty object.
    explicit CMpeg4AvcProperties(CMpeg4AvcDecoderConfiguration* configuration);

    bool IsType(unsigned int type) const override {
        return type == kType || CDecoderSpecificProperties::IsType(type);
    }
    bool HasDecoderInfo() const override;
    /// Parses the bytes as an avcC record into a new configuration; null clears it.
    Result SetDecoderInfo(CByteArray* info) override;
    Result GetDecoderInfo(RObject<CByteArray>& info) override;

    /// Null while the parameter sets are not known.
    CMpeg4AvcDecoderConfiguration* GetDecoderConfiguration() const;
    void SetDecoderConfiguration(CMpeg4AvcDecoderConfiguration* configuration);

private:
    RObject<CMpeg4AvcDecoderConfiguration> fConfiguration;
};

}  // namespace Quillon::Orb
