#pragma once

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

/// A growing array of plain items. No lock of its own.
///
/// An index out of range reaches a dummy item, whose content means nothing, and harms nobody.
template <class T>
class zHeap {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                  "items are moved as bytes");
    static_assert(alignof(T) <= alignof(std::max_align_t));

public:
    zHeap() = default;
    zHeap(const zHeap&) = delete;
    zHeap& operator=(const zHeap&) = delete;
    ~zHeap() { std::free(fItems); }

    int Count() const { return fCount; }
    int Capacity() const { return fCapacity; }

    T& operator[](int index) { return in_range(index) ? fItems[index] : fDummy; }
    const T& operator[](int index) const { return in_range(index) ? fItems[index] : fDummy; }

    /// Makes the capacity `extra` items larger, the new ones zeroed if asked. The count stays. 0,
    /// or -1024 when out of memory (or `extra` is negative or absurd), and nothing has changed.
    int Allocate(int extra, bool zeroed) {
        constexpr long long kMost = LLONG_MAX / static_cast<long long>(sizeof(T));
        const long long wanted = static_cast<long long>(fCapacity) + extra;
        if (extra < 0 || wanted > INT_MAX || wanted > kMost) return kOutOfMemory;
        if (extra == 0) return 0;
        void* items =
            std::realloc(static_cast<void*>(fItems), static_cast<size_t>(wanted) * sizeof(T));
        if (items == nullptr) return kOutOfMemory;
        fItems = static_cast<T*>(items);
        if (zeroed)
            std::memset(static_cast<void*>(fItems + fCapacity), 0,
                        static_cast<size_t>(extra) * sizeof(T));
        fCapacity = static_cast<int>(wanted);
        return 0;
    }

    /// Adds one item at the end; grows by half when full. 0 or -1024.
    int Append(const T& item) {
        if (fCount == fCapacity) {
            const T kept = item;  // it may stand in the block that moves
            const int error = Allocate(fCapacity / 2 + kLeastGrowth, false);
            if (error != 0) return error;
            fItems[fCount++] = kept;
            return 0;
        }
        fItems[fCount++] = item;
        return 0;
    }

    /// Forgets the items and frees their memory.
    void RemoveAll() {
        std::free(fItems);
        fItems = nullptr;
        fCount = fCapacity = 0;
    }

private:
    static constexpr int kOutOfMemory = -1024;
    static constexpr int kLeastGrowth = 8;

    bool in_range(int index) const { return index >= 0 && index < fCount; }

    int fCount = 0;
    int fCapacity = 0;
    T* fItems = nullptr;
    T fDummy{};
};
