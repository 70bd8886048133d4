#pragma once

#include "orb/CAudioProperties.h"

namespace Quillon::Orb {

/// The description of a track of a file.
class ORB_API CContainerReaderAudioProperties : public CAudioProperties {
public:
    static constexpr unsigned int kType = 'crap';

    /// Copies; null makes an empty object.
    explicit CContainerReaderAudioProperties(const CAudioProperties* source);
    explicit CContainerReaderAudioProperties(const CContainerReaderAudioProperties* source);
    explicit CContainerReaderAudioProperties(std::nullptr_t);

    bool IsType(unsigned int type) const override {
        return type == kType || CAudioProperties::IsType(type);
    }
};

}  // namespace Quillon::Orb
