#pragma once

#include <cstddef>
#include <cstring>

/// Copies `size` bytes. The blocks may overlap; with a size of 0 the pointers may be null.
inline void zCopyMemory(const void* source, void* target, unsigned long size) {
    if (size != 0) std::memmove(target, source, size);
}

inline void zZeroMemory(void* target, unsigned long size) {
    if (size != 0) std::memset(target, 0, size);
}

/// Copies `rows` rows of `rowBytes` bytes between two pitches, in bytes. A negative pitch walks up.
/// The padding of the target's rows is left alone; source and target do not overlap.
inline void zCopyImage(const void* source, int sourcePitch, void* target, int targetPitch,
                       int rowBytes, int rows) {
    if (rowBytes <= 0 || rows <= 0) return;
    if (sourcePitch == rowBytes && targetPitch == rowBytes) {
        std::memcpy(target, source, static_cast<std::size_t>(rowBytes) * rows);
        return;
    }
    const char* from = static_cast<const char*>(source);
    char* to = static_cast<char*>(target);
    for (std::ptrdiff_t row = 0; row < rows; ++row) {
        std::memcpy(to + row * targetPitch, from + row * sourcePitch, rowBytes);
    }
}
