#include "orb/CAudioFilter.h"

#include "orb/CodeBookProperty.h"
#include "orb/filterSupport.h"

namespace Quillon::Orb {

CAudioFilter::CAudioFilter(unsigned int type) : CObject(type, nullptr) {
    DeclareFour(CodeBookProperty::MediaFilter::OutputFormat, 0);
}

Result CAudioFilter::AcceptProperty(const PropertyName& name, const PropertyValue& value) {
    return accept_output_format(*this, name, value);
}

std::string CAudioFilter::GetOwnerName() const {
    return four_text(GetType());
}

}  // namespace Quillon::Orb
