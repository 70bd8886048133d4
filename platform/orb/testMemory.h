#pragma once

// For tests of what happens without memory: allocations of this thread that fail on demand.

#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace Quillon::Orb {

/// Objects until one is not to be had, and then none; -1: all are.
inline thread_local int gObjectsLeft = -1;

}  // namespace Quillon::Orb

// CObject::operator new: the linker puts this one in front, see CMakeLists.txt.
extern "C" void* __real__ZN7Quillon3Orb7CObjectnwEm(std::size_t size) noexcept;
extern "C" __attribute__((used)) inline void* __wrap__ZN7Quillon3Orb7CObjectnwEm(
    std::size_t size) noexcept {
    using Quillon::Orb::gObjectsLeft;
    if (gObjectsLeft == 0) return nullptr;
    if (gObjectsLeft > 0) --gObjectsLeft;
    return __real__ZN7Quillon3Orb7CObjectnwEm(size);
}

// What the pool asks for blocks. The sanitizers have one of their own, which is better left alone.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ORB_OWN_BLOCKS

namespace Quillon::Orb {

/// Blocks until one is not to be had, and then all are again; -1: all are.
inline thread_local int gBlocksLeft = -1;

}  // namespace Quillon::Orb

extern "C" __attribute__((used, visibility("default"))) inline int posix_memalign(
    void** memory, std::size_t alignment, std::size_t size) noexcept {
    using Quillon::Orb::gBlocksLeft;
    *memory = nullptr;
    if (gBlocksLeft == 0) {
        gBlocksLeft = -1;
        return ENOMEM;
    }
    if (gBlocksLeft > 0) --gBlocksLeft;
    *memory = std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    return *memory ? 0 : ENOMEM;
}
#endif
