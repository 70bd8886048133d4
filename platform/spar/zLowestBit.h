#pragma once

#include <bit>
#include <cstdint>
#include <vector>

/// A growing set of positions that gives its lowest member quickly, however large it is.
///
/// Words of 64 bits in levels: a bit of a level says that the word below it is not empty. Finding
/// the lowest reads one word a level, and 262 144 positions need three levels. No lock of its own.
class zLowestBit {
public:
    /// Makes room for one more position, which is `position` and not in the set.
    void Grow(int position) {
        std::size_t words = static_cast<std::size_t>(position) / 64 + 1;
        for (std::size_t level = 0;; ++level) {
            if (level == fLevels.size()) add_level();
            if (fLevels[level].size() < words) fLevels[level].resize(words, 0);
            if (words == 1) return;
            words = (words - 1) / 64 + 1;
        }
    }

    /// The lowest member, or -1.
    int Lowest() const {
        if (fLevels.empty() || fLevels.back()[0] == 0) return -1;
        std::size_t position = 0;
        for (auto level = fLevels.rbegin(); level != fLevels.rend(); ++level)
            position =
                position * 64 + static_cast<std::size_t>(std::countr_zero((*level)[position]));
        return static_cast<int>(position);
    }

    void Set(int position) {
        auto at = static_cast<std::size_t>(position);
        for (auto& level : fLevels) {
            std::uint64_t& word = level[at / 64];
            const bool wasEmpty = word == 0;
            word |= std::uint64_t{1} << at % 64;
            if (!wasEmpty) return;
            at /= 64;
        }
    }

    void Clear(int position) {
        auto at = static_cast<std::size_t>(position);
        for (auto& level : fLevels) {
            std::uint64_t& word = level[at / 64];
            word &= ~(std::uint64_t{1} << at % 64);
            if (word != 0) return;
            at /= 64;
        }
    }

    void RemoveAll() { fLevels.clear(); }

private:
    // The top level is always one word; a level that is put on top stands for what is below it.
    void add_level() {
        const bool any = !fLevels.empty() && fLevels.back()[0] != 0;
        fLevels.emplace_back(1, any ? 1 : 0);
    }

    std::vector<std::vector<std::uint64_t>> fLevels;
};
