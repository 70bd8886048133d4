#include "spar/zFileStream.h"

#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>

#include "spar/zMemory.h"

static constexpr unsigned long kPendingBytes = 64 * 1024;
static constexpr int kNewFileMode = 0666;  // the process's mask takes its share

static int last_error() {
    return zFileStream::kErrorBase - errno;
}

static int result_of(int answer) {
    return answer == 0 ? 0 : last_error();
}

zFileStream::zFileStream(const char* path, unsigned char mode, bool append)
    : fPath(path == nullptr ? "" : path), fMode(mode), fAppend(append) {}

zFileStream::~zFileStream() {
    Close();
}

static int open_flags(unsigned char mode, bool append) {
    const int ending = append ? 0 : O_TRUNC;
    switch (mode) {
        case Z_FILE_READ:
            return O_RDONLY;
        case Z_FILE_WRITE:
            return O_WRONLY | O_CREAT | ending;
        case Z_FILE_READ_WRITE:
            return O_RDWR | O_CREAT | ending;
        default:
            return -1;
    }
}

int zFileStream::Open() {
    const int flags = open_flags(fMode, fAppend);
    if (flags < 0 || fPath.empty() || IsOpen()) return kErrorBase - EINVAL;
    do {
        fFile = ::open(fPath.c_str(), flags | O_CLOEXEC, kNewFileMode);
    } while (fFile < 0 && errno == EINTR);
    if (fFile < 0) return last_error();
    fPosition = 0;
    fPendingSize = 0;
    if (!fAppend || !may_write()) return 0;
    const off_t end = ::lseek(fFile, 0, SEEK_END);
    if (end >= 0) {
        fPosition = end;
        return 0;
    }
    const int result = last_error();
    ::close(fFile);
    fFile = -1;
    return result;
}

int zFileStream::Close() {
    if (!IsOpen()) return 0;
    const int flushed = Flush();
    // Not repeated after EINTR: the descriptor is gone by then and may be somebody else's.
    const int closed = ::close(fFile) == 0 || errno == EINTR ? 0 : last_error();
    fFile = -1;
    fPendingSize = 0;
    return flushed != 0 ? flushed : closed;
}

int zFileStream::Read(void* data, unsigned long size, unsigned long* got) {
    if (got != nullptr) *got = 0;
    if (!IsOpen() || !may_read()) return kErrorBase - EBADF;
    const int flushed = Flush();
    if (flushed != 0) return flushed;
    unsigned long done = 0;
    while (done < size) {
        const ssize_t count = ::read(fFile, static_cast<char*>(data) + done, size - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return last_error();
        if (count == 0) break;
        done += static_cast<unsigned long>(count);
        fPosition += count;
        if (got != nullptr) *got = done;
    }
    return 0;
}

int zFileStream::Write(const void* data, unsigned long size) {
    if (!IsOpen() || !may_write()) return kErrorBase - EBADF;
    if (fPendingSize + size > kPendingBytes) {
        const int flushed = Flush();
        if (flushed != 0) return flushed;
    }
    if (size > kPendingBytes) return write_through(static_cast<const char*>(data), size);
    if (!fPending) fPending = std::make_unique<char[]>(kPendingBytes);
    zCopyMemory(data, fPending.get() + fPendingSize, size);
    fPendingSize += size;
    return 0;
}

int zFileStream::Flush() {
    if (!IsOpen()) return kErrorBase - EBADF;
    const unsigned long size = fPendingSize;
    // What a full disk did not take is dropped, not kept for a later try: by then the stream's user
    // knows of the failure and may have written it again.
    fPendingSize = 0;
    return write_through(fPending.get(), size);
}

int zFileStream::write_through(const char* data, unsigned long size) {
    while (size > 0) {
        const ssize_t count = ::write(fFile, data, size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return last_error();
        data += count;
        size -= static_cast<unsigned long>(count);
        fPosition += count;
    }
    return 0;
}

int zFileStream::Sync() {
    const int flushed = Flush();
    return flushed != 0 ? flushed : result_of(::fsync(fFile));
}

int zFileStream::SetPosition(long long position) {
    const int flushed = Flush();
    if (flushed != 0) return flushed;
    if (position < 0) return kErrorBase - EINVAL;
    if (::lseek(fFile, position, SEEK_SET) < 0) return last_error();
    fPosition = position;
    return 0;
}

static bool status_of(const char* path, struct stat& status) {
    return path != nullptr && ::stat(path, &status) == 0;
}

bool zFileStream::Exists(const char* path) {
    struct stat status;
    return status_of(path, status);
}

int zFileStream::RemoveFile(const char* path) {
    if (path == nullptr) return kErrorBase - EINVAL;
    return result_of(::unlink(path));
}

int zFileStream::RenameFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return kErrorBase - EINVAL;
    return result_of(::rename(from, to));
}

int zFileStream::LinkFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return kErrorBase - EINVAL;
    return result_of(::link(from, to));
}

/// Some network and shared file systems have no such operation for folders.
static bool has_no_sync(int error) {
    return error == EINVAL || error == ENOTSUP;
}

int zFileStream::SyncFolder(const char* path) {
    if (path == nullptr) return kErrorBase - EINVAL;
    const int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return last_error();
    const bool isDone = ::fsync(folder) == 0 || has_no_sync(errno);
    const int result = isDone ? 0 : last_error();
    ::close(folder);
    return result;
}

bool zFileStream::IsFolder(const std::string& path) {
    struct stat status;
    return status_of(path.c_str(), status) && S_ISDIR(status.st_mode);
}

long long zFileStream::SpaceAvailable(const std::string& path) {
    struct statvfs volume;
    constexpr long long kNoLimit = std::numeric_limits<long long>::max();
    if (::statvfs(path.c_str(), &volume) != 0 || volume.f_blocks == 0) return kNoLimit;
    long long space = 0;
    return __builtin_mul_overflow(volume.f_bavail, volume.f_frsize, &space) ? kNoLimit : space;
}

long long zFileStream::FileSize(const char* path) {
    if (path == nullptr) return kErrorBase - EINVAL;
    struct stat status;
    return ::stat(path, &status) == 0 ? status.st_size : last_error();
}

std::string zFileStream::ErrorText(int code) {
    const int number = kErrorBase - code;
    if (number > 0 && number < 200) return std::generic_category().message(number);
    return "error " + std::to_string(code);
}
