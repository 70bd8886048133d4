#pragma once

#include "orb/export.h"

namespace Quillon::Orb {

class CObject;

/// Counts the pieces of memory that objects hold beside themselves, so that tests can say that
/// none was left behind. Any thread.
class ORB_API CLeaks {
public:
    static void AddMemory(const CObject* owner, const void* memory) noexcept;
    static void RemoveMemory(const CObject* owner, const void* memory) noexcept;
    /// Pieces that were added and not yet removed.
    static long long GetCount() noexcept;
};

}  // namespace Quillon::Orb
