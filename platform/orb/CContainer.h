#pragma once

#include "orb/CObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// A file with tracks.
class ORB_API CContainer : public CObject {
public:
    static constexpr unsigned int kType = 'cont';
    static constexpr int kDefaultQueueSize = 64;

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// How many samples of each track may wait before the container; counts from Begin on.
    /// ResultInvalidArgument below 1.
    Result SetQueueSize(int samples);
    int GetQueueSize() const noexcept { return fQueueSize; }

protected:
    explicit CContainer(unsigned int type) : CObject(type, nullptr) {}

private:
    int fQueueSize = kDefaultQueueSize;
};

}  // namespace Quillon::Orb
