#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include "FileLayer.h"

namespace Quillon::Orb {
namespace {

constexpr int kSpansPerCall = 64;
constexpr mode_t kNewFileMode = 0666;
constexpr const char* kUnpublished = ".part";
constexpr int kMostSiblings = 99;

int failure() {
    return -errno;
}

class PosixFile final : public FileLayer {
public:
    ~PosixFile() override { Close(); }

    int Create(const char* path) override;
    int WriteAt(long long offset, const FileSpan* spans, int count) override;
    int Publish() override;
    int Sync() override;
    void BeginToSync(long long offset, long long size) override;
    int Truncate(long long size) override { return ftruncate(fFile, size) == 0 ? 0 : failure(); }
    int Reserve(long long offset, long long size) override;
    int Release(long long offset, long long size) override;
    int Close() override;

private:
    int create_sibling();
    int open_new_sibling();

    // fixed after Create
    int fFile = -1;
    std::string fPath;
    std::string fTemporary;  // empty when the file stands at its path from the start

    std::atomic<bool> fNameToSync{false};
};

int PosixFile::Create(const char* path) {
    fPath = path;
    // Through a symbolic link the file behind it is meant, not the link.
    if (char* real = realpath(path, nullptr)) {
        fPath = real;
        free(real);
    }
    if (create_sibling() == 0) return 0;
    // A name at the limit of its length, a folder that takes no new names, or names that are all
    // taken: write in place. What is lost is a moment at the start in which the file has no bytes.
    fTemporary.clear();
    fFile = open(fPath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFileMode);
    return fFile >= 0 ? 0 : failure();
}

int PosixFile::create_sibling() {
    struct stat existing;
    const bool exists = stat(fPath.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) return -EINVAL;
    // A file that may not be written must not be replaced by one that may.
    if (exists && access(fPath.c_str(), W_OK) != 0) return failure();
    if (const int error = open_new_sibling()) return error;
    if (exists) (void)!fchmod(fFile, existing.st_mode & 07777);
    return 0;
}

/// Never a file that stands there already: it may be another program's, or what another recorder is
/// about to publish. Names come to an end, so that what killed recorders leave behind does too.
int PosixFile::open_new_sibling() {
    for (int i = 1; i <= kMostSiblings; ++i) {
        fTemporary = fPath + kUnpublished + (i == 1 ? "" : std::to_string(i));
        fFile = open(fTemporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
        if (fFile >= 0) return 0;
        if (errno != EEXIST) break;
    }
    return failure();
}

int PosixFile::Publish() {
    if (fTemporary.empty()) {
        fNameToSync = true;
        return 0;
    }
    if (rename(fTemporary.c_str(), fPath.c_str()) != 0) return failure();
    fTemporary.clear();
    fNameToSync = true;
    return 0;
}

int PosixFile::WriteAt(long long offset, const FileSpan* spans, int count) {
    iovec pieces[kSpansPerCall];
    int next = 0;
    std::size_t done = 0;  // of spans[next]
    while (next < count) {
        const int used = std::min(count - next, kSpansPerCall);
        for (int i = 0; i < used; i++) {
            const FileSpan& span = spans[next + i];
            pieces[i] = {const_cast<void*>(span.data), span.size};
        }
        pieces[0].iov_base = static_cast<char*>(pieces[0].iov_base) + done;
        pieces[0].iov_len -= done;
        ssize_t wrote = pwritev(fFile, pieces, used, offset);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return failure();
        offset += wrote;
        std::size_t left = static_cast<std::size_t>(wrote);
        while (next < count && left >= spans[next].size - done) {
            left -= spans[next].size - done;
            done = 0;
            next++;
        }
        done += left;
    }
    return 0;
}

int PosixFile::Sync() {
    if (fdatasync(fFile) != 0) return failure();
    if (!fNameToSync.exchange(false)) return 0;
    const std::size_t slash = fPath.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : fPath.substr(0, slash + 1);
    const int directory = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return 0;  // a folder may be writable and not readable
    fsync(directory);             // some file systems know no sync of folders
    close(directory);
    return 0;
}

void PosixFile::BeginToSync(long long offset, long long size) {
#ifdef SYNC_FILE_RANGE_WRITE
    (void)!sync_file_range(fFile, offset, size, SYNC_FILE_RANGE_WRITE);
#else
    (void)offset, (void)size;
#endif
}

int PosixFile::Reserve(long long offset, long long size) {
#ifdef FALLOC_FL_KEEP_SIZE
    if (fallocate(fFile, FALLOC_FL_KEEP_SIZE, offset, size) == 0) return 0;
    return errno == EOPNOTSUPP || errno == ENOSYS ? 0 : failure();
#else
    (void)offset, (void)size;
    return 0;
#endif
}

int PosixFile::Release(long long offset, long long size) {
#ifdef FALLOC_FL_PUNCH_HOLE
    if (fallocate(fFile, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, offset, size) == 0) return 0;
    return errno == EOPNOTSUPP || errno == ENOSYS ? 0 : failure();
#else
    (void)offset, (void)size;
    return 0;
#endif
}

int PosixFile::Close() {
    if (fFile < 0) return 0;
    const int file = fFile;
    fFile = -1;
    if (!fTemporary.empty()) unlink(fTemporary.c_str());
    return close(file) == 0 ? 0 : failure();
}

}  // namespace

std::unique_ptr<FileLayer> MakePosixFile() {
    return std::make_unique<PosixFile>();
}

}  // namespace Quillon::Orb
