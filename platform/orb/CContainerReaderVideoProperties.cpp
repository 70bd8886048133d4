#include "orb/CContainerReaderVideoProperties.h"

namespace Quillon::Orb {

CContainerReaderVideoProperties::CContainerReaderVideoProperties(const CVideoProperties* source)
    : CVideoProperties(kType, source) {}

CContainerReaderVideoProperties::CContainerReaderVideoProperties(
    const CContainerReaderVideoProperties* source)
    : CVideoProperties(kType, source) {}

CContainerReaderVideoProperties::CContainerReaderVideoProperties(std::nullptr_t)
    : CVideoProperties(kType, nullptr) {}

}  // namespace Quillon::Orb
