#include "orb/MovieFileInventory.h"

#include <vector>

#include "orb/CComponentInventory.h"
#include "spar/zMutex.h"

namespace Quillon::Orb {

namespace {

struct Entry {
    unsigned int type;
    MovieFileMaker maker;
};

struct Makers {
    zMutex lock;
    std::vector<Entry> entries SPAR_GUARDED_BY(lock);
};

Makers& makers() {
    static auto* all = new Makers;
    return *all;
}

}  // namespace

void MovieFileInventory::Add(unsigned int containerType, MovieFileMaker maker) {
    Makers& all = makers();
    zMutexLock held(all.lock);
    if (maker) {
        all.entries.push_back({containerType, maker});
        return;
    }
    for (std::size_t i = all.entries.size(); i-- > 0;) {
        if (all.entries[i].type != containerType) continue;
        all.entries.erase(all.entries.begin() + static_cast<std::ptrdiff_t>(i));
        return;
    }
}

void MovieFileInventory::AddBehind(unsigned int containerType, MovieFileMaker maker) {
    Makers& all = makers();
    zMutexLock held(all.lock);
    all.entries.insert(all.entries.begin(), {containerType, maker});
}

MovieFileMaker MovieFileInventory::Find(unsigned int containerType) {
    NeedBuiltInComponents();
    Makers& all = makers();
    zMutexLock held(all.lock);
    for (std::size_t i = all.entries.size(); i-- > 0;) {
        if (all.entries[i].type == containerType) return all.entries[i].maker;
    }
    return nullptr;
}

}  // namespace Quillon::Orb
