#pragma once

#include "orb/CAssetTrackWriter.h"
#include "orb/CAudioProperties.h"

namespace Quillon::Orb {

/// An audio track that stores PCM, or encoded packets, as they come. Its time is the order and the
/// length of its packets; sample times are not looked at.
class ORB_API CAssetAudioWriter : public CAssetTrackWriter {
public:
    static constexpr unsigned int kType = 'atrk';

    /// Keeps a copy of the properties; null makes an empty description.
    explicit CAssetAudioWriter(CAudioProperties* properties);

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    CAudioProperties* GetProperties() override;
    CValueList<unsigned int>* GetInputFormats() override;
    Result SetInputFormat(unsigned int format) override;
    Result Begin() override;

protected:
    CAssetAudioWriter(unsigned int type, CAudioProperties* properties);
    CAudioProperties* Properties() const noexcept { return fProperties.Get(); }

private:
    const RObject<CAudioProperties> fProperties;
};

}  // namespace Quillon::Orb
