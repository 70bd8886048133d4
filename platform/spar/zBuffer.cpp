#include "spar/zBuffer.h"

#include <cstddef>

#include "spar/zMemory.h"

/// A zeroed tail behind `size` bytes that the caller fills. The sum may go beyond 32 bits.
static unsigned char* allocate(std::size_t size, std::size_t padding) {
    auto* data = new unsigned char[size + padding];
    zZeroMemory(data + size, padding);
    return data;
}

zBuffer::zBuffer(unsigned int size, unsigned int padding) {
    if (size == 0 && padding == 0) return;
    SetData(allocate(0, std::size_t{size} + padding), size, true);
}

zBuffer::~zBuffer() {
    if (fOwn) delete[] fData;
}

void zBuffer::SetData(void* data, unsigned int size, bool own) {
    if (fOwn && fData != data) delete[] fData;
    fData = static_cast<unsigned char*>(data);
    fSize = size;
    fOwn = own;
}

void zBuffer::SetAndCopyData(const void* data, unsigned int size, unsigned int padding) {
    unsigned char* copy = allocate(size, padding);
    zCopyMemory(data, copy, size);
    SetData(copy, size, true);
}
