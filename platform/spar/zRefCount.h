#pragma once

#include <atomic>

#include "spar/export.h"
#include "spar/zObject.h"

/// A counted object: whoever makes it holds the first reference. Any thread may count.
///
/// The count belongs to the object and not to its value, so a copy starts with a count of its own.
class SPAR_API zRefCount : public zObject {
public:
    zRefCount() = default;
    zRefCount(const zRefCount&) : zObject() {}
    zRefCount& operator=(const zRefCount&) { return *this; }
    ~zRefCount() override;

    /// Adds a reference and gives the new count.
    int AddRef() const { return fRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }

    /// Drops a reference, deletes the object with the last one, and gives the count that is left.
    int Release() const;

private:
    mutable std::atomic<int> fRefCount{1};
};
