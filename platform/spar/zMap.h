#pragma once

#include "spar/zRedBlack.h"
#include "spar/zRedBlackCmp.h"

/// One entry of a zMap. The key orders the entry and must not be changed.
template <class K, class V>
struct zMapEntry {
    K fKey;
    V fValue;
};

/// Orders the entries of a zMap by Cmp::compare of their keys.
template <class K, class V, class Cmp>
struct zMapOrder {
    static int compare(const zMapEntry<K, V>& a, const zMapEntry<K, V>& b) {
        return Cmp::compare(a.fKey, b.fKey);
    }
};

/// An ordered map. No lock of its own. Values that are pointers are not owned.
///
/// `Cmp::compare(const K&, const K&)` gives below 0, 0 or above 0. A walk (`for (auto& entry :
/// map)`) goes in the order of the keys. A value stays in place until its key is removed.
template <class K, class V, class Cmp = zRedBlackCmp<K>>
class zMap : public zRedBlack<zMapEntry<K, V>, zMapOrder<K, V, Cmp>> {
public:
    using Entry = zMapEntry<K, V>;

    /// The value of `key`, value-initialised (0, null, empty) if the key is new.
    V& operator[](const K& key) {
        return this->FindOrMake(to(key), [&] { return Entry{key, V()}; }).fValue;
    }

    /// The value of `key`, or null.
    V* Find(const K& key) const {
        Entry* entry = this->FindWith(to(key));
        return entry != nullptr ? &entry->fValue : nullptr;
    }

    /// Removes `key`; false when it is not there.
    bool Remove(const K& key) { return this->RemoveWith(to(key), nullptr); }

    /// Removes `key` and moves its value to `*out`, which may be null; false, and `*out` as it was,
    /// when it is not there.
    bool RemoveFetch(const K& key, V* out) {
        Entry* entry = this->FindWith(to(key));
        if (entry == nullptr) return false;
        if (out != nullptr) *out = static_cast<V&&>(entry->fValue);
        return Remove(key);
    }

private:
    static auto to(const K& key) {
        return [&key](const Entry& entry) { return Cmp::compare(key, entry.fKey); };
    }
};
