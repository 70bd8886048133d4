#pragma once

#include "orb/CObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// Where the data of a sample are: in memory, in pixels, in an access unit.
class ORB_API CDataReference : public CObject {
public:
    static constexpr unsigned int kType = 'dref';
    enum LockMode { kRead = 1, kWrite = 2, kReadWrite = 3 };

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// Makes the data reachable as one run of bytes until UnlockBytes. ResultNotSupported, with a
    /// null pointer and no bytes, where they do not lie in one run. CLockedDataReference pairs the
    /// two calls.
    virtual Result LockBytes(int mode, unsigned char*& data, int& length);
    virtual void UnlockBytes();

protected:
    explicit CDataReference(unsigned int type) : CObject(type, nullptr) {}

    /// ResultInvalidArgument for anything but the three modes.
    static Result CheckMode(int mode);
};

}  // namespace Quillon::Orb
