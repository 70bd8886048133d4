#pragma once

#include "orb/CValueList.h"
#include "orb/CodeBookProperty.h"
#include "orb/IProperties.h"
#include "orb/RObject.h"
#include "orb/Result.h"
#include "orb/fourText.h"

namespace Quillon::Orb {

/// The check that all filters make of a wanted output format: a filter that lists what it gives
/// gives nothing else.
template <class Filter>
Result accept_output_format(Filter& filter, const PropertyName& name, const PropertyValue& value) {
    if (name != CodeBookProperty::MediaFilter::OutputFormat) return 0;
    RObject<CValueList<unsigned int>> formats(filter.GetOutputFormats());
    if (!formats || formats->HasValue(value.four)) return 0;
    return ResultNotSupported("it does not give this format");
}

}  // namespace Quillon::Orb
