#include "spar/zRedBlackTree.h"

#include <utility>

namespace {

using Links = zRedBlackTree::Links;

bool is_red(const Links* node) {
    return node != nullptr && node->fRed;
}

Links* lowest(Links* node) {
    while (node->fLeft != nullptr) node = node->fLeft;
    return node;
}

}  // namespace

Links* zRedBlackTree::First() const {
    return fRoot != nullptr ? lowest(fRoot) : nullptr;
}

Links* zRedBlackTree::next(Links* node) {
    if (node->fRight != nullptr) return lowest(node->fRight);
    Links* parent = node->fParent;
    while (parent != nullptr && node == parent->fRight) {
        node = parent;
        parent = parent->fParent;
    }
    return parent;
}

Links*& zRedBlackTree::place_of(Links* node) {
    if (node->fParent == nullptr) return fRoot;
    return node->fParent->fLeft == node ? node->fParent->fLeft : node->fParent->fRight;
}

void zRedBlackTree::rotate_left(Links* node) {
    Links* up = node->fRight;
    place_of(node) = up;
    up->fParent = node->fParent;
    node->fRight = up->fLeft;
    if (node->fRight != nullptr) node->fRight->fParent = node;
    up->fLeft = node;
    node->fParent = up;
}

void zRedBlackTree::rotate_right(Links* node) {
    Links* up = node->fLeft;
    place_of(node) = up;
    up->fParent = node->fParent;
    node->fLeft = up->fRight;
    if (node->fLeft != nullptr) node->fLeft->fParent = node;
    up->fRight = node;
    node->fParent = up;
}

void zRedBlackTree::Insert(Links* node, Links* parent, bool left) {
    *node = Links{parent, nullptr, nullptr, true};
    if (parent == nullptr)
        fRoot = node;
    else
        (left ? parent->fLeft : parent->fRight) = node;
    balance_after_insert(node);
}

void zRedBlackTree::balance_after_insert(Links* node) {
    while (is_red(node->fParent)) {
        Links* parent = node->fParent;
        Links* grand = parent->fParent;  // there is one: a red node is never the root
        const bool onLeft = parent == grand->fLeft;
        Links* uncle = onLeft ? grand->fRight : grand->fLeft;
        if (is_red(uncle)) {
            parent->fRed = uncle->fRed = false;
            grand->fRed = true;
            node = grand;
            continue;
        }
        const bool inside = node == (onLeft ? parent->fRight : parent->fLeft);
        if (inside) {
            onLeft ? rotate_left(parent) : rotate_right(parent);
            std::swap(node, parent);
        }
        parent->fRed = false;
        grand->fRed = true;
        onLeft ? rotate_right(grand) : rotate_left(grand);
    }
    fRoot->fRed = false;
}

/// Puts `by`, which may be null, where `node` hangs.
void zRedBlackTree::replace(Links* node, Links* by) {
    place_of(node) = by;
    if (by != nullptr) by->fParent = node->fParent;
}

void zRedBlackTree::Remove(Links* node) {
    bool lostBlack = !node->fRed;
    Links* heir;        // what moves into the place that is lost, may be null
    Links* heirParent;  // so its parent is kept beside it
    if (node->fLeft == nullptr || node->fRight == nullptr) {
        heir = node->fLeft != nullptr ? node->fLeft : node->fRight;
        heirParent = node->fParent;
        replace(node, heir);
    } else {
        Links* after = lowest(node->fRight);
        lostBlack = !after->fRed;
        heir = after->fRight;
        heirParent = after;
        if (after->fParent != node) {
            heirParent = after->fParent;
            replace(after, heir);
            after->fRight = node->fRight;
            after->fRight->fParent = after;
        }
        replace(node, after);
        after->fLeft = node->fLeft;
        after->fLeft->fParent = after;
        after->fRed = node->fRed;
    }
    if (lostBlack) balance_after_remove(heir, heirParent);
}

void zRedBlackTree::balance_after_remove(Links* node, Links* parent) {
    while (node != fRoot && !is_red(node)) {
        const bool onLeft = node == parent->fLeft;
        Links* sibling =
            onLeft ? parent->fRight : parent->fLeft;  // never null: it balances a black
        if (sibling->fRed) {
            sibling->fRed = false;
            parent->fRed = true;
            onLeft ? rotate_left(parent) : rotate_right(parent);
            sibling = onLeft ? parent->fRight : parent->fLeft;
        }
        Links* outer = onLeft ? sibling->fRight : sibling->fLeft;
        Links* inner = onLeft ? sibling->fLeft : sibling->fRight;
        if (!is_red(outer) && !is_red(inner)) {
            sibling->fRed = true;
            node = parent;
            parent = node->fParent;
            continue;
        }
        if (!is_red(outer)) {
            inner->fRed = false;
            sibling->fRed = true;
            onLeft ? rotate_right(sibling) : rotate_left(sibling);
            outer = sibling;
            sibling = inner;
        }
        sibling->fRed = parent->fRed;
        parent->fRed = false;
        outer->fRed = false;
        onLeft ? rotate_left(parent) : rotate_right(parent);
        node = fRoot;
    }
    if (node != nullptr) node->fRed = false;
}
