#include "spar/zRefCount.h"

zRefCount::~zRefCount() = default;

int zRefCount::Release() const {
    const int left = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
}
