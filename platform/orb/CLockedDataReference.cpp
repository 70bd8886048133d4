#include "orb/CLockedDataReference.h"

namespace Quillon::Orb {

CLockedDataReference::CLockedDataReference(CDataReference* reference, int mode)
    : CObject(kType, nullptr), fReference(RObject<CDataReference>::Share(reference)) {
    fLocked = reference && reference->LockBytes(mode, fData, fLength).Succeeded();
}

CLockedDataReference::~CLockedDataReference() {
    if (fLocked) fReference->UnlockBytes();
}

}  // namespace Quillon::Orb
