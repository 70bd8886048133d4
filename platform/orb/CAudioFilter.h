#pragma once

#include <string>

#include "orb/CAudioProperties.h"
#include "orb/CAudioSample.h"
#include "orb/CObject.h"
#include "orb/CPropertyTable.h"
#include "orb/CValueList.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// Takes sound and gives sound; lives as CVideoFilter does.
class ORB_API CAudioFilter : public CObject, public CPropertyTable {
public:
    using Properties = CAudioProperties;
    static constexpr unsigned int kType = 'aflt';

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    virtual CAudioProperties* GetInputProperties(int pin) = 0;
    virtual CAudioProperties* GetOutputProperties(int pin) = 0;
    virtual Result Begin() = 0;
    virtual Result End() = 0;
    virtual CValueList<unsigned int>* GetInputFormats() = 0;
    virtual CValueList<unsigned int>* GetOutputFormats() = 0;
    virtual Result SetInputProperties(const CAudioProperties* properties) = 0;
    /// Takes a CAudioSample. Its bytes may be gone when the call returns, so the filter copies what
    /// it keeps. Null says that no more come: what the filter holds back becomes ready.
    virtual Result PutSample(int pin, CMediaSample* sample) = 0;
    /// Gives a CAudioSample; success with an empty handle: none is ready now.
    virtual Result GetSample(int pin, RObject<CMediaSample>& sample) = 0;

protected:
    explicit CAudioFilter(unsigned int type);

    /// An output format that the filter does not list is refused.
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override;
    std::string GetOwnerName() const override;
};

}  // namespace Quillon::Orb
