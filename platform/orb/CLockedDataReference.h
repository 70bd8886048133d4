#pragma once

#include "orb/CDataReference.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// Holds a lock on data for as long as it lives.
class ORB_API CLockedDataReference : public CObject {
public:
    static constexpr unsigned int kType = 'lock';

    /// Shares the reference. Where it cannot be locked there are no data.
    CLockedDataReference(CDataReference* reference, int mode);
    ~CLockedDataReference() override;

    bool IsType(unsigned int type) const override { return type == kType || CObject::IsType(type); }

    /// False where the data cannot be reached. Data that can may still be none: a length of 0, and
    /// perhaps a null pointer.
    bool IsLocked() const noexcept { return fLocked; }
    unsigned char* GetData() const noexcept { return fData; }
    int GetLength() const noexcept { return fLength; }

private:
    RObject<CDataReference> fReference;
    unsigned char* fData = nullptr;
    int fLength = 0;
    bool fLocked = false;
};

}  // namespace Quillon::Orb
