#pragma once

/// Orders keys by their operator<.
template <class K>
struct zRedBlackCmp {
    static int compare(const K& a, const K& b) { return a < b ? -1 : (b < a ? 1 : 0); }
};
