#pragma once

#include "orb/CVideoProperties.h"

namespace Quillon::Orb {

/// The description of a track of a file.
class ORB_API CContainerReaderVideoProperties : public CVideoProperties {
public:
    static constexpr unsigned int kType = 'crvp';

    /// Copies; null makes an empty object.
    explicit CContainerReaderVideoProperties(const CVideoProperties* source);
    explicit CContainerReaderVideoProperties(const CContainerReaderVideoProperties* source);
    explicit CContainerReaderVideoProperties(std::nullptr_t);

    bool IsType(unsigned int type) const override {
        return type == kType || CVideoProperties::IsType(type);
    }
};

}  // namespace Quillon::Orb
