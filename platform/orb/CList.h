#pragma once

#include <new>

#include "orb/CEnumerator.h"
#include "orb/CLeaks.h"
#include "orb/CObject.h"
#include "orb/Iterator.h"
#include "orb/RObject.h"
#include "orb/Result.h"

namespace Quillon::Orb {

template <class T>
class CListEnumerator;

/// A chain of counted objects in the order in which they were added; an element may be null.
/// Several threads may read one list while none changes it.
template <class T>
class CList : public CObject {
public:
    static constexpr unsigned int kType = 'li<>';

    struct Node {
        T* element;
        Node* next;
    };

    CList() : CObject(kType, nullptr) {}
    ~CList() override { Clear(); }

    int GetCount() const noexcept { return fCount; }
    /// The chain itself, for walking; no references are given.
    const Node* GetFirst() const noexcept { return fFirst; }

    /// Appends the element; the list acquires a reference of its own.
    Result Add(T* element) {
        Node* node = new (std::nothrow) Node{element, nullptr};
        if (!node) return ResultOutOfMemory();
        CLeaks::AddMemory(this, node);
        if (element) element->Acquire();
        (fLast ? fLast->next : fFirst) = node;
        fLast = node;
        ++fCount;
        return 0;
    }

    /// The element at `index`, counted from 0, with a reference for the caller.
    Result Get(int index, T*& element) const {
        element = nullptr;
        if (index < 0 || index >= fCount) return ResultArgumentOutOfRange();
        const Node* node = fFirst;
        while (node && index-- > 0) node = node->next;
        if (!node) return ResultNullPointer();
        element = node->element;
        if (element) element->Acquire();
        return 0;
    }

    void Clear() {
        while (fFirst) {
            Node* node = fFirst;
            fFirst = node->next;
            if (node->element) node->element->Release();
            CLeaks::RemoveMemory(this, node);
            delete node;
        }
        fLast = nullptr;
        fCount = 0;
    }

    CEnumerator<T>* GetEnumerator() const { return new CListEnumerator<T>(this); }
    Iterator<T> GetIterator() const { return Iterator<T>(GetEnumerator()); }

protected:
    Node* fFirst = nullptr;
    Node* fLast = nullptr;
    int fCount = 0;
};

/// Walks a list that it holds a reference to.
template <class T>
class CListEnumerator : public CEnumerator<T> {
public:
    explicit CListEnumerator(const CList<T>* list) : fList(RObject<const CList<T>>::Share(list)) {}

    void Reset() override {
        fNode = nullptr;
        fStarted = false;
    }
    bool MoveNext() override {
        if (!fStarted) {
            fNode = fList ? fList->GetFirst() : nullptr;
        } else if (fNode) {
            fNode = fNode->next;
        }
        fStarted = true;
        return fNode != nullptr;
    }
    T* GetCurrent() override {
        T* element = nullptr;
        GetCurrent(element);
        return element;
    }
    Result GetCurrent(T*& element) override {
        element = nullptr;
        if (!fNode) return ResultNullPointer();
        element = fNode->element;
        if (element) element->Acquire();
        return 0;
    }

private:
    RObject<const CList<T>> fList;
    const typename CList<T>::Node* fNode = nullptr;
    bool fStarted = false;
};

}  // namespace Quillon::Orb
