#pragma once

#include <atomic>

#include "spar/export.h"

/// A token that calls work off. Any thread may cancel and ask; there is no way back.
///
/// The flag is the first byte of the object and reads 1 when cancelled: holders elsewhere set it by
/// address. So there is no virtual table and nothing before it.
class SPAR_API zCancelClass {
public:
    void Cancel() { fCancelled.exchange(1); }
    bool IsCancelled() const { return fCancelled.load() != 0; }

private:
    std::atomic<unsigned char> fCancelled{0};
};

static_assert(sizeof(zCancelClass) == 1);
