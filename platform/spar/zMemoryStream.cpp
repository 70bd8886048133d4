#include "spar/zMemoryStream.h"

#include <algorithm>

#include "spar/zMemory.h"

int zMemoryStream::Read(void* data, unsigned long size, unsigned long* got) {
    const unsigned long count = std::min<unsigned long>(size, fContent.size() - fPosition);
    zCopyMemory(fContent.data() + fPosition, data, count);
    fPosition += count;
    if (got != nullptr) *got = count;
    return 0;
}

int zMemoryStream::Write(const void* data, unsigned long size) {
    fContent.append(static_cast<const char*>(data), size);
    return 0;
}
