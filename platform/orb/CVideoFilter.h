#pragma once

#include <string>

#include "orb/CMediaSample.h"
#include "orb/CObject.h"
#include "orb/CPropertyTable.h"
#include "orb/CValueList.h"
#include "orb/CVideoProperties.h"
#include "orb/CVideoSample.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// Takes pictures and gives pictures. The order is SetInputProperties, properties such as
/// CodeBookProperty::MediaFilter::OutputFormat, Begin, samples, End. After a failing Begin, and
/// after End, the filter may be set up and begun again.
///
/// One thread at a time; the pin is 0. What fails writes one trace line that names the component.
class ORB_API CVideoFilter : public CObject, public CPropertyTable {
public:
    using Properties = CVideoProperties;
    static constexpr unsigned int kType = 'vflt';

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// What goes in and what comes out; null while nothing is known. Of an encoder the output side
    /// carries its extensions ('h264', 'mspe') from Begin on.
    virtual CVideoProperties* GetInputProperties(int pin) = 0;
    virtual CVideoProperties* GetOutputProperties(int pin) = 0;
    virtual Result Begin() = 0;
    virtual Result End() = 0;
    /// What the filter can take and give, best first. Null when it can say nothing.
    virtual CValueList<unsigned int>* GetInputFormats() = 0;
    virtual CValueList<unsigned int>* GetOutputFormats() = 0;
    /// Stores a copy; a component that refuses some shapes says so here.
    virtual Result SetInputProperties(const CVideoProperties* properties) = 0;

    /// ProcessSample and ReceiveSample under the names that all filters have.
    virtual Result PutSample(int pin, CMediaSample* sample);
    virtual Result GetSample(int pin, RObject<CMediaSample>& sample);

    /// Takes one picture. The filter shares the sample for as long as it needs it and does not
    /// change it. Null says that no more come: what the filter holds back becomes ready.
    virtual Result ProcessSample(CVideoSample* sample) = 0;
    /// Gives one picture that is ready. Success with an empty handle: none is ready now. A
    /// converter carries time, duration and hint over from the picture that went in.
    virtual Result ReceiveSample(RObject<CVideoSample>& sample) = 0;
    /// Both at once. The numbers are not used.
    virtual Result TransformSample(CVideoSample* in, int flags, RObject<CVideoSample>& out,
                                   int* reserved, int* reserved2);

    /// Makes a sample with pixels of that shape, undefined, in main memory. ResultNullPointer
    /// without properties, ResultInvalidArgument for a shape that has no size.
    static Result CreateSample(const CVideoProperties* properties, CVideoSample*& sample);

protected:
    explicit CVideoFilter(unsigned int type);

    /// An output format that the filter does not list is refused.
    Result AcceptProperty(const PropertyName& name, const PropertyValue& value) override;
    std::string GetOwnerName() const override;
};

}  // namespace Quillon::Orb
