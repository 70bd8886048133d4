#pragma once

#include <bit>
#include <cstdint>
#include <vector>

/// Finds the position of a pool's item by its address: a hash table that only ever grows.
///
/// Never more than half full, so that a search is a step or two. No lock of its own.
class zPoolIndex {
public:
    /// Makes room for `count` items in all.
    void Grow(int count) {
        const std::size_t wanted = std::bit_ceil(static_cast<std::size_t>(count) * 2);
        if (wanted <= fSlots.size()) return;
        std::vector<Slot> before(wanted < kLeast ? kLeast : wanted);
        before.swap(fSlots);
        fShift = 64 - std::countr_zero(fSlots.size());
        for (const Slot& slot : before)
            if (slot.fItem != nullptr) Add(slot.fItem, slot.fPosition);
    }

    /// `item` is not in the table, and Grow has made room for it.
    void Add(const void* item, int position) {
        std::size_t at = start_of(item);
        while (fSlots[at].fItem != nullptr) at = after(at);
        fSlots[at] = {item, position};
    }

    /// The position of `item`, or -1.
    int Find(const void* item) const {
        if (fSlots.empty() || item == nullptr) return -1;
        for (std::size_t at = start_of(item); fSlots[at].fItem != nullptr; at = after(at))
            if (fSlots[at].fItem == item) return fSlots[at].fPosition;
        return -1;
    }

    void RemoveAll() { fSlots.clear(); }

private:
    static constexpr std::size_t kLeast = 16;
    // 2^64 divided by the golden ratio: spreads addresses that differ by a constant step.
    static constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15u;

    struct Slot {
        const void* fItem = nullptr;
        int fPosition = -1;
    };

    std::size_t start_of(const void* item) const {
        return static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(item) * kSpread >> fShift);
    }
    std::size_t after(std::size_t at) const { return (at + 1) & (fSlots.size() - 1); }

    std::vector<Slot> fSlots;
    int fShift = 0;
};
