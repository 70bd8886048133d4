#pragma once

#include <string>

#include "orb/CValueList.h"
#include "orb/CodeBookProperty.h"
#include "orb/IProperties.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// A four-character code in quotes, for messages; what does not print shows as a dot.
inline std::string four_text(unsigned int code) {
    std::string text = "'....'";
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>(code >> (24 - 8 * i));
        if (c >= ' ' && c < 127) text[static_cast<std::size_t>(i) + 1] = c;
    }
    return text;
}

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
