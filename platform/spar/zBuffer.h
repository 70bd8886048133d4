#pragma once

#include "spar/export.h"

/// A block of bytes: a copy of its own, or a view of what its caller keeps.
class SPAR_API zBuffer {
public:
    zBuffer() = default;
    /// An owned block of `size` zero bytes, and `padding` more that do not count.
    zBuffer(unsigned int size, unsigned int padding);
    ~zBuffer();
    zBuffer(const zBuffer&) = delete;
    zBuffer& operator=(const zBuffer&) = delete;

    /// Refers to `data`, which the caller keeps alive as long as this buffer is read; with `own`
    /// the buffer frees it by delete[] of unsigned char.
    void SetData(void* data, unsigned int size, bool own);

    /// Owns a copy of `data`, followed by `padding` zero bytes that do not count: bit readers look
    /// ahead. `data` may lie in this buffer.
    void SetAndCopyData(const void* data, unsigned int size, unsigned int padding);

    /// Null if there is none.
    unsigned char* Data() { return fData; }
    const unsigned char* Data() const { return fData; }
    /// In bytes.
    unsigned int Size() const { return fSize; }
    bool IsOwner() const { return fOwn; }

private:
    unsigned char* fData = nullptr;
    unsigned int fSize = 0;
    bool fOwn = false;
};
