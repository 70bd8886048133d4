#pragma once

#include <cstddef>
#include <memory>

namespace Quillon::Orb {

struct FileSpan {
    const void* data;
    std::size_t size;
};

/// What a movie file asks of the system: one open file. Tests log, fail and replay these calls.
///
/// Every operation gives 0 or a negative errno. WriteAt may run on one thread while
/// Sync or BeginToSync runs on another.
class FileLayer {
public:
    virtual ~FileLayer() = default;

    /// Opens a new, empty file that shows under `path` only after Publish.
    virtual int Create(const char* path) = 0;
    /// Writes the spans one after the other from `offset` on; all of it, or fails.
    virtual int WriteAt(long long offset, const FileSpan* spans, int count) = 0;
    /// Puts the file under its path, in place of what stands there.
    virtual int Publish() = 0;
    /// Returns when everything written before is on the disk; after Publish
    /// the name too.
    virtual int Sync() = 0;
    /// Has the system begin to write a range to the disk, and does not wait for it. What a Sync has
    /// to wait for later is less then. A system that cannot is no failure.
    virtual void BeginToSync(long long offset, long long size) { (void)offset, (void)size; }
    virtual int Truncate(long long size) = 0;
    /// Takes blocks for a range that will be written soon. A system that cannot is no failure.
    virtual int Reserve(long long offset, long long size) = 0;
    /// Gives the blocks of a range back; it reads as zeros. A system that cannot is no failure.
    virtual int Release(long long offset, long long size) = 0;
    virtual int Close() = 0;

    int WriteAt(long long offset, const void* data, std::size_t size) {
        const FileSpan span{data, size};
        return WriteAt(offset, &span, 1);
    }
};

std::unique_ptr<FileLayer> MakePosixFile();

}  // namespace Quillon::Orb
