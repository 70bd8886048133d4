#include "orb/BlockPool.h"

#include <bit>
#include <cstdlib>

// Under the address sanitizer a block that waits is as good as freed.
#if defined(__SANITIZE_ADDRESS__)
#define ORB_POISON 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORB_POISON 1
#endif
#endif
#ifdef ORB_POISON
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

namespace Quillon::Orb {

namespace {

/// What may wait at most. Above it a block goes back to the system: a host that recorded a dozen
/// sources once shall not keep their memory for ever.
constexpr std::size_t kMaximumIdleBytes = std::size_t{512} << 20;

/// The smallest class; below it the header would weigh more than the block.
constexpr int kSmallestLog = 8;

}  // namespace

/// Stands in front of each block, in a line of its own so that the block stays aligned.
struct alignas(BlockPool::kAlignment) BlockPool::Header {
    Header* next;
    std::size_t size;
    int sizeClass;
};

namespace {

/// Four classes to each doubling: at most a quarter of a block is wasted, and encoded pictures of
/// differing sizes still meet the same blocks again.
int class_of(std::size_t bytes, std::size_t& size) {
    const std::size_t smallest = std::size_t{1} << kSmallestLog;
    if (bytes <= smallest) {
        size = smallest;
        return 0;
    }
    const int log = static_cast<int>(std::bit_width(bytes - 1)) - 1;
    const std::size_t step = std::size_t{1} << (log - 2);
    const std::size_t quarters = (bytes - (std::size_t{1} << log) + step - 1) / step;
    size = (std::size_t{1} << log) + quarters * step;
    return (log - kSmallestLog) * 4 + static_cast<int>(quarters);
}

}  // namespace

BlockPool& BlockPool::Shared() {
    // Never destroyed: objects that live to the end of the process give their blocks back to it.
    static BlockPool* pool = new BlockPool;
    return *pool;
}

BlockPool::~BlockPool() {
    Trim();
}

unsigned char* BlockPool::Take(std::size_t bytes) noexcept {
    if (bytes > (std::size_t{1} << 38)) return nullptr;
    std::size_t size = 0;
    const int sizeClass = class_of(bytes, size);
    Header* header = nullptr;
    {
        zMutexLock held(fLock);
        header = fIdle[sizeClass];
        if (header) {
            fIdle[sizeClass] = header->next;
            fLastTaken[sizeClass] = ++fCounts.taken;
            ++fCounts.inUse;
            --fCounts.idle;
            fCounts.idleBytes -= size;
        }
    }
    if (!header) {
        void* memory = nullptr;
        if (posix_memalign(&memory, kAlignment, sizeof(Header) + size + kPadding) != 0) {
            return nullptr;
        }
        header = static_cast<Header*>(memory);
        *header = {nullptr, size, sizeClass};
        zMutexLock held(fLock);
        fLastTaken[sizeClass] = ++fCounts.taken;
        ++fCounts.fresh;
        ++fCounts.inUse;
    }
    unsigned char* block = reinterpret_cast<unsigned char*>(header + 1);
    ASAN_UNPOISON_MEMORY_REGION(block, size + kPadding);
    return block;
}

void BlockPool::Give(unsigned char* block) noexcept {
    if (!block) return;
    Header* header = reinterpret_cast<Header*>(block) - 1;
    Header* leaving = nullptr;
    {
        zMutexLock held(fLock);
        --fCounts.inUse;
        if (fCounts.idleBytes + header->size > kMaximumIdleBytes) leaving = make_room(*header);
        if (fCounts.idleBytes + header->size <= kMaximumIdleBytes) {
            ASAN_POISON_MEMORY_REGION(block, header->size + kPadding);
            header->next = fIdle[header->sizeClass];
            fIdle[header->sizeClass] = header;
            ++fCounts.idle;
            fCounts.idleBytes += header->size;
        } else {
            header->next = leaving;
            leaving = header;
        }
    }
    free_all(leaving);
}

/// Takes blocks out until the returning one fits, those first that nobody has asked for the
/// longest; gives them as a chain. Sizes that are asked for less than the returning one's own, and
/// no others: what is about to be taken again must not go for what is not.
BlockPool::Header* BlockPool::make_room(const Header& returning) {
    Header* leaving = nullptr;
    if (returning.size > kMaximumIdleBytes) return leaving;
    while (fCounts.idleBytes + returning.size > kMaximumIdleBytes) {
        const int oldest = longest_untaken();
        if (fLastTaken[oldest] >= fLastTaken[returning.sizeClass]) break;
        Header* header = fIdle[oldest];
        fIdle[oldest] = header->next;
        --fCounts.idle;
        fCounts.idleBytes -= header->size;
        header->next = leaving;
        leaving = header;
    }
    return leaving;
}

/// The class, of those where blocks wait, that was not taken from for the longest. One has some.
int BlockPool::longest_untaken() const {
    int oldest = -1;
    for (int i = 0; i < kClasses; ++i) {
        if (fIdle[i] && (oldest < 0 || fLastTaken[i] < fLastTaken[oldest])) oldest = i;
    }
    return oldest;
}

void BlockPool::free_all(Header* first) noexcept {
    while (Header* header = first) {
        first = header->next;
        ASAN_UNPOISON_MEMORY_REGION(header + 1, header->size + kPadding);
        std::free(header);
    }
}

std::size_t BlockPool::SizeOf(const unsigned char* block) noexcept {
    return block ? (reinterpret_cast<const Header*>(block) - 1)->size : 0;
}

void BlockPool::Trim() noexcept {
    Header* waiting = nullptr;
    {
        zMutexLock held(fLock);
        for (Header*& first : fIdle) {
            while (Header* header = first) {
                first = header->next;
                header->next = waiting;
                waiting = header;
            }
        }
        fCounts.idle = 0;
        fCounts.idleBytes = 0;
    }
    free_all(waiting);
}

BlockPool::Counts BlockPool::GetCounts() const {
    zMutexLock held(fLock);
    return fCounts;
}

}  // namespace Quillon::Orb
