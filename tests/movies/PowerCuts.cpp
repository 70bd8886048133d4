#include "tests/movies/PowerCuts.h"

#include <algorithm>

using Operation = FileRecord::Operation;

namespace {

constexpr long long kSector = 512;

}  // namespace

void PowerCuts::Run(const Visit& visit) {
    Operations pending;
    bool published = false;
    for (const Operation& operation : fLog) {
        if (operation.kind == Operation::Kind::Publish) published = true;
        if (operation.kind != Operation::Kind::Sync) {
            pending.push_back(&operation);
            continue;
        }
        if (published) window(pending, visit);
        for (const Operation* write : pending) FileRecord::Apply(*write, fDurable);
        pending.clear();
        if (published) visit(fDurable, Kind::Synced);
    }
    window(pending, visit);
}

void PowerCuts::window(const Operations& writes, const Visit& visit) {
    // In order, cut after each write: what a kill leaves, too.
    std::vector<unsigned char> ordered = fDurable;
    for (const Operation* write : writes) {
        FileRecord::Apply(*write, ordered);
        if (writes.size() < 100 || fRandom() % 16 == 0) visit(ordered, Kind::Prefix);
    }
    if (writes.size() <= allChoicesUpTo) all_choices(writes, visit);
    random_choices(writes, visit);
}

void PowerCuts::all_choices(const Operations& writes, const Visit& visit) {
    for (std::size_t chosen = 0; chosen < std::size_t{1} << writes.size(); chosen++) {
        std::vector<unsigned char> image = fDurable;
        for (std::size_t i = 0; i < writes.size(); i++)
            if (chosen >> i & 1) FileRecord::Apply(*writes[i], image);
        visit(image, Kind::Reordered);
    }
}

void PowerCuts::random_choices(const Operations& writes, const Visit& visit) {
    for (int i = 0; i < statesPerWindow; i++) {
        std::vector<unsigned char> image = fDurable;
        Operations shuffled = writes;
        std::shuffle(shuffled.begin(), shuffled.end(), fRandom);
        // A lone write, all but one, and everything between.
        const std::size_t count = i % 3 == 0   ? std::min<std::size_t>(1, shuffled.size())
                                  : i % 3 == 1 ? shuffled.size() - !shuffled.empty()
                                               : fRandom() % (shuffled.size() + 1);
        for (std::size_t j = 0; j < count; j++) {
            if (fRandom() % 8 == 0)
                apply_part(*shuffled[j], image);
            else
                FileRecord::Apply(*shuffled[j], image);
        }
        visit(image, Kind::Reordered);
    }
}

/// Some sectors of a write, as a disk writes them. A write inside one sector is not divided.
void PowerCuts::apply_part(const Operation& write, std::vector<unsigned char>& image) {
    if (write.kind != Operation::Kind::Write) return;
    const auto size = static_cast<long long>(write.bytes.size());
    for (long long done = 0; done < size;) {
        const long long end =
            std::min(size, ((write.offset + done) / kSector + 1) * kSector - write.offset);
        if (fRandom() % 2 == 0) {
            Operation part{Operation::Kind::Write, write.offset + done, 0, {}};
            part.bytes.assign(write.bytes.begin() + done, write.bytes.begin() + end);
            FileRecord::Apply(part, image);
        }
        done = end;
    }
}
