#pragma once

#include <cstddef>

#include "orb/export.h"
#include "spar/zMutex.h"

namespace Quillon::Orb {

/// Memory for pixels and encoded bytes: blocks that are given back wait here, warm, for the next
/// frame, so that a steady recording asks the system for nothing and touches no fresh page.
///
/// Blocks are aligned to kAlignment and have kPadding bytes behind their end that may be read and
/// written (readers of whole vectors and bitstream readers run past the end). Contents are
/// undefined. Any thread; a block may be given back on another thread than it was taken on.
///
/// What waits is bounded. Where the bound is met, blocks of the sizes that nobody has asked for
/// the longest go back to the system: a recording of large pictures that has ended takes no place
/// from the next one's.
class ORB_API BlockPool {
public:
    static constexpr std::size_t kAlignment = 64;
    static constexpr std::size_t kPadding = 64;

    struct Counts {
        long long taken = 0;        ///< blocks handed out so far
        long long fresh = 0;        ///< of these, how many the system had to give
        long long inUse = 0;        ///< blocks that are out now
        long long idle = 0;         ///< blocks that wait
        std::size_t idleBytes = 0;  ///< their size
    };

    /// The pool that samples, converters and encoders share.
    static BlockPool& Shared();

    BlockPool() = default;
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;
    ~BlockPool();

    /// A block of at least `bytes`; null when there is no memory.
    unsigned char* Take(std::size_t bytes) noexcept SPAR_EXCLUDES(fLock);
    /// Gives a block back; null is allowed.
    void Give(unsigned char* block) noexcept SPAR_EXCLUDES(fLock);
    /// Bytes that a block really has, never less than was asked for.
    static std::size_t SizeOf(const unsigned char* block) noexcept;

    /// Frees what waits.
    void Trim() noexcept SPAR_EXCLUDES(fLock);
    Counts GetCounts() const SPAR_EXCLUDES(fLock);

private:
    struct Header;
    static constexpr int kClasses = 4 * 32;

    Header* make_room(const Header& returning) SPAR_REQUIRES(fLock);
    int longest_untaken() const SPAR_REQUIRES(fLock);
    static void free_all(Header* first) noexcept;

    mutable zMutex fLock;
    Header* fIdle[kClasses] SPAR_GUARDED_BY(fLock) = {};
    long long fLastTaken[kClasses] SPAR_GUARDED_BY(fLock) = {};  ///< fCounts.taken of then
    Counts fCounts SPAR_GUARDED_BY(fLock);
};

/// A block of the shared pool for as long as this object lives. Moves, does not copy.
class Block {
public:
    Block() noexcept = default;
    explicit Block(std::size_t bytes) noexcept : fData(BlockPool::Shared().Take(bytes)) {}
    Block(Block&& other) noexcept : fData(other.Detach()) {}
    Block& operator=(Block&& other) noexcept {
        if (this != &other) {
            BlockPool::Shared().Give(fData);
            fData = other.Detach();
        }
        return *this;
    }
    ~Block() { BlockPool::Shared().Give(fData); }

    unsigned char* Get() const noexcept { return fData; }
    explicit operator bool() const noexcept { return fData != nullptr; }
    /// Gives the block away; whoever takes it calls BlockPool::Give.
    unsigned char* Detach() noexcept {
        unsigned char* data = fData;
        fData = nullptr;
        return data;
    }

private:
    unsigned char* fData = nullptr;
};

}  // namespace Quillon::Orb
