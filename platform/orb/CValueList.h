#pragma once

#include <initializer_list>

#include "orb/CList.h"
#include "orb/CValue.h"

namespace Quillon::Orb {

/// A list of plain values, such as the formats that a filter takes.
template <class T>
class CValueList : public CList<CValue<T>> {
public:
    CValueList() = default;
    CValueList(std::initializer_list<T> values) {
        for (const T& value : values) AddValue(value);
    }

    Result AddValue(T value) {
        RObject<CValue<T>> element(new CValue<T>(value));
        return element ? this->Add(element.Get()) : Result(ResultOutOfMemory());
    }

    /// The value at `index`; as CList::Get, and ResultNullPointer for an element that is null.
    Result GetValue(int index, T& value) const {
        RObject<CValue<T>> element;
        Result result = this->Get(index, element.Receive());
        if (result.Failed()) return result;
        if (!element) return ResultNullPointer();
        value = element->GetValue();
        return 0;
    }

    bool HasValue(T value) const {
        for (auto* node = this->GetFirst(); node; node = node->next) {
            if (node->element && node->element->GetValue() == value) return true;
        }
        return false;
    }
};

}  // namespace Quillon::Orb
