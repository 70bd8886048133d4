#pragma once

#include "orb/CDataReference.h"
#include "orb/CMemoryDataReference.h"
#include "orb/CMpeg4AvcAccessUnit.h"
#include "orb/CMpeg4AvcProperties.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// An encoded H.264 picture as its NAL units, which become bytes when somebody asks.
class ORB_API CMpeg4AvcDataReference : public CDataReference {
public:
    static constexpr unsigned int kType = 'h264';

    /// Shares the unit.
    explicit CMpeg4AvcDataReference(CMpeg4AvcAccessUnit* unit);

    bool IsType(unsigned int type) const override {
        return type == kType || CDataReference::IsType(type);
    }

    CMpeg4AvcAccessUnit* GetAccessUnit() const;

    /// Renders the unit in new bytes, of which the caller gets a reference: 'avc1' behind length
    /// fields of the size that the properties' configuration names, 'h264' behind start codes.
    /// ResultNullPointer without a unit, or for 'avc1' without properties or configuration;
    /// ResultNotSupported for another format. `reference` is null after a failure.
    Result ToDataReference(unsigned int format, CMpeg4AvcProperties* properties,
                           CMemoryDataReference*& reference) const;

private:
    const RObject<CMpeg4AvcAccessUnit> fUnit;
};

}  // namespace Quillon::Orb
