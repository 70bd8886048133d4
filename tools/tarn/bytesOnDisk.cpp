#include "bytesOnDisk.h"

#include <sys/stat.h>

long long BytesOnDisk(const std::string& path, long long otherwise) {
    constexpr long long kBlock = 512;
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return 0;
    return S_ISREG(info.st_mode) ? info.st_blocks * kBlock : otherwise;
}
