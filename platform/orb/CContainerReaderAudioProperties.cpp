#include "orb/CContainerReaderAudioProperties.h"

namespace Quillon::Orb {

CContainerReaderAudioProperties::CContainerReaderAudioProperties(const CAudioProperties* source)
    : CAudioProperties(kType, source) {}

CContainerReaderAudioProperties::CContainerReaderAudioProperties(
    const CContainerReaderAudioProperties* source)
    : CAudioProperties(kType, source) {}

CContainerReaderAudioProperties::CContainerReaderAudioProperties(std::nullptr_t)
    : CAudioProperties(kType, nullptr) {}

}  // namespace Quillon::Orb
