#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "BoxWriter.h"
#include "FileLayer.h"

namespace Quillon::Orb {

/// The entries of one sample table, as the file holds them: fixed size, big-endian, only appended.
///
/// They stand in blocks, so that a table never moves, however long the recording gets.
class TableBytes {
public:
    explicit TableBytes(int entrySize) : fEntrySize(entrySize) {}

    long long Count() const { return fCount; }
    int EntrySize() const { return fEntrySize; }

    /// Room for one more entry, which the caller fills.
    unsigned char* Append() {
        if (fCount == static_cast<long long>(fBlocks.size()) * kBlockEntries) add_block();
        return at(fCount++);
    }
    void Append32(unsigned long long value) { PutBig(Append(), value, 4); }
    void Append64(unsigned long long value) { PutBig(Append(), value, 8); }
    void AppendPair(unsigned long long first, unsigned long long second) {
        unsigned char* entry = Append();
        PutBig(entry, first, 4);
        PutBig(entry + 4, second, 4);
    }

    /// Adds where the entries from `first` to before `last` stand to `spans`.
    void Spans(long long first, long long last, std::vector<FileSpan>& spans) const {
        while (first < last) {
            const long long end = std::min(last, (first / kBlockEntries + 1) * kBlockEntries);
            spans.push_back({at(first), static_cast<std::size_t>((end - first) * fEntrySize)});
            first = end;
        }
    }

private:
    static constexpr long long kBlockEntries = 8192;

    unsigned char* at(long long entry) const {
        return fBlocks[static_cast<std::size_t>(entry / kBlockEntries)].get() +
               entry % kBlockEntries * fEntrySize;
    }
    void add_block() {
        fBlocks.emplace_back(
            new unsigned char[static_cast<std::size_t>(kBlockEntries * fEntrySize)]);
    }

    const int fEntrySize;
    long long fCount = 0;
    std::vector<std::unique_ptr<unsigned char[]>> fBlocks;
};

}  // namespace Quillon::Orb
