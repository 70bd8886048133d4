#pragma once

#include <string_view>

#include "spar/export.h"

/// A sequence of bytes to read from or write to. Results are 0 or a negative code; one thread at a
/// time.
class SPAR_API zStream {
public:
    virtual ~zStream() = default;

    /// Reads up to `size` bytes; `got` says how many, fewer only at the end.
    virtual int Read(void* data, unsigned long size, unsigned long* got) = 0;

    /// Writes all of `size` bytes. After a failure some of them may have been written.
    virtual int Write(const void* data, unsigned long size) = 0;

    /// Hands everything written so far on to where it goes.
    virtual int Flush() = 0;

    /// Writes the characters of `text`, without a terminator.
    int WriteString(std::string_view text) { return Write(text.data(), text.size()); }
};
