#pragma once

#include "spar/zRedBlackTree.h"

/// An ordered set of T on a red-black tree. No lock of its own. Items that are pointers are not
/// owned.
///
/// N orders the items: `N::compare(const T& item, const T& inTree)` gives below 0 to go left, above
/// 0 to go right, and 0 to take that place. An order whose 0 is wider than equality (ranges that
/// overlap) is fine: Set then replaces the first item on its way down that compares as 0.
template <class T, class N>
class zRedBlack {
public:
    struct Node : zRedBlackTree::Links {
        explicit Node(const T& item) : fItem(item) {}
        Node* Left() const { return static_cast<Node*>(fLeft); }
        Node* Right() const { return static_cast<Node*>(fRight); }
        /// The node after this one in order, or null.
        Node* Next() const {
            return static_cast<Node*>(zRedBlackTree::next(const_cast<Node*>(this)));
        }

        T fItem;
    };

    zRedBlack() = default;
    zRedBlack(const zRedBlack&) = delete;
    zRedBlack& operator=(const zRedBlack&) = delete;
    virtual ~zRedBlack() { RemoveAll(); }

    bool IsEmpty() const { return fTree.Root() == nullptr; }
    unsigned int Count() const { return fCount; }
    Node* Root() const { return static_cast<Node*>(fTree.Root()); }
    /// The node of the lowest item, or null.
    Node* First() const { return static_cast<Node*>(fTree.First()); }

    /// Inserts `item`, or puts it in the place of the one that it compares as 0 with; that one is
    /// dropped and nothing else happens to it. True when the tree has grown.
    bool Set(const T& item) {
        const unsigned int before = fCount;
        T& place = FindOrMake([&](const T& inTree) { return N::compare(item, inTree); },
                              [&]() -> const T& { return item; });
        if (fCount > before) return true;
        place = item;
        return false;
    }

    /// The item that `item` compares as 0 with, or null. Stays in place until it is removed.
    T* Find(const T& item) const {
        return FindWith([&](const T& inTree) { return N::compare(item, inTree); });
    }

    /// The first item on the way down for which `direction(inTree)` gives 0, or null; below 0 goes
    /// left, above 0 right.
    template <class Direction>
    T* FindWith(Direction&& direction) const {
        Node* node = find_node(direction);
        return node != nullptr ? &node->fItem : nullptr;
    }

    /// Removes the item that `item` compares as 0 with; false when there is none.
    bool Remove(const T& item) {
        return RemoveWith([&](const T& inTree) { return N::compare(item, inTree); }, nullptr);
    }

    /// Removes what FindWith would find and moves it to `*out`, which may be null.
    template <class Direction>
    bool RemoveWith(Direction&& direction, T* out) {
        Node* node = find_node(direction);
        if (node == nullptr) return false;
        fTree.Remove(node);
        --fCount;
        if (out != nullptr) *out = static_cast<T&&>(node->fItem);
        delete node;
        return true;
    }

    void RemoveAll() {
        Node* root = Root();
        fTree.Clear();
        fCount = 0;
        delete_below(root);
    }

    /// What Set does, for items that are made only when they are new: `make()` gives the item.
    template <class Direction, class Make>
    T& FindOrMake(Direction&& direction, Make&& make) {
        zRedBlackTree::Links* parent = nullptr;
        int way = 0;
        if (Node* found = descend(direction, &parent, &way)) return found->fItem;
        Node* node = new Node(make());
        fTree.Insert(node, parent, way < 0);
        ++fCount;
        return node->fItem;
    }

    /// For range-based walks in order. The tree must not change under them.
    class Position {
    public:
        explicit Position(Node* node) : fNode(node) {}
        T& operator*() const { return fNode->fItem; }
        Position& operator++() {
            fNode = fNode->Next();
            return *this;
        }
        bool operator==(const Position&) const = default;

    private:
        Node* fNode;
    };
    Position begin() const { return Position(First()); }
    Position end() const { return Position(nullptr); }

private:
    template <class Direction>
    Node* descend(Direction& direction, zRedBlackTree::Links** parent, int* way) const {
        Node* node = Root();
        while (node != nullptr) {
            const int side = direction(static_cast<const T&>(node->fItem));
            if (side == 0) return node;
            *parent = node;
            *way = side;
            node = side < 0 ? node->Left() : node->Right();
        }
        return nullptr;
    }

    template <class Direction>
    Node* find_node(Direction& direction) const {
        zRedBlackTree::Links* parent = nullptr;
        int way = 0;
        return descend(direction, &parent, &way);
    }

    // The tree is never deeper than twice the logarithm of its count.
    static void delete_below(Node* node) {
        if (node == nullptr) return;
        delete_below(node->Left());
        delete_below(node->Right());
        delete node;
    }

    zRedBlackTree fTree;
    unsigned int fCount = 0;
};
