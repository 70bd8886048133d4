#pragma once

/// A doubly linked list of values. No lock of its own. Pointers in it are not owned.
template <class T>
class zList {
public:
    struct Node {
        T fValue;
        Node* fNext;
        Node* fPrevious;
    };

    zList() = default;
    zList(const zList&) = delete;
    zList& operator=(const zList&) = delete;
    ~zList() { RemoveAll(); }

    Node* Head() const { return fHead; }
    Node* Tail() const { return fTail; }
    bool IsEmpty() const { return fHead == nullptr; }
    unsigned int Count() const { return fCount; }

    void Append(const T& value) {
        Node* node = new Node{value, nullptr, fTail};
        (fTail ? fTail->fNext : fHead) = node;
        fTail = node;
        ++fCount;
    }

    /// Removes the first entry that equals `value`; false when there is none.
    bool Remove(const T& value) {
        for (Node* node = fHead; node != nullptr; node = node->fNext) {
            if (!(node->fValue == value)) continue;
            RemoveNode(node);
            return true;
        }
        return false;
    }

    /// Removes the entry at `index`; false past the end.
    bool RemoveIndex(unsigned int index) {
        Node* node = fHead;
        while (node != nullptr && index-- > 0) node = node->fNext;
        if (node == nullptr) return false;
        RemoveNode(node);
        return true;
    }

    /// Removes the first entry and gives its value; a value-initialised T (null) when there is
    /// none.
    T RemoveFirst() {
        if (fHead == nullptr) return T();
        T value = static_cast<T&&>(fHead->fValue);
        RemoveNode(fHead);
        return value;
    }

    void RemoveAll() {
        while (fHead != nullptr) RemoveNode(fHead);
    }

    /// Calls Release on every entry, first to last, and removes it. An entry is out of the list
    /// before its Release runs.
    void RemoveAndReleaseAll() {
        while (fHead != nullptr) RemoveFirst()->Release();
    }

    /// Unlinks and frees a node of this list.
    void RemoveNode(Node* node) {
        (node->fPrevious ? node->fPrevious->fNext : fHead) = node->fNext;
        (node->fNext ? node->fNext->fPrevious : fTail) = node->fPrevious;
        --fCount;
        delete node;
    }

    /// For range-based walks. The list must not change under them.
    class Position {
    public:
        explicit Position(Node* node) : fNode(node) {}
        T& operator*() const { return fNode->fValue; }
        Position& operator++() {
            fNode = fNode->fNext;
            return *this;
        }
        bool operator==(const Position&) const = default;

    private:
        Node* fNode;
    };
    Position begin() const { return Position(fHead); }
    Position end() const { return Position(nullptr); }

private:
    Node* fHead = nullptr;
    Node* fTail = nullptr;
    unsigned int fCount = 0;
};

/// Walks a zList: `for (zListIterator<T> i(list); !i.Done(); i.Next()) use(i.Current());`
///
/// It holds the next entry already, so the current one may be removed from the list on the way.
template <class T>
class zListIterator {
public:
    explicit zListIterator(const zList<T>& list) : fList(list) { Init(); }

    void Init() { go_to(fList.Head()); }
    bool Done() const { return fNode == nullptr; }
    void Next() { go_to(fNext); }
    T& Current() const { return fNode->fValue; }

private:
    using Node = typename zList<T>::Node;

    void go_to(Node* node) {
        fNode = node;
        fNext = node != nullptr ? node->fNext : nullptr;
    }

    const zList<T>& fList;
    Node* fNode = nullptr;
    Node* fNext = nullptr;
};
