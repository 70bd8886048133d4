#include <cerrno>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "spar/zFileStream.h"

#include "tests/support/TestFolder.h"

// What disks and volumes answer that are not at hand: the linker leads the calls here.
extern "C" int __real_fsync(int file);
extern "C" int __real_statvfs(const char* path, struct statvfs* volume);

namespace {

/// What fsync is told to answer, and what it was asked.
struct Disk {
    int error = 0;  // 0: does what the system's does
    int syncs = 0;
    struct stat last = {};  // what was synced last
};

thread_local Disk* gDisk = nullptr;
thread_local const struct statvfs* gVolume = nullptr;

/// Puts a disk in the place of the system's for as long as it lives.
class ScriptedDisk : public Disk {
public:
    ScriptedDisk() { gDisk = this; }
    ~ScriptedDisk() { gDisk = nullptr; }
};

bool is_of(const struct stat& status, const std::string& path) {
    struct stat wanted;
    return stat(path.c_str(), &wanted) == 0 && wanted.st_ino == status.st_ino &&
           wanted.st_dev == status.st_dev;
}

long long space_of(const struct statvfs& volume) {
    gVolume = &volume;
    const long long space = zFileStream::SpaceAvailable("anywhere");
    gVolume = nullptr;
    return space;
}

}  // namespace

extern "C" int __wrap_fsync(int file) {
    if (gDisk == nullptr) return __real_fsync(file);
    ++gDisk->syncs;
    fstat(file, &gDisk->last);
    if (gDisk->error == 0) return __real_fsync(file);
    errno = gDisk->error;
    return -1;
}

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

TEST(zFileStreamFaults, SyncAsksTheDiskAndTellsItsAnswer) {
    const tests::TestFolder folder;
    zFileStream file(folder.File("a").c_str(), Z_FILE_WRITE, false);
    ASSERT_EQ(file.Open(), 0);
    ASSERT_EQ(file.WriteString("text"), 0);
    ScriptedDisk disk;
    EXPECT_EQ(file.Flush(), 0);
    EXPECT_EQ(disk.syncs, 0);
    EXPECT_EQ(file.WriteString("more"), 0);
    EXPECT_EQ(file.Sync(), 0);
    EXPECT_EQ(disk.syncs, 1);
    EXPECT_TRUE(is_of(disk.last, folder.File("a")));
    EXPECT_EQ(disk.last.st_size, 8) << "before all was in the file";
    disk.error = EIO;
    EXPECT_EQ(file.Sync(), -5005);
    disk.error = EINVAL;
    EXPECT_EQ(file.Sync(), -5022) << "nobody has promised that the bytes stand";
}

TEST(zFileStreamFaults, SyncFolderAsksTheDiskAndTellsItsAnswer) {
    const tests::TestFolder folder;
    ScriptedDisk disk;
    EXPECT_EQ(zFileStream::SyncFolder(folder.Path().c_str()), 0);
    EXPECT_EQ(disk.syncs, 1);
    EXPECT_TRUE(is_of(disk.last, folder.Path()));
    disk.error = EIO;
    EXPECT_EQ(zFileStream::SyncFolder(folder.Path().c_str()), -5005);
}

TEST(zFileStreamFaults, AFolderThatCannotBeSyncedIsNotWaitedFor) {
    const tests::TestFolder folder;
    ScriptedDisk disk;
    for (const int error : {EINVAL, ENOTSUP}) {
        disk.error = error;
        EXPECT_EQ(zFileStream::SyncFolder(folder.Path().c_str()), 0) << error;
    }
    EXPECT_EQ(disk.syncs, 2);
}
