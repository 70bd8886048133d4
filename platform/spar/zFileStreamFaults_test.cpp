#include <gtest/gtest.h>
#include <limits>
#include <sys/statvfs.h>

#include "spar/zFileStream.h"

// What volumes answer that are not at hand: the linker leads the calls here.
extern "C" int __real_statvfs(const char* path, struct statvfs* volume);

namespace {

thread_local const struct statvfs* gVolume = nullptr;

long long space_of(const struct statvfs& volume) {
    gVolume = &volume;
    const long long space = zFileStream::SpaceAvailable("anywhere");
    gVolume = nullptr;
    return space;
}

}  // namespace

extern "C" int __wrap_statvfs(const char* path, struct statvfs* volume) {
    if (gVolume == nullptr) return __real_statvfs(path, volume);
    *volume = *gVolume;
    return 0;
}

// The last ones have more bytes than any number holds, as some network volumes claim.
TEST(zFileStreamFaults, AVolumeThatIsNotMeasuredHasNoLimit) {
    constexpr long long kNoLimit = std::numeric_limits<long long>::max();
    const struct {
        unsigned long blocks, available, bytes;
        long long space;
    } kCases[] = {
        {1000, 10, 4096, 40960},
        {1000, 0, 4096, 0},
        {0, 0, 4096, kNoLimit},
        {1UL << 52, 1UL << 51, 4096, kNoLimit},
        {1UL << 52, (1UL << 51) - 1, 4096, kNoLimit - 4095},
        {~0UL, ~0UL, 1, kNoLimit},
        {~0UL, ~0UL, 1UL << 20, kNoLimit},
    };
    for (const auto& item : kCases) {
        struct statvfs volume = {};
        volume.f_blocks = item.blocks;
        volume.f_bavail = item.available;
        volume.f_frsize = item.bytes;
        EXPECT_EQ(space_of(volume), item.space) << item.available << " of " << item.bytes;
    }
}
