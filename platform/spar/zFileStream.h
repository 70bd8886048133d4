#pragma once

#include <memory>
#include <string>

#include "spar/zStream.h"

/// What a zFileStream is opened for.
enum z_file_mode : unsigned char { Z_FILE_READ = 1, Z_FILE_WRITE = 2, Z_FILE_READ_WRITE = 3 };

/// A file as a stream. It is made closed: Open, Close and Flush are explicit; the destructor closes
/// without a word.
///
/// Writes are gathered and reach the file in large pieces, or at Flush. Failures are -5000 less the
/// system's error number, so that -5028 is a full disk; ErrorText says them in words. Operations
/// may block as long as the disk does. One thread at a time for an object; the static operations
/// serve any thread.
class SPAR_API zFileStream : public zStream {
public:
    static constexpr int kErrorBase = -5000;

    /// `mode` is a z_file_mode. For writing, Open creates the file if it is missing; an existing
    /// one is emptied, or kept and written behind its end if `append`.
    zFileStream(const char* path, unsigned char mode, bool append);
    ~zFileStream() override;
    zFileStream(const zFileStream&) = delete;
    zFileStream& operator=(const zFileStream&) = delete;

    /// -5022 for a mode that is none, an empty path or a stream that is open.
    int Open();
    /// Flushes first. The file is closed also when that fails; the result is the first failure. 0
    /// for a stream that is closed.
    int Close();
    bool IsOpen() const { return fFile >= 0; }

    /// All three give -5009 on a stream that is not open for them.
    int Read(void* data, unsigned long size, unsigned long* got) override;
    int Write(const void* data, unsigned long size) override;
    int Flush() override;

    /// Flush, and then waits until the bytes stand on the disk.
    int Sync();

    /// Where the next byte is read or written, counted from the start of the file. Flushes first.
    int SetPosition(long long position);
    /// Where the file itself is read or written next: bytes that are gathered do not count yet.
    long long Position() const { return fPosition; }

    /// Whether something, file or folder, stands at the path.
    static bool Exists(const char* path);
    /// Removes a file; a folder is refused.
    static int RemoveFile(const char* path);
    /// Moves `from` to `to` in one step, replacing a file that stands there.
    static int RenameFile(const char* from, const char* to);
    /// Gives the file `from` the name `to` as well; refused where `to` stands already, and on file
    /// systems without links.
    static int LinkFile(const char* from, const char* to);
    /// Waits until creations, removals and renamings in that folder stand on the disk. 0 at once on
    /// file systems that have no way to wait for that.
    static int SyncFolder(const char* path);
    static bool IsFolder(const std::string& path);
    /// Free bytes, for an ordinary user, of the volume that holds the path. A volume that cannot be
    /// asked, or does not say how large it is, as a memory disk without a limit, gives the largest
    /// number: nobody knows of a limit there.
    static long long SpaceAvailable(const std::string& path);
    /// Size of the file in bytes, or a negative code.
    static long long FileSize(const char* path);

    /// The system's words for a code of this class; "error N" for others.
    static std::string ErrorText(int code);

private:
    bool may_read() const { return (fMode & Z_FILE_READ) != 0; }
    bool may_write() const { return (fMode & Z_FILE_WRITE) != 0; }
    int write_through(const char* data, unsigned long size);

    // fixed
    const std::string fPath;
    const unsigned char fMode;
    const bool fAppend;

    int fFile = -1;
    long long fPosition = 0;
    std::unique_ptr<char[]> fPending;  // made by the first write
    unsigned long fPendingSize = 0;
};
