#pragma once

#include <utility>

#include "orb/CEnumerator.h"
#include "orb/RObject.h"

namespace Quillon::Orb {

/// An enumerator in the form that `for (auto& element : list->GetIterator())` wants.
/// Every loop starts from the first element.
template <class T>
class Iterator {
public:
    /// Where the walk stands. The end has no enumerator.
    class Item {
    public:
        Item() = default;
        explicit Item(RObject<CEnumerator<T>> enumerator) : fEnumerator(std::move(enumerator)) {
            ++*this;
        }
        /// The element that the walk stands on; empty where the collection holds a null.
        const RObject<T>& operator*() const { return fElement; }
        Item& operator++() {
            if (fEnumerator && !fEnumerator->MoveNext()) fEnumerator.Clear();
            fElement = fEnumerator ? fEnumerator->GetCurrent() : nullptr;
            return *this;
        }
        bool operator==(const Item& other) const { return fEnumerator == other.fEnumerator; }

    private:
        RObject<CEnumerator<T>> fEnumerator;
        RObject<T> fElement;
    };

    /// Takes over the caller's reference.
    explicit Iterator(CEnumerator<T>* enumerator) : fEnumerator(enumerator) {}

    Item begin() const {
        if (fEnumerator) fEnumerator->Reset();
        return Item(fEnumerator);
    }
    Item end() const { return Item(); }

private:
    RObject<CEnumerator<T>> fEnumerator;
};

}  // namespace Quillon::Orb
