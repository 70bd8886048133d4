#pragma once

#include "spar/export.h"

/// The links and the balance of a red-black tree, for any kind of item.
class SPAR_API zRedBlackTree {
public:
    struct Links {
        Links* fParent = nullptr;
        Links* fLeft = nullptr;
        Links* fRight = nullptr;
        bool fRed = true;
    };

    Links* Root() const { return fRoot; }
    Links* First() const;

    /// Hangs `node` below `parent` (null: as the root), on a side that is free, and balances.
    void Insert(Links* node, Links* parent, bool left);
    /// Unlinks `node`. No other node moves in memory.
    void Remove(Links* node);
    /// Forgets all nodes without touching them.
    void Clear() { fRoot = nullptr; }

    /// The node after `node` in order, or null.
    static Links* next(Links* node);

private:
    Links*& place_of(Links* node);
    void rotate_left(Links* node);
    void rotate_right(Links* node);
    void replace(Links* node, Links* by);
    void balance_after_insert(Links* node);
    void balance_after_remove(Links* node, Links* parent);

    Links* fRoot = nullptr;
};
