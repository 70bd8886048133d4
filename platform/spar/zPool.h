#pragma once

#include <new>

#include "spar/zCritical.h"
#include "spar/zHeap.h"
#include "spar/zLowestBit.h"
#include "spar/zPoolIndex.h"

/// How a zPool deletes its items.
template <class T>
struct zPoolAllocator {
    static void Delete(T* item) { delete item; }
};

/// A set of items that are lent out one at a time. It owns them all, free or taken.
///
/// The free item that was added first goes out first, so that the items in use stay few and warm.
/// Get and Return take the same short time whatever the size of the pool, allocate nothing, and
/// each holds the pool's lock for that time alone. Any thread may call anything.
template <class T, class Allocator = zPoolAllocator<T>>
class zPool {
public:
    static constexpr int kFree = 2;
    static constexpr int kTaken = 4;

    zPool() = default;
    zPool(const zPool&) = delete;
    zPool& operator=(const zPool&) = delete;
    ~zPool() { RemoveAndDeleteAll(); }

    /// Adds `item` as a free entry at the end and gives its position. The pool owns it from then
    /// on. An item is added once. -1024 when out of memory; the item stays the caller's and the
    /// pool as it was.
    int Add(T* item) SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        const int position = fEntries.Count();
        try {
            fFree.Grow(position);
            fIndex.Grow(position + 1);
        } catch (const std::bad_alloc&) {
            return kOutOfMemory;
        }
        const int error = fEntries.Append({item, kFree});
        if (error != 0) return error;
        fIndex.Add(item, position);
        fFree.Set(position);
        return position;
    }

    /// Takes the free entry of lowest position into `*item` and gives that position; -1, and
    /// `*item` as it was, when none is free.
    int Get(T** item) SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        const int position = fFree.Lowest();
        if (position < 0) return -1;
        fFree.Clear(position);
        Entry& entry = fEntries[position];
        entry.fState = kTaken;
        *item = entry.fItem;
        return position;
    }

    /// Frees a taken item: 0, or -1 when `item` is not among the taken ones.
    int Return(T* item) SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        const int position = fIndex.Find(item);
        if (position < 0 || fEntries[position].fState != kTaken) return -1;
        fEntries[position].fState = kFree;
        fFree.Set(position);
        return 0;
    }

    /// Leaves the pool empty. Items that are taken are deleted as well: whoever has one is done
    /// with it.
    void RemoveAndDeleteAll() SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        for (int position = 0; position < fEntries.Count(); ++position)
            Allocator::Delete(fEntries[position].fItem);
        fEntries.RemoveAll();
        fIndex.RemoveAll();
        fFree.RemoveAll();
    }

    int Count() const SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        return fEntries.Count();
    }

    /// The item that was added as number `position`, whatever its state; null past the end.
    T* ItemAt(int position) const SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        return position >= 0 && position < fEntries.Count() ? fEntries[position].fItem : nullptr;
    }

    /// kFree or kTaken; 0 past the end.
    int StateAt(int position) const SPAR_EXCLUDES(fLock) {
        zCriticalLock held(fLock);
        return position >= 0 && position < fEntries.Count() ? fEntries[position].fState : 0;
    }

private:
    static constexpr int kOutOfMemory = -1024;

    struct Entry {
        T* fItem;
        int fState;
    };

    mutable zCritical fLock;
    zHeap<Entry> fEntries SPAR_GUARDED_BY(fLock);
    zLowestBit fFree SPAR_GUARDED_BY(fLock);
    zPoolIndex fIndex SPAR_GUARDED_BY(fLock);
};
