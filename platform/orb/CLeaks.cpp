#include "orb/CLeaks.h"

#include <atomic>

namespace Quillon::Orb {

namespace {
std::atomic<long long> gCount{0};
}

void CLeaks::AddMemory(const CObject*, const void*) noexcept {
    gCount.fetch_add(1, std::memory_order_relaxed);
}
void CLeaks::RemoveMemory(const CObject*, const void*) noexcept {
    gCount.fetch_sub(1, std::memory_order_relaxed);
}
long long CLeaks::GetCount() noexcept {
    return gCount.load(std::memory_order_relaxed);
}

}  // namespace Quillon::Orb
