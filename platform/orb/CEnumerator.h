#pragma once

#include "orb/CObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

/// Walks a collection. It stands before the first element until MoveNext.
template <class T>
class CEnumerator : public CObject {
public:
    CEnumerator() : CObject('enum', nullptr) {}

    virtual void Reset() = 0;
    /// False when there is no further element.
    virtual bool MoveNext() = 0;
    /// The current element with a reference for the caller; null without one.
    virtual T* GetCurrent() = 0;
    /// The same; ResultNullPointer without a current element, and `element` is null then.
    virtual Result GetCurrent(T*& element) = 0;
};

}  // namespace Quillon::Orb
