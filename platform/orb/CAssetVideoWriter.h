#pragma once

#include "orb/CAssetTrackWriter.h"
#include "orb/CVideoProperties.h"

namespace Quillon::Orb {

/// A video track that stores encoded samples as they come: CMpeg4AvcDataReference for H.264, whose
/// properties then carry the 'h264' extension, else any data reference that can be locked.
class ORB_API CAssetVideoWriter : public CAssetTrackWriter {
public:
    static constexpr unsigned int kType = 'vtrk';

    /// Keeps a copy of the properties; null makes an empty description.
    explicit CAssetVideoWriter(CVideoProperties* properties);

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    CVideoProperties* GetProperties() override;
    CValueList<unsigned int>* GetInputFormats() override;
    Result SetInputFormat(unsigned int format) override;
    Result Begin() override;

protected:
    CAssetVideoWriter(unsigned int type, CVideoProperties* properties);
    CVideoProperties* Properties() const noexcept { return fProperties.Get(); }

private:
    const RObject<CVideoProperties> fProperties;
};

}  // namespace Quillon::Orb
