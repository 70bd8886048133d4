#pragma once

#include <string>

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
    // Whoever reads this in a log sees what it goes on with.
    std::string given;
    unsigned int format = 0;
    for (int i = 0; formats->GetValue(i, format).Succeeded(); ++i) {
        given += (i > 0 ? ", " : "") + four_text(format);
    }
    return ResultNotSupported("it gives only %s", given.c_str());
}

}  // namespace Quillon::Orb
