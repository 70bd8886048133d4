#pragma once

#include "orb/CObject.h"

namespace Quillon::Orb {

/// A plain value as an object, so that a list can hold it. It does not change.
template <class T>
class CValue : public CObject {
public:
    static constexpr unsigned int kType = 'vu<>';

    explicit CValue(T value) : CObject(kType, nullptr), fValue(value) {}

    bool Equals(CObject* other) const override {
        return other && other->IsType(kType) && static_cast<CValue*>(other)->fValue == fValue;
    }
    int GetHashCode() const override { return static_cast<int>(fValue); }

    T GetValue() const noexcept { return fValue; }

private:
    const T fValue;
};

}  // namespace Quillon::Orb
